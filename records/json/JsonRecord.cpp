#include "records/json/JsonRecord.h"

#include <simdjson.h>

#include <algorithm>
#include <cstring>
#include <utility>

namespace Records {

namespace Json = simdjson::ondemand;

const std::size_t JsonRecord::paddingCM = simdjson::SIMDJSON_PADDING;

// Checks a whole record in one pass and notes the places of its members.
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
            while (!token.empty() && JsonText::isSpace(token.back())) token.remove_suffix(1);
            return JsonText::isNumber(token) ? simdjson::SUCCESS : simdjson::NUMBER_ERROR;
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
        while (JsonText::isSpace(end[-1])) --end;
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
    if (std::exchange(uses_, 0) != 0) cursors_.fill({});
    gapBegin_ = gapEnd_ = noneCM;
    if (charge_.isLarge()) own_ = added_ = scratch_ = {};
    text_ = text;
    const char* const error = checker_->check(text, members_);
    if (error != nullptr) {
        members_.clear();
        text_ = "{}";
    }
    // Records of one file are alike: usually a member is where it was in the record before.
    const bool isAlike = std::equal(
        members_.begin(), members_.end(), shapeNames_.begin(), shapeNames_.end(),
        [](const Member& member, const std::string& name) { return member.name == name; });
    if (!isAlike) {
        shapeNames_.resize(members_.size());
        for (std::size_t i = 0; i < members_.size(); ++i) shapeNames_[i] = members_[i].name;
        namesShape_ = ++shapes_;
    }
    shape_ = namesShape_;
    return error;
}

std::string_view JsonRecord::text() {
    closeGap();
    return text_;
}

// The following functions walk over valid JSON.

std::size_t JsonRecord::skipSpace(std::size_t i) const {
    while (JsonText::isSpace(text_[i])) i = i == gapBegin_ ? gapEnd_ : i + 1;
    return i;
}

// The position after the value that begins at `i`.
std::size_t JsonRecord::skipValue(std::size_t i) const {
    std::size_t depth = 0;
    do {
        switch (text_[i]) {
            case '"':
                i = JsonText::skipString(text_, i);
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
                ++i;
                break;
            case ' ':
            case '\t':
            case '\r':
            case '\n':
                i = skipSpace(i);
                break;
            default:
                while (!JsonText::endsWord(text_[i])) ++i;
        }
    } while (depth != 0);
    return i;
}

// Reads the name of the member at `i`, unescaped, into `key`, and moves `i` after it. False at the
// end of the object.
bool JsonRecord::readKey(std::size_t& i, std::string& scratch, std::string_view& key) const {
    if (text_[i] == '}') return false;
    const std::size_t end = JsonText::skipString(text_, i);
    key = text_.substr(i + 1, end - i - 2);
    if (key.find('\\') != std::string_view::npos) {
        JsonText::unescape(key, scratch);
        key = scratch;
    }
    i = end;
    return true;
}

bool JsonRecord::findMember(Path& path, Child& child) {
    if (path.shape != shape_) {
        const std::string& name = path.names.front();
        const auto find = [&](const auto& fits) {
            const auto found = std::find_if(members_.rbegin(), members_.rend(), fits);
            path.member = static_cast<std::size_t>(members_.rend() - found) - 1;
            return found != members_.rend();
        };
        if (!find([&](const Member& member) { return member.name == name; }) &&
            name.find('_') != std::string::npos) {
            find([&](const Member& member) { return JsonText::standsFor(name, member.name); });
        }
        path.shape = shape_;
    }
    if (path.member == noneCM) return false;
    child.valueBegin = members_[path.member].valueBegin;
    child.valueEnd = members_[path.member].valueEnd;
    child.isFound = true;
    return true;
}

JsonRecord::Child JsonRecord::scanObject(std::size_t begin, std::string_view name) const {
    std::string scratch;
    std::string_view key;
    Child exact;
    Child similar;
    Child child;
    child.previousEnd = begin + 1;
    for (std::size_t i = skipSpace(begin + 1);; ++child.count) {
        child.begin = i;
        if (!readKey(i, scratch, key)) break;
        child.valueBegin = skipSpace(skipSpace(i) + 1);
        child.valueEnd = skipValue(child.valueBegin);
        if (JsonText::standsFor(name, key)) {
            Child& found = key == name ? exact : similar;
            found = child;
            found.isFound = true;
        }
        child.previousEnd = child.valueEnd;
        i = skipSpace(child.valueEnd);
        if (text_[i] == ',') i = skipSpace(i + 1);
    }
    return exact.isFound ? exact : similar.isFound ? similar : child;
}

JsonRecord::Cursor& JsonRecord::cursorOf(std::size_t array) {
    Cursor* oldest = cursors_.data();
    for (Cursor& cursor : cursors_) {
        if (cursor.array == array) {
            cursor.used = ++uses_;
            return cursor;
        }
        if (cursor.used < oldest->used) oldest = &cursor;
    }
    *oldest = {};
    oldest->array = array;
    oldest->used = ++uses_;
    return *oldest;
}

// Goes on to the element `index`, or to the end of the array.
JsonRecord::Child JsonRecord::advance(Cursor& cursor, std::size_t index) const {
    Child& child = cursor.child;
    while (!child.isFound || child.count != index) {
        Child next;
        next.count = child.isFound ? child.count + 1 : 0;
        next.previousEnd = child.isFound ? child.valueEnd : cursor.array + 1;
        next.begin = skipSpace(next.previousEnd);
        if (text_[next.begin] == ',') next.begin = skipSpace(next.begin + 1);
        if (text_[next.begin] == ']') {
            cursor.elements = next.count;
            return next;
        }
        next.valueBegin = next.begin;
        next.valueEnd = skipValue(next.begin);
        next.isFound = true;
        child = next;
    }
    return child;
}

JsonRecord::Child JsonRecord::scanArray(std::size_t begin, long index) {
    Cursor& cursor = cursorOf(begin);
    if (index < 0) {
        if (cursor.elements == noneCM) advance(cursor, noneCM);
        const long count = static_cast<long>(cursor.elements);
        if (index < -count) {
            Child nothing;
            nothing.count = cursor.elements;
            return nothing;
        }
        index += count;
    }
    const auto place = static_cast<std::size_t>(index);
    if (cursor.child.count > place) cursor.child = {};
    return advance(cursor, place);
}

JsonRecord::Place JsonRecord::locate(Path& path, std::span<const long> indices) {
    Place place;
    place.container = skipSpace(0);
    if (!findMember(path, place.child)) {
        place.child.count = members_.size();
        place.child.previousEnd = members_.empty() ? place.container + 1 : members_.back().valueEnd;
        return place;
    }
    place.name = 1;
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
    const Place place = locate(paths_[static_cast<std::size_t>(path)], indices);
    Value value;
    value.isBroken = place.isBroken && text_[place.child.valueBegin] != 'n';
    if (!place.child.isFound || place.isBroken) return value;
    const std::size_t begin = place.child.valueBegin;
    std::size_t size = place.child.valueEnd - begin;
    if (gapBegin_ > begin && gapBegin_ < place.child.valueEnd) {
        size -= gapEnd_ - gapBegin_;
        closeGap();
    }
    value.raw = text_.substr(begin, size);
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
    const Place place = locate(paths_[static_cast<std::size_t>(path)], indices);
    if (!place.child.isFound || place.isBroken) return 0;
    const std::size_t begin = place.child.valueBegin;
    if (text_[begin] == 'n') return 0;
    if (text_[begin] != '[') return -1;
    Cursor& cursor = cursorOf(begin);
    if (cursor.elements == noneCM) advance(cursor, noneCM);
    return static_cast<long>(cursor.elements);
}

std::string_view JsonRecord::textOf(const Value& value) {
    if (value.kind == Kind::Missing || value.kind == Kind::Null) return {};
    if (value.kind != Kind::String) return value.raw;
    const std::string_view inner = value.raw.substr(1, value.raw.size() - 2);
    if (inner.find('\\') == std::string_view::npos) return inner;
    JsonText::unescape(inner, scratch_);
    return scratch_;
}

}  // namespace Records
