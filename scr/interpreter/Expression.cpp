#include "scr/Observation.h"

#include <utility>

#include "scr/Array.h"
#include "scr/Constant.h"
#include "scr/ContainerAccess.h"
#include "scr/Hash.h"
#include "scr/Interpreter.h"
#include "scr/Variable.h"
#include "scr/message/Quote.h"
#include "scr/parser/Parser.h"
#include "scr/run/Entry.h"
#include "scr/run/Link.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/PlaceTable.h"
#include "scr/tree/Observed.h"
#include "scr/value/Elements.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

namespace {

// While it lives, messages go to `messages`, and nothing is observed.
class Aside {
public:
    Aside(Interpreter& interpreter, std::vector<Diagnostic>& messages)
        : interpreter_(interpreter),
          observation_(interpreter.observation()),
          listens_(observation_ != nullptr && observation_->listens()),
          wasStopped_(interpreter.runControl().wasStopped()),
          outer_(interpreter.keepMessages(&messages)) {
        if (observation_ != nullptr) observation_->listen(false);
        interpreter.observe(nullptr);
    }
    Aside(const Aside&) = delete;
    Aside& operator=(const Aside&) = delete;
    ~Aside() {
        interpreter_.keepMessages(outer_);
        interpreter_.observe(observation_);
        if (observation_ != nullptr) observation_->listen(listens_);
        // In the message of a run that was stopped.
        RunControl& control = interpreter_.runControl();
        if (observation_ != nullptr && !control.isRunning()) control.wasStopped(wasStopped_);
    }

private:
    Interpreter& interpreter_;
    Observation* const observation_;
    const bool listens_;
    const bool wasStopped_;
    std::vector<Diagnostic>* const outer_;
};

// The element as a variable; null while the array keeps plain values, or did not use it yet.
const Variable* elementOf(const Array& array, unsigned long index) {
    const Variable* element = nullptr;
    withType(StorageTypes(), array.containerType(), [&]<class Type>(Type) {
        element = ArrayElements::find<typename Type::Variable>(array, index);
        return true;
    });
    return element;
}

FND::String elementsText(unsigned long count) {
    return std::to_string(count) + (count == 1 ? " element" : " elements");
}

FND::String typeTextOf(int typeWord, const Variable* element) {
    FND::String modifiers;
    for (; element != nullptr; element = element->dataType() == TypeCode::Array
                                             ? static_cast<const Array*>(element)->defaultValue()
                                         : element->dataType() == TypeCode::Hash
                                             ? static_cast<const Hash*>(element)->defaultValue()
                                             : nullptr) {
        modifiers += Node::baseType(typeWord) == TypeCode::Array ? "[]" : "{}";
        typeWord = element->dataType();
    }
    return Node::datatypeAsString(Node::baseType(typeWord)) + modifiers;
}

const Variable* elementOf(const Variable& variable) {
    const int type = Node::baseType(variable.dataType());
    return type == TypeCode::Array  ? static_cast<const Array&>(variable).defaultValue()
           : type == TypeCode::Hash ? static_cast<const Hash&>(variable).defaultValue()
                                    : nullptr;
}

using Values = TypeList<LongType, StringType, DecimalType, BoolType, DateType, NexidType>;

}  // namespace

Expression::Expression(Interpreter& interpreter, const FND::String& text, std::size_t site)
    : interpreter_(&interpreter) {
    const LightUse use(interpreter.link());
    if (!use) return;
    const Observation* const observation = interpreter.observation();
    std::vector<Node*> blocks;
    if (observation != nullptr) blocks = observation->blocksAt(site);
    const bool isInside = !blocks.empty();
    PlaceTable& places = interpreter.places();
    const std::size_t known = places.size();
    const std::int64_t lines = interpreter.compiledLines();
    {
        const Aside aside(interpreter, messages_);
        if (isInside) interpreter.exchangeBlocks(blocks);
        const bool isDone = enterRun(
            interpreter,
            [&] {
                const NodeMemory::Scope memory;
                chargeBuffer(text.size());
                return SCR_parseExpression(interpreter, text, node_, typeWord_);
            },
            &bytes_);
        if (!isDone) {
            // It may have been stopped at its very end.
            node_.reset();
            interpreter.runControl().forgetInterruption();
        }
        if (isInside) interpreter.exchangeBlocks(blocks);
    }
    // Nodes of later expressions may lie where those of this one lay.
    places.truncate(known);
    interpreter.compiledLines(lines);
    if (node_ == nullptr) {
        free();
        return;
    }
    const int base = Node::baseType(typeWord_);
    contain(interpreter, [&] {
        const Variable* element = nullptr;
        if (base == TypeCode::Array) element = static_cast<ArrayNode&>(*node_).defaultValue();
        if (base == TypeCode::Hash) element = static_cast<HashNode&>(*node_).defaultValue();
        type_ = base == TypeCode::Void ? "Void" : typeTextOf(base, element);
        return true;
    });
}

Expression::Expression(Expression&& other) noexcept : interpreter_(other.interpreter_) {
    *this = std::move(other);
}

Expression& Expression::operator=(Expression&& other) noexcept {
    if (this == &other) return *this;
    free();
    interpreter_ = other.interpreter_;
    node_ = std::move(other.node_);
    typeWord_ = other.typeWord_;
    bytes_ = std::exchange(other.bytes_, 0);
    type_ = std::move(other.type_);
    container_ = std::exchange(other.container_, nullptr);
    messages_ = std::move(other.messages_);
    return *this;
}

Expression::~Expression() { free(); }

void Expression::free() noexcept {
    node_.reset();
    interpreter_->runControl().giveBuffer(static_cast<std::size_t>(std::exchange(bytes_, 0)));
}

bool Expression::isBool() const {
    return node_ != nullptr && Node::baseType(typeWord_) == TypeCode::Bool;
}

template <class Action>
bool Expression::run(Action action) {
    messages_.clear();
    container_ = nullptr;
    const LightUse use(interpreter_->link());
    if (!use || node_ == nullptr) return false;
    const Aside aside(*interpreter_, messages_);
    const bool isDone = enterRun(*interpreter_, [&] {
        action();
        return true;
    });
    if (!isDone) interpreter_->runControl().forgetInterruption();
    return isDone;
}

bool Expression::holds(bool& value) {
    return isBool() && run([&] { value = static_cast<BoolNode&>(*node_).result(); });
}

bool Expression::evaluate(FND::String& value) {
    return run([&] {
        value.clear();
        const int base = Node::baseType(typeWord_);
        const bool isValue = withType(Values(), base, [&]<class Type>(Type) {
            value = observedText(static_cast<typename Type::Node&>(*node_).result());
            return true;
        });
        if (isValue) return;
        if (base == TypeCode::Array) {
            container_ = static_cast<ArrayNode&>(*node_).result();
        } else if (base == TypeCode::Hash) {
            container_ = static_cast<HashNode&>(*node_).result();
        } else if (base == TypeCode::Adt) {
            value = std::to_string(static_cast<AdtNode&>(*node_).result());
        } else if (base == TypeCode::Void) {
            static_cast<VoidNode&>(*node_).result();
        }
        if (container_ != nullptr) value = valueText(*container_);
    });
}

FND::String typeText(const Variable& variable) {
    return (Node::isConst(variable.dataType()) ? "const " : "") +
           typeTextOf(variable.dataType(), elementOf(variable));
}

FND::String valueText(const Variable& variable) {
    const int base = Node::baseType(variable.dataType());
    FND::String text;
    const bool isValue = withType(Values(), base, [&]<class Type>(Type) {
        text = observedText(static_cast<const typename Type::Variable&>(variable).value());
        return true;
    });
    if (isValue) return text;
    switch (base) {
        case TypeCode::Array:
            return elementsText(static_cast<const Array&>(variable).size());
        case TypeCode::Hash:
            return elementsText(static_cast<const Hash&>(variable).size());
        case TypeCode::File:
            return static_cast<const FileVariable&>(variable).stream() != nullptr ? "open"
                                                                                  : "closed";
        case TypeCode::Adt:
            return std::to_string(static_cast<const AdtVariable&>(variable).value());
        default:
            return text;
    }
}

FND::String elementText(const Array& array, unsigned long index) {
    if (const Variable* const element = elementOf(array, index)) return valueText(*element);
    FND::String text;
    const bool isValue = withType(Values(), array.containerType(), [&]<class Type>(Type) {
        const auto* const value = ArrayElements::findValue<typename Type::Variable>(array, index);
        if (value != nullptr) text = observedText(*value);
        return value != nullptr;
    });
    return isValue ? text : valueText(*array.defaultValue());
}

namespace {

// Fills `contents`; false when there are more than `most` elements, or texts of more than `bytes`
// in them.
bool fillContents(std::vector<Content>& contents, FND::String name, const Variable& variable,
                  std::size_t most, std::size_t& bytes) {
    const int base = Node::baseType(variable.dataType());
    const auto add = [&](FND::String inner, const Variable& element) {
        return fillContents(contents, std::move(inner), element, most, bytes);
    };
    if (base == TypeCode::String) {
        const FND::String& text = static_cast<const StringVariable&>(variable).value();
        if (!contents.empty()) {
            if (text.size() > bytes) return false;
            bytes -= text.size();
        }
        contents.push_back({std::move(name), text, true});
        return true;
    }
    contents.push_back({name, valueText(variable), false});
    if (base == TypeCode::Array) {
        const auto& array = static_cast<const Array&>(variable);
        if (contents.size() + array.size() > most + 1) return false;
        for (unsigned long i = 0; i < array.size(); ++i) {
            FND::String inner = name + '[' + std::to_string(i) + ']';
            if (const Variable* const element = elementOf(array, i)) {
                if (!add(std::move(inner), *element)) return false;
            } else {
                contents.push_back({std::move(inner), elementText(array, i), false});
            }
        }
    } else if (base == TypeCode::Hash) {
        // To look an element up changes nothing but what is found fastest.
        auto& hash = const_cast<Hash&>(static_cast<const Hash&>(variable));
        if (contents.size() + hash.size() > most + 1) return false;
        for (const FND::String* const key : hash.keys()) {
            FND::String inner = name + "{\"";
            appendPrintable(inner, *key);
            if (!add(inner + "\"}", *hash.find(*key))) return false;
        }
    }
    return true;
}

}  // namespace

std::vector<Content> contentOf(const FND::String& name, const Variable& variable,
                               std::size_t most) {
    std::vector<Content> contents;
    std::size_t bytes = std::size_t{1} << 20;
    if (!fillContents(contents, name, variable, most, bytes)) contents.resize(1);
    return contents;
}

}  // namespace SCR
