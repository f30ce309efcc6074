#include "scr/builtin/base/BuiltIn.h"

#include <algorithm>
#include <array>
#include <vector>

#include "scr/call/Signature.h"

namespace SCR {

namespace {

int typeCode(std::string_view name) {
    if (name == "Array") return TypeCode::Array;
    if (name == "Hash") return TypeCode::Hash;
    return Node::typeIdForName(FND::String(name));
}

}  // namespace

std::unique_ptr<FctDescr> describe(const BuiltIn& builtIn) {
    std::string_view text = builtIn.signature;
    const int returnType = typeCode(cutSignature(text, " "));
    const FND::String name(cutSignature(text, "("));
    std::array<int, 9> types{};
    int count = 0;
    int required = -1;
    bool isVariadic = false;
    bool mayRunScript = false;
    int flags = 0;
    // Only words are left: markers, types each followed by the argument's name, and punctuation.
    bool isName = false;
    while (!text.empty()) {
        std::string_view word = cutSignature(text, " ,)");
        if (word.starts_with('[')) {
            required = count;
            word.remove_prefix(1);
        }
        if (word.empty()) continue;
        if (word == "...") {
            isVariadic = true;
        } else if (isName) {
            isName = false;
        } else if (word == "out") {
            flags = TypeCode::LeftFlag;
            mayRunScript = true;
        } else if (word == "constant") {
            flags = TypeCode::ConstFlag;
        } else {
            const int code = typeCode(word);
            const bool isContainer = code == TypeCode::Array || code == TypeCode::Hash;
            const bool isChanged =
                count == builtIn.facts.replaces || count == builtIn.facts.changes;
            mayRunScript = mayRunScript || (isContainer && isChanged);
            types[static_cast<std::size_t>(count++)] = code | flags;
            flags = 0;
            isName = true;
        }
    }
    if (required < 0) required = count;
    auto descriptor = std::make_unique<FctDescr>(
        name, returnType, required, isVariadic ? FctDescr::anyNumber : count, builtIn.factory,
        types[0], types[1], types[2], types[3], types[4], types[5], types[6], types[7], types[8]);
    descriptor->facts_ = &builtIn.facts;
    descriptor->mayRunScript(mayRunScript);
    descriptor->effects(builtIn.effects);
    return descriptor;
}

std::span<const BuiltIn* const> builtIns() {
    static const std::vector<const BuiltIn*> rows = [] {
        std::vector<const BuiltIn*> joined;
        for (const std::span<const BuiltIn> family :
             {assignmentBuiltIns(), arithmeticBuiltIns(), comparisonBuiltIns(), containerBuiltIns(),
              stringBuiltIns(), searchBuiltIns(), decodeBuiltIns(), numberBuiltIns(),
              dateBuiltIns(), fileBuiltIns(), systemBuiltIns(), identifierBuiltIns()}) {
            for (const BuiltIn& row : family) joined.push_back(&row);
        }
        std::sort(joined.begin(), joined.end(),
                  [](const BuiltIn* a, const BuiltIn* b) { return a->number < b->number; });
        return joined;
    }();
    return rows;
}

}  // namespace SCR
