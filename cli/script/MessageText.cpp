#include "cli/script/MessageText.h"

#include <algorithm>

#include "scr/message/Codes.h"
#include "scr/message/Quote.h"

namespace Cli {

namespace {

using SCR::Diagnostic;

const std::string& fileOf(const Diagnostic::Place& place, const std::string& script) {
    return place.file.empty() ? script : place.file;
}

const char* severityOf(const Diagnostic& diagnostic) {
    return diagnostic.severity >= FND::Status::Error     ? "error"
           : diagnostic.severity >= FND::Status::Warning ? "warning"
                                                         : "note";
}

std::string number(int value) { return std::to_string(value); }

// The place as editors know it; without parts that are not known.
std::string placeOf(const Diagnostic::Place& place, const std::string& script) {
    std::string text = readable(fileOf(place, script));
    if (place.line > 0) text += ":" + number(place.line);
    if (place.column > 0) text += ":" + number(place.column);
    return text;
}

std::string json(std::string_view text) {
    std::string result = "\"";
    for (std::size_t at = 0; at < text.size();) {
        const std::size_t size = SCR::characterSize(text.substr(at));
        const std::string_view character = text.substr(at, std::max<std::size_t>(size, 1));
        const auto byte = static_cast<unsigned char>(text[at]);
        if (size == 0) {
            result += "\\\\" + readable(character).substr(1);
        } else if (byte == '"' || byte == '\\') {
            result += '\\';
            result += character;
        } else if (byte < ' ' || byte == 0x7F) {
            constexpr std::string_view digits = "0123456789abcdef";
            result += "\\u00";
            result += digits[byte >> 4];
            result += digits[byte & 15];
        } else {
            result += character;
        }
        at += character.size();
    }
    return result + "\"";
}

std::string jsonPlace(const Diagnostic::Place& place, const std::string& script) {
    return "\"file\":" + json(fileOf(place, script)) + ",\"line\":" + number(place.line) +
           ",\"column\":" + number(place.column) + ",\"length\":" + number(place.length);
}

// The line of the script and what points at the place in it.
std::string excerpt(const Diagnostic& diagnostic, const char* colour, const char* end) {
    const std::string line = number(diagnostic.place.line);
    const std::string margin(line.size(), ' ');
    std::string before;
    std::string marked;
    std::string source;
    int column = diagnostic.sourceColumn;
    const int first = diagnostic.place.column;
    const int last = first + std::max(diagnostic.place.length, 1);
    std::string_view rest = diagnostic.source;
    const bool isCut = diagnostic.sourceColumn > 1;
    while (!rest.empty()) {
        const std::size_t size = std::max<std::size_t>(SCR::characterSize(rest), 1);
        const std::string character = rest[0] == '\t' ? "\t" : readable(rest.substr(0, size));
        // An escape takes several columns; a character of several bytes takes one.
        const std::size_t width = size > 1 ? 1 : character.size();
        source += character;
        if (column < first) {
            before += character == "\t" ? std::string("\t") : std::string(width, ' ');
        } else if (column < last) {
            marked += std::string(character == "\t" ? 1 : width, marked.empty() ? '^' : '~');
        }
        rest.remove_prefix(size);
        ++column;
    }
    if (marked.empty()) marked = "^";
    std::replace(marked.begin() + 1, marked.end(), '^', '~');
    const std::string dots = isCut ? "..." : "";
    return " " + line + " | " + dots + source + "\n " + margin + " | " +
           std::string(dots.size(), ' ') + before + colour + marked + end + "\n";
}

}  // namespace

std::string jsonText(std::string_view text) { return json(text); }

std::string readable(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t size = SCR::characterSize(text);
        if (size > 1) {
            result += text.substr(0, size);
        } else if (size == 0) {
            constexpr std::string_view digits = "0123456789ABCDEF";
            const auto byte = static_cast<unsigned char>(text[0]);
            result += "\\x";
            result += digits[byte >> 4];
            result += digits[byte & 15];
        } else {
            SCR::appendPrintable(result, text.substr(0, 1));
        }
        text.remove_prefix(std::max<std::size_t>(size, 1));
    }
    return result;
}

std::string textOf(const Diagnostic& diagnostic, const std::string& script, bool hasColour) {
    const bool isError = diagnostic.severity >= FND::Status::Error;
    const char* const colour = !hasColour ? "" : isError ? "\033[1;31m" : "\033[1;35m";
    const char* const bold = hasColour ? "\033[1m" : "";
    const char* const end = hasColour ? "\033[0m" : "";
    std::string text;
    if (diagnostic.place.line > 0) {
        text += bold + placeOf(diagnostic.place, script) + ": " + end;
    } else if (!script.empty()) {
        text += bold + readable(script) + ": " + end;
    }
    text += colour;
    text += severityOf(diagnostic);
    if (!diagnostic.code.empty()) text += "[" + diagnostic.code + "]";
    text += std::string(":") + end + " " + bold + readable(diagnostic.headline()) + end + "\n";
    if (!diagnostic.source.empty() && diagnostic.place.column > 0) {
        text += excerpt(diagnostic, colour, end);
    }
    for (const Diagnostic::Note& note : diagnostic.notes) {
        text += "  note: " + readable(note.text);
        if (note.place.line > 0) text += " (" + placeOf(note.place, script) + ")";
        text += "\n";
    }
    if (!diagnostic.cure.empty()) text += "  help: " + readable(diagnostic.cure) + "\n";
    return text;
}

std::string jsonOf(const Diagnostic& diagnostic, const std::string& script) {
    std::string text = "{\"severity\":\"";
    text += severityOf(diagnostic);
    text += "\",\"code\":" + json(diagnostic.code) + "," + jsonPlace(diagnostic.place, script) +
            ",\"message\":" + json(diagnostic.headline()) + ",\"text\":" + json(diagnostic.text) +
            ",\"notes\":[";
    for (const Diagnostic::Note& note : diagnostic.notes) {
        if (text.back() != '[') text += ",";
        text += "{\"text\":" + json(note.text);
        if (note.place.line > 0) text += "," + jsonPlace(note.place, script);
        text += "}";
    }
    text += "]";
    if (!diagnostic.cure.empty()) text += ",\"cure\":" + json(diagnostic.cure);
    if (diagnostic.hasChange) {
        text += ",\"change\":{" + jsonPlace(diagnostic.changed, script) +
                ",\"text\":" + json(diagnostic.change) + "}";
    }
    return text + "}";
}

namespace {

// The name of a file as a reference by the rules of URIs.
std::string uriOf(std::string_view file) {
    constexpr std::string_view plain = "-._~/!$&'()*+,;=@";
    constexpr std::string_view digits = "0123456789ABCDEF";
    std::string uri;
    for (const char byte : file) {
        const bool isPlain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                             (byte >= '0' && byte <= '9') || plain.find(byte) != plain.npos;
        if (isPlain) {
            uri += byte;
            continue;
        }
        uri += '%';
        uri += digits[static_cast<unsigned char>(byte) >> 4];
        uri += digits[static_cast<unsigned char>(byte) & 15];
    }
    return uri;
}

std::string sarifPlace(const Diagnostic::Place& place, const std::string& script) {
    std::string text = "{\"physicalLocation\":{\"artifactLocation\":{\"uri\":" +
                       json(uriOf(fileOf(place, script))) + "}";
    if (place.line > 0) {
        text += ",\"region\":{\"startLine\":" + number(place.line);
        if (place.column > 0) {
            text += ",\"startColumn\":" + number(place.column) +
                    ",\"endColumn\":" + number(place.column + place.length);
        }
        text += "}";
    }
    return text + "}}";
}

}  // namespace

std::string sarifOf(const Diagnostic& diagnostic, const std::string& script) {
    std::string message = diagnostic.headline();
    if (!diagnostic.cure.empty()) message += "; " + diagnostic.cure;
    std::string text = "{\"ruleId\":" + json(diagnostic.code) + ",\"level\":\"" +
                       severityOf(diagnostic) + "\",\"message\":{\"text\":" + json(message) +
                       "},\"locations\":[" + sarifPlace(diagnostic.place, script) + "]";
    std::string related;
    for (const Diagnostic::Note& note : diagnostic.notes) {
        if (note.place.line == 0) continue;
        std::string place = sarifPlace(note.place, script);
        place.pop_back();
        related += (related.empty() ? "" : ",") + place +
                   ",\"message\":{\"text\":" + json(note.text) + "}}";
    }
    if (!related.empty()) text += ",\"relatedLocations\":[" + related + "]";
    return text + "}";
}

std::string sarifReport(const std::vector<std::string>& results) {
    std::string text =
        "{\"$schema\":\"https://json.schemastore.org/sarif-2.1.0.json\",\"version\":\"2.1.0\","
        "\"runs\":[{\"tool\":{\"driver\":{\"name\":\"kestrel\",\"version\":\"" KESTREL_VERSION
        "\",\"rules\":[";
    for (const SCR::MessagePage& page : SCR::messagePages()) {
        if (text.back() != '[') text += ",";
        text += "{\"id\":" + json(SCR::codeName(page.code)) +
                ",\"shortDescription\":{\"text\":" + json(page.title) +
                "},\"fullDescription\":{\"text\":" + json(page.text) + "}}";
    }
    text += "]}},\"columnKind\":\"unicodeCodePoints\",\"results\":[";
    for (const std::string& result : results) {
        if (&result != &results.front()) text += ",";
        text += "\n" + result;
    }
    return text + "]}]}\n";
}

}  // namespace Cli
