#include "cli/author/DeclaredFunctions.h"

#include <array>
#include <sstream>

#include "scr/Constant.h"
#include "scr/Node.h"
#include "scr/Statement.h"
#include "scr/parser/ParserStack.h"
#include "scr/value/Words.h"

namespace Cli {

namespace {

using SCR::Node;

class NoObject final : public SCR::AdtNode {
public:
    explicit NoObject(FND::String type) : type_(std::move(type)) {}
    long result() override { return 0; }
    const FND::String& subType() const override { return type_; }

private:
    const FND::String type_;
};

// A node in the place of a call, which never runs.
Node* placeholder(SCR::Interpreter& /*interpreter*/, SCR::ParserStack& stack,
                  const SCR::FctDescr& function) {
    for (int count = stack.topNumParams(); count > 0; --count) {
        const std::unique_ptr<Node> argument(stack.popData());
    }
    switch (function.returnType()) {
        case SCR::TypeCode::Long:
            return new SCR::LongConstant(0);
        case SCR::TypeCode::Decimal:
            return new SCR::DecimalConstant(FND::Decimal());
        case SCR::TypeCode::String:
            return new SCR::StringConstant(FND::String());
        case SCR::TypeCode::Bool:
            return new SCR::BoolConstant(false);
        case SCR::TypeCode::Date:
            return new SCR::DateConstant(FND::DateTime());
        case SCR::TypeCode::Nexid:
            return new SCR::NexidConstant(FND::Identifier());
        case SCR::TypeCode::Adt:
            return new NoObject(function.objectType(-1));
        default:
            return new SCR::StatementList();
    }
}

bool hasConstant(int type) {
    return type == SCR::TypeCode::Long || type == SCR::TypeCode::Decimal ||
           type == SCR::TypeCode::String || type == SCR::TypeCode::Bool ||
           type == SCR::TypeCode::Date || type == SCR::TypeCode::Nexid;
}

// Whether `word` is none of the language, so it is the name of a type of objects.
bool isObjectType(const std::string& word) {
    return SCR::isName(word) && Node::typeIdForName(word) == 0 && word != "Array" && word != "Hash";
}

int typeOfResult(const std::string& word) {
    return isObjectType(word) ? SCR::TypeCode::Adt : Node::typeIdForName(word);
}

// The type word that a parameter asks for, with the name of its objects in `object`; 0 for one that
// is not known.
int typeOf(const std::string& parameter, std::string& object) {
    std::istringstream words(parameter);
    std::string word;
    int flags = 0;
    while (words >> word) {
        if (word.starts_with('[')) word.erase(0, 1);
        if (word == "out") {
            flags = SCR::TypeCode::LeftFlag;
        } else if (word == "constant") {
            flags = SCR::TypeCode::ConstFlag;
        } else if (word != "change") {
            break;
        }
    }
    if (word.ends_with("[]") || word == "Array") return SCR::TypeCode::Array;
    if (word.ends_with("{}") || word == "Hash") return SCR::TypeCode::Hash;
    if (isObjectType(word)) {
        object = word;
        return SCR::TypeCode::Adt;
    }
    const int type = Node::typeIdForName(word);
    return hasConstant(type) ? type | flags : 0;
}

std::unique_ptr<SCR::FctDescr> describe(const Author::FunctionEntry& function) {
    const std::vector<std::string> parameters = function.parameters();
    std::array<int, 9> types{};
    std::array<std::string, 9> objects;
    int required = -1;
    bool isKnown = parameters.size() <= types.size();
    for (std::size_t i = 0; i < parameters.size() && isKnown; ++i) {
        types[i] = typeOf(parameters[i], objects[i]);
        isKnown = types[i] != 0;
        if (required < 0 && parameters[i].starts_with('[')) required = static_cast<int>(i);
    }
    const int result = typeOfResult(function.result());
    const int count = static_cast<int>(parameters.size());
    auto made = isKnown ? std::make_unique<SCR::FctDescr>(
                              function.name, result, required < 0 ? count : required, count,
                              placeholder, types[0], types[1], types[2], types[3], types[4],
                              types[5], types[6], types[7], types[8])
                        : std::make_unique<SCR::FctDescr>(function.name, result, 0,
                                                          SCR::FctDescr::anyNumber, placeholder);
    if (result == SCR::TypeCode::Adt) made->objectType(-1, function.result());
    for (int i = 0; isKnown && i < count; ++i) {
        const std::string& object = objects[static_cast<std::size_t>(i)];
        if (!object.empty()) made->objectType(i, object);
    }
    return made;
}

}  // namespace

DeclaredFunctions::DeclaredFunctions(std::string module,
                                     const std::vector<Author::FunctionEntry>& functions)
    : module_(std::move(module)) {
    for (const Author::FunctionEntry& function : functions) {
        const int result = typeOfResult(function.result());
        const bool isObject = result == SCR::TypeCode::Adt;
        const bool isKnown = hasConstant(result) || isObject || function.result() == "Void";
        if (function.module != module_ || !isKnown) continue;
        const auto& made = functions_[function.name] = describe(function);
        for (int i = -1; i < made->maximum(); ++i) {
            if (!made->objectType(i).empty()) types_.insert(made->objectType(i));
        }
    }
}

FND::String DeclaredFunctions::extensionName() const { return module_.empty() ? "host" : module_; }

SCR::Variable* DeclaredFunctions::variable(const FND::String& name) {
    const auto found = functions_.find(name);
    return found != functions_.end() ? found->second.get() : nullptr;
}

void DeclaredFunctions::visitNames(
    const std::function<void(const FND::String& name)>& visit) const {
    for (const auto& [name, function] : functions_) visit(name);
}

}  // namespace Cli
