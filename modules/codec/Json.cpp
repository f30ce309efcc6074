#include <simdjson.h>

#include "modules/codec/Codec.h"

namespace Modules::CodecModule {

namespace {

namespace ondemand = simdjson::ondemand;

// A document is read as a whole, which cannot be stopped.
constexpr std::size_t longestS = std::size_t{1} << 20;

/// A document that is known to be JSON, with the memory that it takes.
class Document {
public:
    explicit Document(std::string_view text)
        : charge_(checked(text) * 32 + 8192), padded_(text.data(), text.size()) {
        work(text.size() * 4);
        {
            simdjson::dom::parser whole;
            if (whole.parse(padded_).error() != simdjson::SUCCESS) refuse("no JSON", text);
        }
        if (parser_.iterate(padded_).get(document_) != simdjson::SUCCESS) refuse("no JSON", text);
    }
    ondemand::document& root() { return document_; }
    std::string_view text() const { return {padded_.data(), padded_.size()}; }

private:
    static std::size_t checked(std::string_view text) {
        if (text.size() > longestS) {
            refuse("JSON is longer than 1 MiB", static_cast<long>(text.size()));
        }
        return text.size();
    }

    Charge charge_;
    simdjson::padded_string padded_;
    ondemand::parser parser_;
    ondemand::document document_;
};

std::string_view trimmed(std::string_view text) {
    const std::size_t end = text.find_last_not_of(" \t\r\n");
    return text.substr(0, end + 1);
}

// Removes the first name of a path, such as "/a/0", and returns it, decoded.
std::string cutName(std::string_view& path) {
    if (!path.starts_with('/')) refuse("a path begins with /, unlike", path);
    path.remove_prefix(1);
    const std::string_view name = path.substr(0, path.find('/'));
    path.remove_prefix(name.size());
    std::string decoded;
    for (std::size_t i = 0; i < name.size(); ++i) {
        const bool isEscape = name[i] == '~' && i + 1 < name.size();
        decoded += !isEscape ? name[i] : name[++i] == '1' ? '/' : '~';
    }
    return decoded;
}

/// The type of a value, and its bytes in the document.
struct Place {
    ondemand::json_type type = ondemand::json_type::null;
    std::string_view raw;
};

template <class Value>
Place placeOf(Value& value) {
    Place place{value.type().value_unsafe(), {}};
    ondemand::object object;
    ondemand::array array;
    if (place.type == ondemand::json_type::object && !value.get_object().get(object)) {
        place.raw = trimmed(object.raw_json().value_unsafe());
    } else if (place.type == ondemand::json_type::array && !value.get_array().get(array)) {
        place.raw = trimmed(array.raw_json().value_unsafe());
    } else {
        place.raw = trimmed(value.raw_json_token());
    }
    return place;
}

// Calls `use(name, value)` for the members of an object, or with numbers for the elements of an
// array, until it gives true; whether it did.
template <class Value, class Use>
bool forEachPart(Value& value, const Use& use) {
    ondemand::object object;
    ondemand::array array;
    if (value.type().value_unsafe() == ondemand::json_type::object) {
        if (value.get_object().get(object)) return false;
        for (auto found : object) {
            ondemand::field field;
            std::string_view name;
            if (std::move(found).get(field) || field.unescaped_key().get(name)) return false;
            work(32 + name.size());
            ondemand::value member = field.value();
            if (use(name, member)) return true;
        }
    } else if (value.type().value_unsafe() == ondemand::json_type::array) {
        if (value.get_array().get(array)) return false;
        std::size_t index = 0;
        for (auto found : array) {
            ondemand::value element;
            if (found.get(element)) return false;
            work(32);
            if (use(std::to_string(index++), element)) return true;
        }
    }
    return false;
}

// Finds what lies at a path; false when nothing does.
template <class Value>
bool locate(Value& at, std::string_view path, Place& place) {
    if (path.empty()) {
        place = placeOf(at);
        return true;
    }
    const std::string name = cutName(path);
    bool isFound = false;
    forEachPart(at, [&](std::string_view part, ondemand::value& value) {
        if (part != name) return false;
        isFound = locate(value, path, place);
        return true;
    });
    return isFound;
}

bool locate(Document& document, std::string_view path, Place& place) {
    constexpr std::size_t longest = 64 * 1024;
    if (path.size() > longest) refuse("path is longer than 64 KiB", long(path.size()));
    if (!path.empty()) return locate(document.root(), path, place);
    place.type = document.root().type().value_unsafe();
    const std::string_view text = document.text();
    place.raw = trimmed(text.substr(text.find_first_not_of(" \t\r\n")));
    return true;
}

void appendString(Text& made, std::string_view text) {
    constexpr char digits[] = "0123456789abcdef";
    made.append('"');
    for (const char byte : text) {
        work(1);
        const auto code = static_cast<unsigned char>(byte);
        if (byte == '"' || byte == '\\') {
            made.append('\\');
            made.append(byte);
        } else if (byte == '\n') {
            made.append("\\n");
        } else if (byte == '\t') {
            made.append("\\t");
        } else if (code < 32) {
            const char escape[] = {'\\', 'u', '0', '0', digits[code >> 4], digits[code & 15]};
            made.append({escape, 6});
        } else {
            made.append(byte);
        }
    }
    made.append('"');
}

FND::String jsonGet(std::string_view json, std::string_view path) {
    Document document(json);
    Place place;
    Text made;
    if (!locate(document, path, place)) return {};
    if (place.type != ondemand::json_type::string) {
        made.append(place.raw);
        return made.take();
    }
    const Document string(place.raw);
    simdjson::dom::parser parser;
    std::string_view text;
    if (!parser.parse(place.raw.data(), place.raw.size()).get(text)) made.append(text);
    return made.take();
}

FND::String jsonType(std::string_view json, std::string_view path) {
    Document document(json);
    Place place;
    if (!locate(document, path, place)) return {};
    switch (place.type) {
        case ondemand::json_type::array:
            return "array";
        case ondemand::json_type::object:
            return "object";
        case ondemand::json_type::string:
            return "string";
        case ondemand::json_type::number:
            return "number";
        case ondemand::json_type::boolean:
            return "bool";
        default:
            return "null";
    }
}

long jsonNames(std::string_view json, std::string_view path, ArrayRef<FND::String> out) {
    Document document(json);
    Place place;
    unsigned long count = 0;
    if (locate(document, path, place)) {
        Document part(place.raw);
        forEachPart(part.root(), [&](std::string_view name, ondemand::value&) {
            if (out.set(count, FND::String(name))) ++count;
            return false;
        });
    }
    out.resize(count);
    return static_cast<long>(count);
}

FND::String jsonPut(std::string_view json, std::string_view path, std::string_view value) {
    { const Document checked(value); }
    Document document(json);
    Place place;
    Text made;
    const auto splice = [&](std::size_t begin, std::size_t end, const auto& write) {
        made.append(document.text().substr(0, begin));
        write();
        made.append(document.text().substr(end));
        return made.take();
    };
    const auto beginOf = [&](std::string_view raw) {
        return static_cast<std::size_t>(raw.data() - document.text().data());
    };
    if (locate(document, path, place)) {
        const std::size_t begin = beginOf(place.raw);
        return splice(begin, begin + place.raw.size(), [&] { made.append(value); });
    }
    // The last name may be new in an object, and the next number in an array.
    const std::size_t slash = path.rfind('/');
    std::string_view last = path.substr(slash);
    document.root().rewind();
    if (!locate(document, path.substr(0, slash), place)) refuse("nothing lies at", path);
    const std::string name = cutName(last);
    std::size_t count = 0;
    {
        Document part(place.raw);
        forEachPart(part.root(), [&](std::string_view, ondemand::value&) { return ++count == 0; });
    }
    const bool isObject = place.type == ondemand::json_type::object;
    const bool isArray = place.type == ondemand::json_type::array;
    const bool isEnd = isArray && (name == "-" || name == std::to_string(count));
    if (!isObject && !isEnd) refuse("nothing lies at", path);
    const std::size_t end = beginOf(place.raw) + place.raw.size() - 1;
    return splice(end, end, [&] {
        if (count > 0) made.append(',');
        if (isObject) {
            appendString(made, name);
            made.append(':');
        }
        made.append(value);
    });
}

FND::String jsonRemove(std::string_view json, std::string_view path) {
    Document document(json);
    Place place;
    Text made;
    if (path.empty()) refuse("nothing is left of", json);
    std::size_t begin = 0;
    std::size_t end = 0;
    if (locate(document, path, place)) {
        const std::size_t slash = path.rfind('/');
        std::string_view last = path.substr(slash);
        const std::string name = cutName(last);
        document.root().rewind();
        locate(document, path.substr(0, slash), place);
        const auto offset = static_cast<std::size_t>(place.raw.data() - document.text().data());
        Document part(place.raw);
        const std::string_view text = part.text();
        const bool isRemoved = forEachPart(part.root(), [&](std::string_view each, auto& value) {
            const std::string_view raw = placeOf(value).raw;
            const auto endOfValue = static_cast<std::size_t>(raw.data() + raw.size() - text.data());
            if (each != name) {
                begin = endOfValue;
                return false;
            }
            end = endOfValue;
            return true;
        });
        if (isRemoved) {
            // With the comma before it, or that after the first one.
            if (begin == 0) {
                begin = 1;
                end = std::min(text.find_first_not_of(" \t\r\n", end), text.size());
                if (text[end] == ',') ++end;
            }
            begin += offset;
            end += offset;
        } else {
            begin = 0;
        }
    }
    made.append(document.text().substr(0, begin));
    made.append(document.text().substr(end));
    return made.take();
}

FND::String jsonString(std::string_view text) {
    Text made;
    appendString(made, text);
    return made.take();
}

constexpr ModuleFunction jsonFunctionsS[] = {
    {"String jsonGet(String json, String path)", SCR::addFunction<jsonGet>, Effect::None,
     "What lies at a path of names and numbers, such as \"/a/0\", in a JSON document of up to 1 "
     "MiB: the text of a string, any other value as it stands there. `~1` in a name is a slash, "
     "`~0` a tilde; the empty path is the whole. Of equal names the first one counts. Empty when "
     "nothing lies there, or after an error for what is no "
     "JSON or no path.",
     R"(codec::jsonGet("{\"a\": [1, \"x\"]}", "/a/1") == "x")"},
    {"String jsonType(String json, String path)", SCR::addFunction<jsonType>, Effect::None,
     "`object`, `array`, `string`, `number`, `bool` or `null`; empty when nothing lies there.",
     R"(codec::jsonType("{\"a\": 1.5}", "/a") == "number")"},
    {"Long jsonNames(String json, String path, out String[] names)", SCR::addFunction<jsonNames>,
     Effect::None,
     "Fills `names` with the names in an object, in their order, or the numbers of an array's "
     "elements, and gives how many those are.",
     R"(String n[]; codec::jsonNames("{\"b\": 1, \"a\": 2}", "", n) == 2 and n[1] == "a")"},
    {"String jsonPut(String json, String path, String value)", SCR::addFunction<jsonPut>,
     Effect::None,
     "The document with the JSON `value` at a path; all else keeps its bytes. The last name of the "
     "path may be new; `-` stands for the end of an array. Anything else that is missing is an "
     "error, and "
     "the result empty.",
     R"(codec::jsonPut("{\"a\": 1}", "/b", "[true]") == "{\"a\": 1,\"b\":[true]}")"},
    {"String jsonRemove(String json, String path)", SCR::addFunction<jsonRemove>, Effect::None,
     "The document without what lies at a path; as it is when nothing lies there. The whole cannot "
     "be removed: that is an error, and the result empty.",
     R"(codec::jsonRemove("{\"a\": 1, \"b\": 2}", "/a") == "{ \"b\": 2}")"},
    {"String jsonString(String text)", SCR::addFunction<jsonString>, Effect::None,
     "`text` as a string of JSON, in quotes. Bytes that are not UTF-8 stay.",
     R"(codec::jsonString("a\"b") == "\"a\\\"b\"")"},
};

}  // namespace

std::span<const ModuleFunction> jsonFunctions() { return jsonFunctionsS; }

}  // namespace Modules::CodecModule
