#include "records/JsonRecord.h"

#include <simdjson.h>

#include <algorithm>
#include <cstring>
#include <limits>

namespace Records {
namespace {

namespace Json = simdjson::ondemand;

bool isSpace(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\r'; }
bool isDigit(char c) { return c >= '0' && c <= '9'; }

bool isWord(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || isDigit(c) || c == '_' || c == '.';
}

// Whether a script's `name` stands for the member `key`.
bool standsFor(std::string_view name, std::string_view key) {
    if (name == key) return true;
    return name.size() == key.size() &&
           std::equal(name.begin(), name.end(), key.begin(),
                      [](char n, char k) { return n == k || (n == '_' && !isWord(k)); });
}

// The numbers of JSON, however large: -? int frac? exp?
bool isNumber(std::string_view text) {
    std::size_t i = 0;
    const auto digits = [&] {
        const std::size_t from = i;
        while (i < text.size() && isDigit(text[i])) ++i;
        return i != from;
    };
    if (i < text.size() && text[i] == '-') ++i;
    const bool isZero = i < text.size() && text[i] == '0';
    const std::size_t from = i;
    if (!digits() || (isZero && i != from + 1)) return false;
    if (i < text.size() && text[i] == '.' && (++i, !digits())) return false;
    if (i < text.size() && (text[i] == 'e' || text[i] == 'E')) {
        ++i;
        if (i < text.size() && (text[i] == '+' || text[i] == '-')) ++i;
        if (!digits()) return false;
    }
    return i == text.size();
}

// The following walk over JSON that is known to be right.

std::size_t skipSpace(std::string_view text, std::size_t i) {
    while (isSpace(text[i])) ++i;
    return i;
}

// Behind the string that begins at `i`.
std::size_t skipString(std::string_view text, std::size_t i) {
    for (++i; text[i] != '"'; ++i) {
        if (text[i] == '\\') ++i;
    }
    return i + 1;
}

// Behind the value that begins at `i`.
std::size_t skipValue(std::string_view text, std::size_t i) {
    std::size_t depth = 0;
    do {
        switch (text[i]) {
            case '"':
                i = skipString(text, i);
                break;
            case '{':
            case '[':
                ++depth;
                ++i;
                break;
            case '}':
            case ']':
                --depth;
                ++i;
                break;
            case ',':
            case ':':
            case ' ':
            case '\t':
            case '\r':
            case '\n':
                ++i;
                break;
            default:
                while (i < text.size() && std::strchr(",]} \t\r\n", text[i]) == nullptr) ++i;
        }
    } while (depth != 0);
    return i;
}

unsigned hexOf(std::string_view digits) {
    unsigned code = 0;
    for (const char c : digits) {
        code = code * 16 + static_cast<unsigned>(isDigit(c) ? c - '0' : (c | 0x20) - 'a' + 10);
    }
    return code;
}

void appendUtf8(unsigned code, std::string& out) {
    const auto add = [&](unsigned byte) { out += static_cast<char>(byte); };
    if (code < 0x80) {
        add(code);
        return;
    }
    if (code < 0x800) {
        add(0xC0 | code >> 6);
    } else {
        if (code < 0x10000) {
            add(0xE0 | code >> 12);
        } else {
            add(0xF0 | code >> 18);
            add(0x80 | (code >> 12 & 0x3F));
        }
        add(0x80 | (code >> 6 & 0x3F));
    }
    add(0x80 | (code & 0x3F));
}

// The text between the quotes of a string, without its escapes.
void unescape(std::string_view inner, std::string& out) {
    out.clear();
    for (std::size_t i = 0; i < inner.size(); ++i) {
        if (inner[i] != '\\') {
            out += inner[i];
            continue;
        }
        const char c = inner[++i];
        constexpr std::string_view letters = "bfnrt";
        if (c == 'u') {
            unsigned code = hexOf(inner.substr(i + 1, 4));
            i += 4;
            if (code >= 0xD800 && code < 0xDC00 && inner.substr(i + 1, 2) == "\\u") {
                code = 0x10000 + ((code - 0xD800) << 10) + (hexOf(inner.substr(i + 3, 4)) - 0xDC00);
                i += 6;
            }
            appendUtf8(code, out);
        } else if (const std::size_t letter = letters.find(c); letter != std::string_view::npos) {
            out += "\b\f\n\r\t"[letter];
        } else {
            out += c;
        }
    }
}

void appendQuoted(std::string_view text, std::string& out) {
    out += '"';
    for (const char c : text) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            out += '\\';
            out += c;
        } else if (c == '\n') {
            out += "\\n";
        } else if (c == '\r') {
            out += "\\r";
        } else if (c == '\t') {
            out += "\\t";
        } else if (byte < ' ') {
            constexpr char digits[] = "0123456789abcdef";
            out += "\\u00";
            out += digits[byte >> 4];
            out += digits[byte & 15];
        } else {
            out += c;
        }
    }
    out += '"';
}

}  // namespace

const std::size_t JsonRecord::paddingCM = simdjson::SIMDJSON_PADDING;

// Checks a whole record in one pass and notes where its members stand.
struct JsonRecord::Checker {
    static constexpr int maxDepthCM = 512;
    Json::parser parser;

    const char* check(std::string_view text, std::vector<Member>& members);
    simdjson::error_code checkValue(Json::value value, int depth);
    simdjson::error_code checkScalar(Json::value& value, Json::json_type type);
};

simdjson::error_code JsonRecord::Checker::checkScalar(Json::value& value, Json::json_type type) {
    switch (type) {
        case Json::json_type::string:
            return value.get_string().error();
        case Json::json_type::boolean:
            return value.get_bool().error();
        case Json::json_type::number: {
            std::string_view token = value.raw_json_token();
            while (!token.empty() && isSpace(token.back())) token.remove_suffix(1);
            return isNumber(token) ? simdjson::SUCCESS : simdjson::NUMBER_ERROR;
        }
        default: {
            bool isNull = false;
            const simdjson::error_code error = value.is_null().get(isNull);
            return error != simdjson::SUCCESS || isNull ? error : simdjson::N_ATOM_ERROR;
        }
    }
}

simdjson::error_code JsonRecord::Checker::checkValue(Json::value value, int depth) {
    Json::json_type type{};
    if (const auto error = value.type().get(type)) return error;
    if (depth > maxDepthCM) return simdjson::DEPTH_ERROR;
    if (type == Json::json_type::array) {
        Json::array array;
        if (const auto error = value.get_array().get(array)) return error;
        for (auto element : array) {
            Json::value inner;
            if (const auto error = element.get(inner)) return error;
            if (const auto error = checkValue(inner, depth + 1)) return error;
        }
        return simdjson::SUCCESS;
    }
    if (type != Json::json_type::object) return checkScalar(value, type);
    Json::object object;
    if (const auto error = value.get_object().get(object)) return error;
    for (auto result : object) {
        Json::field field;
        if (const auto error = std::move(result).get(field)) return error;
        if (const auto error = field.unescaped_key().error()) return error;
        if (const auto error = checkValue(field.value(), depth + 1)) return error;
    }
    return simdjson::SUCCESS;
}

const char* JsonRecord::Checker::check(std::string_view text, std::vector<Member>& members) {
    Json::document document;
    const simdjson::padded_string_view padded(text.data(), text.size(), text.size() + paddingCM);
    if (const auto error = parser.iterate(padded).get(document)) {
        return simdjson::error_message(error);
    }
    Json::json_type type{};
    if (const auto error = document.type().get(type)) return simdjson::error_message(error);
    if (type != Json::json_type::object) return "no JSON object";
    Json::object object;
    if (const auto error = document.get_object().get(object)) return simdjson::error_message(error);
    for (auto result : object) {
        Json::field field;
        if (const auto error = std::move(result).get(field)) return simdjson::error_message(error);
        std::string_view name;
        if (const auto error = field.unescaped_key().get(name)) {
            return simdjson::error_message(error);
        }
        Json::value& value = field.value();
        std::string_view token = value.raw_json_token();
        const bool isContainer = token.front() == '{' || token.front() == '[';
        if (const auto error = checkValue(value, 1)) return simdjson::error_message(error);
        const char* end = token.data() + token.size();
        if (isContainer && document.current_location().get(end) != simdjson::SUCCESS) {
            return "the object is not closed";
        }
        while (isSpace(end[-1])) --end;
        members.push_back({name, static_cast<std::size_t>(token.data() - text.data()),
                           static_cast<std::size_t>(end - text.data())});
    }
    const char* rest = nullptr;
    if (document.current_location().get(rest) == simdjson::SUCCESS) {
        return "text follows the object";
    }
    return nullptr;
}

JsonRecord::JsonRecord() : checker_(std::make_unique<Checker>()), text_("{}") {}
JsonRecord::~JsonRecord() = default;

long JsonRecord::add(std::string_view path) {
    Path added;
    while (true) {
        const std::size_t dot = path.find('.');
        added.names.emplace_back(path.substr(0, dot));
        if (dot == std::string_view::npos) break;
        path.remove_prefix(dot + 1);
    }
    paths_.push_back(std::move(added));
    return static_cast<long>(paths_.size()) - 1;
}

const char* JsonRecord::take(std::string_view text) {
    members_.clear();
    text_ = text;
    const char* const error = checker_->check(text, members_);
    if (error != nullptr) {
        members_.clear();
        text_ = "{}";
    }
    return error;
}

bool JsonRecord::findMember(const Path& path, Child& child) const {
    const std::string& name = path.names.front();
    // The first of several that have the name.
    auto found = std::find_if(members_.begin(), members_.end(),
                              [&](const Member& member) { return member.name == name; });
    if (found == members_.end() && name.find('_') != std::string::npos) {
        found = std::find_if(members_.begin(), members_.end(),
                             [&](const Member& member) { return standsFor(name, member.name); });
    }
    if (found == members_.end()) return false;
    child.valueBegin = found->valueBegin;
    child.valueEnd = found->valueEnd;
    child.isFound = true;
    return true;
}

JsonRecord::Child JsonRecord::scanObject(std::size_t begin, std::string_view name) const {
    std::string unescaped;
    Child similar;
    Child child;
    child.previousEnd = begin + 1;
    for (std::size_t i = skipSpace(text_, begin + 1); text_[i] != '}'; ++child.count) {
        child.isFirst = child.count == 0;
        child.begin = i;
        const std::size_t keyEnd = skipString(text_, i);
        std::string_view key = text_.substr(i + 1, keyEnd - i - 2);
        child.valueBegin = skipSpace(text_, skipSpace(text_, keyEnd) + 1);
        child.valueEnd = skipValue(text_, child.valueBegin);
        if (key.find('\\') != std::string_view::npos) {
            unescape(key, unescaped);
            key = unescaped;
        }
        child.isFound = true;
        if (key == name) return child;
        if (!similar.isFound && standsFor(name, key)) similar = child;
        child.isFound = false;
        child.previousEnd = child.valueEnd;
        i = skipSpace(text_, child.valueEnd);
        if (text_[i] == ',') i = skipSpace(text_, i + 1);
    }
    return similar.isFound ? similar : child;
}

JsonRecord::Child JsonRecord::scanArray(std::size_t begin, long index) const {
    Child child;
    child.previousEnd = begin + 1;
    for (std::size_t i = skipSpace(text_, begin + 1); text_[i] != ']'; ++child.count) {
        child.isFirst = child.count == 0;
        child.begin = child.valueBegin = i;
        child.valueEnd = skipValue(text_, i);
        child.isFound = static_cast<long>(child.count) == index;
        if (child.isFound) return child;
        child.previousEnd = child.valueEnd;
        i = skipSpace(text_, child.valueEnd);
        if (text_[i] == ',') i = skipSpace(text_, i + 1);
    }
    const long count = static_cast<long>(child.count);
    if (index < 0 && index >= -count) return scanArray(begin, count + index);
    return child;
}

JsonRecord::Place JsonRecord::locate(const Path& path, std::span<const long> indices,
                                     bool needsNeighbours) {
    Place place;
    if (!needsNeighbours && findMember(path, place.child)) {
        place.name = 1;
    } else {
        place.container = skipSpace(text_, 0);
        place.child = scanObject(place.container, path.names.front());
        if (!place.child.isFound) return place;
        place.name = 1;
    }
    while (place.name < path.names.size() || place.index < indices.size()) {
        const std::size_t begin = place.child.valueBegin;
        const bool isArray = text_[begin] == '[' && place.index < indices.size();
        const bool isObject = text_[begin] == '{' && place.name < path.names.size();
        if (!isArray && !isObject) {
            place.isBroken = true;
            return place;
        }
        const Child child = isArray ? scanArray(begin, indices[place.index])
                                    : scanObject(begin, path.names[place.name]);
        place.container = begin;
        place.child = child;
        if (!child.isFound) return place;
        ++(isArray ? place.index : place.name);
    }
    return place;
}

JsonRecord::Value JsonRecord::find(long path, std::span<const long> indices) {
    const Place place = locate(paths_[static_cast<std::size_t>(path)], indices, false);
    if (!place.child.isFound || place.isBroken) return {};
    Value value;
    value.raw = text_.substr(place.child.valueBegin, place.child.valueEnd - place.child.valueBegin);
    switch (value.raw.front()) {
        case '"':
            value.kind = Kind::String;
            break;
        case '{':
            value.kind = Kind::Object;
            break;
        case '[':
            value.kind = Kind::Array;
            break;
        case 'n':
            value.kind = Kind::Null;
            break;
        case 't':
        case 'f':
            value.kind = Kind::Bool;
            break;
        default:
            value.kind = Kind::Number;
    }
    return value;
}

long JsonRecord::elements(long path, std::span<const long> indices) {
    const Value value = find(path, indices);
    if (value.kind == Kind::Missing || value.kind == Kind::Null) return 0;
    if (value.kind != Kind::Array) return -1;
    const auto begin = static_cast<std::size_t>(value.raw.data() - text_.data());
    return static_cast<long>(scanArray(begin, std::numeric_limits<long>::min()).count);
}

std::string_view JsonRecord::textOf(const Value& value) {
    if (value.kind == Kind::Missing || value.kind == Kind::Null) return {};
    if (value.kind != Kind::String) return value.raw;
    const std::string_view inner = value.raw.substr(1, value.raw.size() - 2);
    if (inner.find('\\') == std::string_view::npos) return inner;
    unescape(inner, scratch_);
    return scratch_;
}

void JsonRecord::replace(std::size_t begin, std::size_t end, std::string_view bytes) {
    if (text_.data() != own_.data()) own_.assign(text_);
    own_.replace(begin, end - begin, bytes);
    text_ = own_;
    for (Member& member : members_) {
        if (member.valueBegin >= end && member.valueBegin > begin) {
            member.valueBegin += bytes.size() - (end - begin);
        }
        if (member.valueEnd >= end && member.valueEnd > begin) {
            member.valueEnd += bytes.size() - (end - begin);
        }
    }
}

const char* JsonRecord::assign(long number, std::span<const long> indices, std::string_view value) {
    const Path& path = paths_[static_cast<std::size_t>(number)];
    Place place = locate(path, indices, false);
    const auto isNull = [&] { return text_[place.child.valueBegin] == 'n'; };
    if (place.child.isFound && !place.isBroken) {
        replace(place.child.valueBegin, place.child.valueEnd, value);
        return nullptr;
    }
    if (place.isBroken && !isNull()) return "its path leads through what is no object or array";
    // What is missing: below the names an array for each index.
    const bool isElement = !place.isBroken && text_[place.container] == '[';
    std::size_t index = place.index;
    const long count = static_cast<long>(place.child.count);
    if (isElement && indices[index++] != count) return "an index is beyond the end of its array";
    const bool isMember = !place.isBroken && !isElement;
    added_.clear();
    std::string closing;
    for (std::size_t i = place.name; i < path.names.size(); ++i) {
        if (!isMember || i != place.name) {
            added_ += '{';
            closing += '}';
        }
        appendQuoted(path.names[i], added_);
        added_ += ':';
    }
    for (; index < indices.size(); ++index) {
        if (indices[index] != 0) return "an index is beyond the end of its array";
        added_ += '[';
        closing += ']';
    }
    added_ += value;
    added_.append(closing.rbegin(), closing.rend());
    if (place.isBroken) {
        replace(place.child.valueBegin, place.child.valueEnd, added_);
        return nullptr;
    }
    if (count != 0) added_.insert(0, 1, ',');
    const bool isTop = isMember && place.name == 0;
    const std::size_t at = place.child.previousEnd;
    replace(at, at, added_);
    if (isTop) {
        // Where the value begins: behind the comma, the name and the colon.
        std::string quoted;
        appendQuoted(path.names.front(), quoted);
        const std::size_t begin = at + (count != 0 ? 1 : 0) + quoted.size() + 1;
        members_.push_back({path.names.front(), begin, at + added_.size()});
    }
    return nullptr;
}

const char* JsonRecord::assignText(long path, std::span<const long> indices,
                                   std::string_view text) {
    if (!simdjson::validate_utf8(text.data(), text.size())) return "the text is no UTF-8";
    scratch_.clear();
    appendQuoted(text, scratch_);
    return assign(path, indices, scratch_);
}

void JsonRecord::remove(long number, std::span<const long> indices) {
    const Place place = locate(paths_[static_cast<std::size_t>(number)], indices, true);
    if (!place.child.isFound || place.isBroken) return;
    const Child& child = place.child;
    const bool isTop = place.container == skipSpace(text_, 0);
    if (isTop) {
        std::erase_if(members_,
                      [&](const Member& member) { return member.valueBegin == child.valueBegin; });
    }
    std::size_t begin = child.previousEnd;
    std::size_t end = child.valueEnd;
    if (child.isFirst) {
        // With the comma behind it, if there is another.
        begin = child.begin;
        const std::size_t next = skipSpace(text_, end);
        if (text_[next] == ',') end = skipSpace(text_, next + 1);
    }
    replace(begin, end, {});
}

}  // namespace Records
