#include "cli/records/Manifest.h"

#include <simdjson.h>

#include <fstream>
#include <iterator>
#include <string_view>

#include "cli/records/Digest.h"
#include "records/json/JsonRecord.h"

namespace Cli {
namespace {

std::string jsonString(std::string_view text) {
    std::string json;
    Records::appendText(text, json);
    return json;
}

std::string file(const Manifest::File& file) {
    return "{\"name\": " + jsonString(file.name) + ", \"digest\": " + jsonString(file.digest) + "}";
}

std::string list(const std::vector<std::string>& texts) {
    std::string json = "[";
    const char* separator = "";
    for (const std::string& text : texts) {
        json += separator + jsonString(text);
        separator = ", ";
    }
    return json + "]";
}

std::vector<std::string> readList(const simdjson::dom::element& element) {
    std::vector<std::string> texts;
    for (const auto text : element.get_array()) texts.emplace_back(text.get_string().value());
    return texts;
}

std::string digests(const std::map<std::string, std::string>& files) {
    std::string json;
    for (const auto& [name, digest] : files) {
        json += (json.empty() ? "{" : ", ") + jsonString(name) + ": " + jsonString(digest);
    }
    return json.empty() ? "{}" : json + "}";
}

std::map<std::string, std::string> readDigests(const simdjson::dom::element& element) {
    std::map<std::string, std::string> files;
    for (const auto [name, digest] : element.get_object()) {
        files[std::string(name)] = digest.get_string().value();
    }
    return files;
}

// The text of everything that decides what a run does, except for the input's bytes.
std::string jobOf(const Manifest& manifest) {
    std::string json = "  \"kestrel\": " + jsonString(KESTREL_VERSION) +
                       ",\n  \"script\": " + jsonString(manifest.scriptDigest) +
                       ",\n  \"includes\": " + digests(manifest.includes) +
                       ",\n  \"tables\": " + digests(manifest.tables) +
                       ",\n  \"options\": " + list(manifest.options);
    return json + ",\n  \"zone\": " + file(manifest.zone) +
           ",\n  \"part\": " + std::to_string(manifest.part) +
           ",\n  \"parts\": " + std::to_string(manifest.parts) +
           ",\n  \"inputSize\": " + std::to_string(manifest.inputSize);
}

Manifest::File readFile(const simdjson::dom::element& element) {
    return {std::string(element["name"].get_string().value()),
            std::string(element["digest"].get_string().value())};
}

}  // namespace

void Manifest::script(const std::string& expanded) {
    std::map<std::string, Digest> digests;
    Digest* digest = &digests[""];
    const std::string_view mark = "#line ";
    std::string_view rest = expanded;
    while (!rest.empty()) {
        const std::string_view line = rest.substr(0, rest.find('\n') + 1);
        const std::string_view text = line.empty() ? rest : line;
        rest.remove_prefix(text.size());
        // The lines after such a line belong to the file that it names.
        const std::size_t open = text.find('"');
        const std::size_t close = text.rfind('"');
        if (text.starts_with(mark) && open < close && close != std::string_view::npos) {
            digest = &digests[std::string(text.substr(open + 1, close - open - 1))];
        }
        digest->add(text);
    }
    includes.clear();
    for (const auto& [name, each] : digests) {
        (name.empty() ? scriptDigest : includes[name]) = each.hex();
    }
}

bool Manifest::isSameJob(const Manifest& other) const { return jobOf(*this) == jobOf(other); }

std::string Manifest::toJson() const {
    return "{\n" + jobOf(*this) + ",\n  \"inputEnd\": " + std::to_string(inputEnd) +
           ",\n  \"inputDigest\": " + jsonString(inputDigest) +
           ",\n  \"records\": {\"read\": " + std::to_string(counts.read) +
           ", \"written\": " + std::to_string(counts.written) +
           ", \"dropped\": " + std::to_string(counts.dropped) +
           ", \"rejected\": " + std::to_string(counts.rejected) +
           ", \"extra\": " + std::to_string(counts.extra) + "},\n  \"output\": " + file(output) +
           ",\n  \"rejects\": " + file(rejects) + ",\n  \"state\": " + file(state) +
           ",\n  \"arguments\": " + list(arguments) + "\n}\n";
}

std::optional<Manifest> Manifest::ofFile(const std::string& path) {
    std::ifstream stream(path, std::ios::binary);
    return fromJson({std::istreambuf_iterator<char>(stream), {}});
}

std::optional<Manifest> Manifest::fromJson(const std::string& text) {
    try {
        simdjson::dom::parser parser;
        const simdjson::dom::element json = parser.parse(text);
        if (json["kestrel"].get_string().value() != KESTREL_VERSION) return std::nullopt;
        Manifest manifest;
        manifest.scriptDigest = json["script"].get_string().value();
        manifest.includes = readDigests(json["includes"]);
        manifest.tables = readDigests(json["tables"]);
        manifest.options = readList(json["options"]);
        manifest.arguments = readList(json["arguments"]);
        manifest.zone = readFile(json["zone"]);
        manifest.part = json["part"].get_int64();
        manifest.parts = json["parts"].get_int64();
        manifest.inputSize = json["inputSize"].get_int64();
        manifest.inputEnd = json["inputEnd"].get_int64();
        manifest.inputDigest = json["inputDigest"].get_string().value();
        const simdjson::dom::element counts = json["records"];
        manifest.counts.read = counts["read"].get_int64();
        manifest.counts.written = counts["written"].get_int64();
        manifest.counts.dropped = counts["dropped"].get_int64();
        manifest.counts.rejected = counts["rejected"].get_int64();
        manifest.counts.extra = counts["extra"].get_int64();
        manifest.output = readFile(json["output"]);
        manifest.rejects = readFile(json["rejects"]);
        manifest.state = readFile(json["state"]);
        return manifest;
    } catch (const simdjson::simdjson_error&) {
        return std::nullopt;
    }
}

}  // namespace Cli
