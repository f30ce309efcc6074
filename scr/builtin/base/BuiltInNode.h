#pragma once

#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "scr/FctDescr.h"
#include "scr/Interpreter.h"
#include "scr/builtin/base/StringResult.h"
#include "scr/call/OperandSlot.h"
#include "scr/call/ShownValue.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParserStack.h"

namespace SCR {

template <class Derived, class Signature>
class BuiltInNode;

/// The node of a built-in: holds the operands, evaluates them left to right and calls
/// `Derived::value(interpreter, arguments...)`, a static function or a member. For a String result
/// it calls `value(interpreter, result, arguments...)` with the string to fill. That string holds
/// the node's last result and must be replaced; reusing its memory saves allocations. No argument
/// refers to it.
///
/// An argument passed by reference keeps the value that it was evaluated to, even if a later
/// operand runs script code that assigns to its variable.
template <class Derived, class Result, class... Operands>
class BuiltInNode<Derived, Result(Operands...)> : public Result::Node {
public:
    /// The factory for descriptors.
    static Node* factory(Interpreter& interpreter, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        return build(interpreter, stack).release();
    }

    decltype(std::declval<typename Result::Node>().result()) result() final {
        if (holdsOperands_) [[unlikely]]
            return resultOfHeld();
        return std::apply(
            [this](auto&... slots) -> decltype(auto) {
                using Call = std::conditional_t<std::is_void_v<Returned>, VoidCall, ValueCall>;
                return Call{*this, slots.evaluate()...}.result();  // braces: left to right
            },
            slots_);
    }

protected:
    /// A node whose operands are popped from the stack; for a derived class's own factory.
    static std::unique_ptr<Derived> build(Interpreter& interpreter, ParserStack& stack) {
        auto node = std::make_unique<Derived>();
        node->interpreter_ = &interpreter;
        node->popOperands(stack, std::index_sequence_for<Operands...>());
        return node;
    }

    Interpreter& interpreter() const { return *interpreter_; }

    /// Logs an error of this call, which has the arguments given.
    template <class... Arguments>
    [[gnu::cold]] void fail(const FND::String& message, const Arguments&... arguments) const {
        std::vector<FND::String> shown;
        (addShown(arguments, shown), ...);
        interpreter_->logError(message, this, shown);
    }

    /// Makes `result`, which this call with the arguments given is about to fill, hold `size` bytes
    /// without further allocation; its former text is lost. False, with an error logged and
    /// `result` empty, when that would be longer than the limit of a string or `maxStringSize`
    /// allow, or there is no memory. A built-in whose result may be long calls this before it fills
    /// the result; the length of all others is checked afterwards.
    template <class... Arguments>
    bool reserve(FND::String& result, std::size_t size, const Arguments&... arguments) const {
        if (isResultSize(*interpreter_, size) && tryReserveResult(result, size)) [[likely]]
            return true;
        result.clear();
        fail(Messages::resultTooLong(size), arguments...);
        return false;
    }

    /// The node of operand `index`.
    template <std::size_t index>
    auto& operand() {
        return *std::get<index>(slots_).node;
    }

private:
    using Returned = decltype(std::declval<typename Result::Node>().result());
    using Value = std::remove_cvref_t<Returned>;
    static constexpr bool isReference = std::is_reference_v<Returned>;
    struct NoValue {};
    using Stored = std::conditional_t<isReference, Value, NoValue>;

    template <class Argument>
    static void addShown(const Argument& argument, std::vector<FND::String>& shown) {
        if constexpr (requires { shownValue(*argument); }) {
            if (argument) shown.push_back(shownValue(*argument));
        } else if constexpr (requires { shownValue(argument); }) {
            shown.push_back(shownValue(argument));
        }
    }

    // Long texts count as work, whatever the built-in does with them.
    static void count(const FND::String& text) { countString(text.size()); }
    static void count(const FND::String* text) {
        if (text != nullptr) countString(text->size());
    }
    static void count(const auto& /*argument*/) {}

    template <class... Arguments>
    decltype(auto) finish(Arguments&&... arguments) {
        (count(arguments), ...);
        if constexpr (!isReference) {
            return static_cast<Derived*>(this)->value(*interpreter_, arguments...);
        } else if constexpr (std::is_same_v<Value, FND::String>) {
            static_cast<Derived*>(this)->value(*interpreter_, result_, arguments...);
            if (!isResultSize(*interpreter_, result_.size())) [[unlikely]]
                refuse(arguments...);
            return static_cast<const Value&>(result_);
        } else {
            result_ = static_cast<Derived*>(this)->value(*interpreter_, arguments...);
            return static_cast<const Value&>(result_);
        }
    }

    // Calls whose arguments are not copied: a copy of an optional that has just been made waits for
    // its parts to reach the cache.
    struct VoidCall {
        template <class... Arguments>
        explicit VoidCall(BuiltInNode& node, Arguments&&... arguments) {
            node.finish(arguments...);
        }
        void result() const {}
    };
    struct ValueCall {
        template <class... Arguments>
        explicit ValueCall(BuiltInNode& node, Arguments&&... arguments)
            : value(node.finish(arguments...)) {}
        Returned result() const { return value; }

        Returned value;
    };

    template <class... Arguments>
    [[gnu::cold]] void refuse(const Arguments&... arguments) {
        fail(Messages::resultTooLong(result_.size()), arguments...);
        result_.clear();
    }

    template <class Slot>
    static typename Slot::Held hold(Slot& slot) {
        if constexpr (requires { slot.hold(); }) {
            return slot.hold();
        } else {
            return slot.evaluate();
        }
    }

    [[gnu::noinline]] decltype(auto) resultOfHeld() {
        return std::apply(
            [this](auto&... slots) -> decltype(auto) {
                std::tuple<typename OperandSlot<Operands>::Held...> held{hold(slots)...};
                return std::apply(
                    [this](auto&... value) -> decltype(auto) {
                        return this->finish(OperandSlot<Operands>::argument(value)...);
                    },
                    held);
            },
            slots_);
    }

    template <std::size_t... indices>
    void popOperands(ParserStack& stack, std::index_sequence<indices...> /*indices*/) {
        [[maybe_unused]] const auto given = static_cast<std::size_t>(stack.topNumParams());
        constexpr std::size_t count = sizeof...(indices);
        // Last operand first.
        (popOperand<count - 1 - indices>(stack, given), ...);
    }

    template <std::size_t index>
    void popOperand(ParserStack& stack, std::size_t given) {
        if (index >= given) return;
        auto& slot = std::get<index>(slots_);
        if (index > 0 && stack.traits().mayRunScript()) holdsOperands_ = true;
        slot.take(stack.pop<Node>());
    }

    Interpreter* interpreter_ = nullptr;  // not owned; outlives the node
    std::tuple<OperandSlot<Operands>...> slots_;
    [[no_unique_address]] Stored result_{};
    bool holdsOperands_ = false;  // a later operand may run script code
};

}  // namespace SCR
