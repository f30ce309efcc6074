// What may be written at a place.
#include <algorithm>
#include <fstream>

#include "author/Completion.h"
#include "author/server/Server.h"

namespace Author {

using SCR::SourceKind;
using SCR::SourceToken;

namespace {

// The kind of the protocol.
int kindOf(Suggested::Kind kind) {
    switch (kind) {
        case Suggested::Kind::Function:
            return 3;
        case Suggested::Kind::Field:
            return 5;
        case Suggested::Kind::Variable:
            return 6;
        case Suggested::Kind::Module:
            return 9;
        case Suggested::Kind::Keyword:
            return 14;
        case Suggested::Kind::Constant:
            return 21;
        case Suggested::Kind::Type:
            return 25;
    }
    return 1;
}

// Bytes of a sample record.
constexpr std::size_t mostSampleS = 1 << 20;

void addNames(const Json& record, const std::string& prefix, std::vector<std::string>& names) {
    for (const auto& [name, value] : record.items()) {
        names.push_back(prefix + name);
        constexpr std::size_t mostNames = 2000;
        if (value.is_object() && names.size() < mostNames)
            addNames(value, prefix + name + ".", names);
    }
}

// The names of the fields in the first line of a file: of an object, or of columns.
std::vector<std::string> fieldsOf(const std::string& path) {
    std::vector<std::string> names;
    std::ifstream stream(path, std::ios::binary);
    std::string line(mostSampleS, '\0');
    stream.read(line.data(), static_cast<std::streamsize>(line.size()));
    line.resize(static_cast<std::size_t>(stream.gcount()));
    line.resize(std::min(line.find('\n'), line.size()));
    if (line.ends_with('\r')) line.pop_back();
    if (line.starts_with("\xEF\xBB\xBF")) line.erase(0, 3);
    if (line.starts_with('{')) {
        const Json record = Json::parse(line, nullptr, false);
        if (record.is_object()) addNames(record, "", names);
    } else {
        char separator = ',';
        for (const char other : {';', '\t', '|'}) {
            if (std::count(line.begin(), line.end(), other) >
                std::count(line.begin(), line.end(), separator)) {
                separator = other;
            }
        }
        std::string name;
        bool isQuoted = false;
        for (const char byte : line + separator) {
            if (byte == '"') {
                isQuoted = !isQuoted;
            } else if (byte == separator && !isQuoted) {
                names.push_back(name);
                name.clear();
            } else {
                name += byte;
            }
        }
    }
    // In scripts, other bytes count as "_".
    for (std::string& name : names) {
        for (char& byte : name) {
            if (!SCR::isOfName(byte)) byte = '_';
        }
    }
    std::erase_if(names, [](const std::string& name) { return !SCR::isName(name); });
    return names;
}

}  // namespace

std::vector<std::string> Server::fieldsFor(const Where& where) {
    const SourceText& text = where.text();
    std::string path = records_;
    constexpr std::string_view mark = "kestrel: records ";
    for (const SourceToken& token : text.tokens()) {
        if (token.isSeen()) continue;
        const std::string_view comment = text.textOf(token);
        const std::size_t at = comment.find(mark);
        if (at == std::string_view::npos) continue;
        std::string_view name = comment.substr(at + mark.size());
        name = name.substr(0, name.find_first_of("\r\n"));
        if (name.ends_with("*/")) name.remove_suffix(2);
        while (name.ends_with(' ')) name.remove_suffix(1);
        path = name;
        break;
    }
    if (path.empty()) return {};
    if (!path.starts_with('/')) {
        const std::filesystem::path own = std::filesystem::path(text.path()).parent_path() / path;
        std::error_code error;
        if (std::filesystem::exists(own, error)) path = own;
    }
    return fieldsOf(path);
}

Json Server::completion(const Json& params) {
    Json items = Json::array();
    const auto place = where(params);
    if (!place) return items;
    const auto fields = [&] { return fieldsFor(*place); };
    for (const Suggested& each : suggest(*place->index, place->offset, functions_, fields)) {
        Json item = {{"label", each.label}, {"kind", kindOf(each.kind)}};
        if (!each.detail.empty()) item["detail"] = each.detail;
        if (!each.manual.empty()) {
            item["documentation"] = {{"kind", "markdown"}, {"value", each.manual}};
        }
        items.push_back(std::move(item));
    }
    return items;
}

Json Server::signatureHelp(const Json& params) {
    const auto place = where(params);
    const auto call = place ? callAt(place->text(), place->offset) : std::nullopt;
    if (!call) return nullptr;
    std::string label;
    std::string manual;
    std::vector<std::string> parameters;
    const std::size_t symbol = place->index->find(call->name, place->offset);
    if (symbol != SymbolIndex::none) {
        const Symbol& function = place->index->symbols()[symbol];
        if (function.kind != Symbol::Kind::Function) return nullptr;
        label = signatureOf(*place->index, function);
        manual = place->index->file(function.declared.file).commentBefore(function.declared.begin);
        for (const std::size_t number : function.parameters) {
            const Symbol& parameter = place->index->symbols()[number];
            parameters.push_back(signatureOf(*place->index, parameter));
        }
    } else if (const FunctionEntry* const entry =
                   functions_.find(call->name, place->index->modules())) {
        label = entry->signature;
        manual = entry->manual;
        parameters = entry->parameters();
    } else {
        return nullptr;
    }
    Json list = Json::array();
    std::size_t from = label.find('(');
    for (const std::string& parameter : parameters) {
        const std::size_t begin = label.find(parameter, from);
        if (begin == std::string::npos) break;
        from = begin + parameter.size();
        list.push_back({{"label", {begin, from}}});
    }
    const std::size_t active = std::min(call->argument, list.empty() ? 0 : list.size() - 1);
    return {{"signatures",
             {{{"label", label},
               {"documentation", {{"kind", "markdown"}, {"value", manual}}},
               {"parameters", list}}}},
            {"activeSignature", 0},
            {"activeParameter", active}};
}

}  // namespace Author
