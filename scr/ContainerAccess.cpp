#include "scr/ContainerAccess.h"

#include <string>
#include <type_traits>
#include <typeinfo>

#include "scr/Interpreter.h"
#include "scr/run/RunControl.h"
#include "scr/tree/ElementAccess.h"
#include "scr/tree/LongArithmetic.h"
#include "scr/value/ElementClass.h"

namespace SCR {

bool ElementSource::makeOnly(Array& array, unsigned long index) {
    if (static_cast<long>(index) < 0) return false;
    if (array.make(index, static_cast<unsigned long>(interpreter_.limits().elements))) return true;
    report("array: no room for element '" + std::to_string(index) + "'");
    return false;
}

Variable* ElementSource::make(Array& array, unsigned long index) {
    return makeOnly(array, index) ? array.at(index) : nullptr;
}

Variable* ElementSource::make(Hash& hash, const FND::String& key) {
    Variable* const element =
        hash.find(key, static_cast<unsigned long>(interpreter_.limits().elements));
    if (element == nullptr) {
        report("hash: no room beside '" + std::to_string(hash.size()) + "' keys");
    }
    return element;
}

void ElementSource::report(const FND::String& message) {
    const std::uint64_t run = interpreter_.runControl().runs();
    if (run == reportedRun_) return;
    reportedRun_ = run;
    interpreter_.logError(message);
}

namespace {

// Calls `make` with the container operand of the kind that fits `node` and returns its result.
template <class Container, class Access, class ContainerNode, class Make>
auto withContainer(std::unique_ptr<ContainerNode> node, Make&& make) {
    if constexpr (SpecialisesNodes) {
        ContainerNode& operand = *node;
        if (typeid(operand) == typeid(Access)) {
            return make(NamedContainer<Container>(operand.result()));
        }
    }
    return make(AnyContainer<ContainerNode>(std::move(node)));
}

template <class... Operands, class... Arguments>
std::unique_ptr<Node> makeArrayAccess(const Variable* prototype, Arguments&&... arguments) {
    return withType(StorageTypes(), prototype->dataType(),
                    [&]<class Type>(Type) -> std::unique_ptr<Node> {
                        return std::make_unique<ArrayAccess<Type, Operands...>>(
                            prototype, std::forward<Arguments>(arguments)...);
                    });
}

template <class... Operands, class... Arguments>
std::unique_ptr<Node> makeHashAccess(const Variable* prototype, Arguments&&... arguments) {
    return withType(StorageTypes(), prototype->dataType(),
                    [&]<class Type>(Type) -> std::unique_ptr<Node> {
                        return std::make_unique<HashAccess<Type, Operands...>>(
                            prototype, std::forward<Arguments>(arguments)...);
                    });
}

// The usual computed indices: that of a neighbour, and one that wraps around.
using IndexPairs = PairsOf<VariableOperand<LongType>, ConstantOperand<LongType>, LongAddition,
                           LongSubtraction, LongRemainder>;

}  // namespace

std::unique_ptr<Node> arrayAccess(Interpreter& interpreter, std::unique_ptr<ArrayNode> container,
                                  std::unique_ptr<LongNode> index) {
    const Variable* const prototype = container->defaultValue();
    if (!hasClassOfType(*prototype)) return nullptr;
    return withContainer<Array, ArrayVariableAccess>(std::move(container), [&](auto array) {
        const auto make = [&](auto place) {
            return makeArrayAccess<decltype(array), decltype(place)>(
                prototype, interpreter, std::move(array), std::move(place));
        };
        const auto makeWithLeaf = [&](std::unique_ptr<Node> node) {
            return withOperand<LongType>(std::move(node), make);
        };
        if constexpr (std::is_same_v<decltype(array), NamedContainer<Array>>) {
            return withPair(IndexPairs(), std::move(index), make, makeWithLeaf);
        } else {
            return makeWithLeaf(std::move(index));
        }
    });
}

std::unique_ptr<Node> hashAccess(Interpreter& interpreter, std::unique_ptr<HashNode> container,
                                 std::unique_ptr<StringNode> key, bool containerMayRunScript) {
    const Variable* const prototype = container->defaultValue();
    if (!hasClassOfType(*prototype)) return nullptr;
    return withContainer<Hash, HashVariableAccess>(std::move(container), [&](auto hash) {
        return withOperand<StringType>(std::move(key), [&](auto name) {
            return makeHashAccess<decltype(hash), decltype(name)>(
                prototype, interpreter, std::move(hash), std::move(name), containerMayRunScript);
        });
    });
}

}  // namespace SCR
