#include "scr/ContainerAccess.h"

#include <string>

#include "scr/Interpreter.h"
#include "scr/run/RunControl.h"
#include "scr/tree/ElementAccess.h"
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
    interpreter_.logError(message, &user_, {});
}

std::unique_ptr<Node> arrayAccess(Interpreter& interpreter, std::unique_ptr<ArrayNode> container,
                                  std::unique_ptr<LongNode> index) {
    const Variable* const prototype = container->defaultValue();
    if (!hasClassOfType(*prototype)) return nullptr;
    return withType(StorageTypes(), prototype->dataType(),
                    [&]<class Type>(Type) -> std::unique_ptr<Node> {
                        return std::make_unique<ArrayAccess<Type>>(
                            prototype, interpreter, std::move(container), std::move(index));
                    });
}

std::unique_ptr<Node> hashAccess(Interpreter& interpreter, std::unique_ptr<HashNode> container,
                                 std::unique_ptr<StringNode> key, bool containerMayRunScript) {
    const Variable* const prototype = container->defaultValue();
    if (!hasClassOfType(*prototype)) return nullptr;
    return withType(
        StorageTypes(), prototype->dataType(), [&]<class Type>(Type) -> std::unique_ptr<Node> {
            return std::make_unique<HashAccess<Type>>(prototype, interpreter, std::move(container),
                                                      std::move(key), containerMayRunScript);
        });
}

}  // namespace SCR
