// Reads the declarations of headers, as clang writes them in JSON, from standard input. Writes a
// program that takes the address of each function and variable that users may name and that the
// headers do not define. If the library lacks one, the program does not link.

#include <cstdio>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include <simdjson.h>

namespace {

using Element = simdjson::dom::element;

std::string_view text(Element node, const char* key) {
    std::string_view value;
    return node[key].get(value) == simdjson::SUCCESS ? value : std::string_view();
}

bool flag(Element node, const char* key) {
    bool value = false;
    return node[key].get(value) == simdjson::SUCCESS && value;
}

std::vector<Element> inner(Element node) {
    simdjson::dom::array nodes;
    if (node["inner"].get(nodes) != simdjson::SUCCESS) return {};
    return {nodes.begin(), nodes.end()};
}

struct Names {
    std::set<std::string> functions;
    std::set<std::string> variables;
    std::set<std::string> defined;
};

// An abstract class need not have the complete object's constructor or destructor: that of the base
// object is enough.
std::string ofBaseObject(std::string name, char letter) {
    const std::size_t place = name.rfind(std::string{letter, '1', 'E'});
    if (place != std::string::npos) name[place + 1] = '2';
    return name;
}

void addFunction(Element node, std::string_view kind, Names& names) {
    std::string name(text(node, "mangledName"));
    if (kind == "CXXConstructorDecl") name = ofBaseObject(name, 'C');
    if (kind == "CXXDestructorDecl") name = ofBaseObject(name, 'D');
    bool isDefined = flag(node, "inline") || flag(node, "constexpr") || flag(node, "pure") ||
                     flag(node, "explicitlyDeleted") || !text(node, "explicitlyDefaulted").empty();
    for (const Element part : inner(node)) {
        isDefined |= text(part, "kind") == "CompoundStmt";
        // A member with a visibility of its own is hidden in its class.
        if (kind == "CXXMethodDecl" && text(part, "kind") == "VisibilityAttr") return;
    }
    (isDefined ? names.defined : names.functions).insert(name);
}

// Adds the declarations in `node`, unless it is private.
void add(Element node, bool isPrivate, Names& names) {
    const std::string_view kind = text(node, "kind");
    if (flag(node, "isImplicit")) return;
    if (kind == "NamespaceDecl" || (kind == "CXXRecordDecl" && !isPrivate)) {
        isPrivate = text(node, "tagUsed") == "class";
        for (const Element member : inner(node)) {
            const std::string_view access = text(member, "access");
            if (!access.empty()) isPrivate = access == "private";
            add(member, isPrivate, names);
        }
    } else if (isPrivate || text(node, "mangledName").empty()) {
        return;
    } else if (kind == "VarDecl") {
        const bool isElsewhere = text(node, "storageClass") == "extern" ||
                                 (text(node, "storageClass") == "static" && !flag(node, "inline"));
        if (isElsewhere && !flag(node, "constexpr")) {
            names.variables.insert(std::string(text(node, "mangledName")));
        }
    } else if (kind.ends_with("Decl")) {
        addFunction(node, kind, names);
    }
}

}  // namespace

int main() {
    std::string json;
    for (char part[1 << 16];;) {
        const std::size_t size = std::fread(part, 1, sizeof part, stdin);
        if (size == 0) break;
        json.append(part, size);
    }
    Names names;
    simdjson::dom::parser parser;
    simdjson::dom::document_stream documents;
    if (parser.parse_many(json, json.size()).get(documents) != simdjson::SUCCESS) return 1;
    for (auto document : documents) {
        Element node;
        if (document.get(node) != simdjson::SUCCESS) return 1;
        add(node, false, names);
    }
    for (const std::string& name : names.defined) names.functions.erase(name);
    std::size_t count = 0;
    const auto print = [&count](const std::set<std::string>& list, const char* declaration) {
        for (const std::string& name : list) {
            std::printf("extern \"C\" %s name%zu%s __asm__(\"%s\");\n", declaration, count,
                        *declaration == 'v' ? "()" : "[]", name.c_str());
            ++count;
        }
    };
    print(names.functions, "void");
    const std::size_t functions = count;
    print(names.variables, "const char");
    std::puts("const void* const addresses[] = {");
    for (std::size_t i = 0; i < count; ++i) {
        std::printf("    reinterpret_cast<const void*>(%sname%zu),\n", i < functions ? "&" : "", i);
    }
    std::puts(
        "};\nextern const void* const* const addressesG;\n"
        "const void* const* const addressesG = addresses;\nint main() { return addressesG == "
        "nullptr; }");
    std::fprintf(stderr, "%zu functions, %zu variables\n", functions, count - functions);
    return functions > 100 ? 0 : 1;
}
