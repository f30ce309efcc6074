#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iosfwd>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>
#include <vector>

#include "fnd/Export.h"
#include "scr/Node.h"

namespace SCR {

class FctDescr;

/// Facts about an operand besides its type, so that factories can build the node that fits. They
/// share one word: a copy of what was just written in parts would have to wait for those stores.
class OperandTraits {
public:
    OperandTraits() : OperandTraits(false, 1) {}
    OperandTraits(bool mayRunScript, int depth, int operators = 0)
        : word_(static_cast<std::uint64_t>(operators) << operatorsShiftCM |
                static_cast<std::uint64_t>(depth) << 1 | (mayRunScript ? 1U : 0U)) {}

    /// Evaluating it may run script code or change variables or containers. So a reference taken
    /// earlier from another operand may show another value afterwards.
    bool mayRunScript() const { return (word_ & 1) != 0; }
    /// Levels of the operand's expression. A chain of operators, as in `a + b - c`, is one.
    int depth() const { return static_cast<int>(word_ >> 1 & depthMaskCM); }
    /// The number of operators if the operand is a chain, otherwise 0.
    int operators() const { return static_cast<int>(word_ >> operatorsShiftCM); }

    /// Those of an expression that evaluates this operand and `other` on one level.
    OperandTraits with(OperandTraits other) const {
        return {mayRunScript() || other.mayRunScript(), std::max(depth(), other.depth()),
                operators()};
    }

private:
    static constexpr int operatorsShiftCM = 32;
    static constexpr std::uint64_t depthMaskCM = (std::uint64_t{1} << 31) - 1;

    std::uint64_t word_;
};

/// The working store of the parser actions: four independent stacks, of operand nodes, of their
/// type words, of the descriptors of the calls being parsed, and of their argument counts. It owns
/// the nodes until they are popped, but never the descriptors. Part of the parse state: use it only
/// under the parse lock.
class KESTREL_API ParserStack {
public:
    ParserStack() = default;
    ParserStack(const ParserStack&) = delete;
    ParserStack& operator=(const ParserStack&) = delete;
    ~ParserStack();

    /// Pushes a node, which the stack owns from now on, and its type word.
    void pushData(Node* node, int typeWord) { pushData(node, typeWord, {}); }
    void pushData(Node* node, int typeWord, OperandTraits traits) {
        pushNode(std::unique_ptr<Node>(node), traits);
        types_.push_back(typeWord);
    }
    /// Pushes a node without a type word.
    void pushNode(std::unique_ptr<Node> node, OperandTraits traits) {
        data_.push_back({std::move(node), traits});
    }

    /// Pops the top node, which the caller then owns. Its type stays; `popType` pops it. On an
    /// empty stack reports that on standard error and gives null.
    Node* popData() {
        if (data_.size() <= dataFloor_) [[unlikely]] {
            ++dataUnderflows_;
            reportUnderflow(dataCM);
            return nullptr;
        }
        Node* const node = data_.back().node.release();
        data_.pop_back();
        return node;
    }
    /// Pops the top type word; 0 after a message on standard error when there is none.
    int popType() { return pop(types_, typesCM, typeFloor_); }
    int topType() const { return top(types_, typesCM, typeFloor_); }
    /// The type word below the top one; 0 when there is none.
    int typeBelow() const { return types_.size() > typeFloor_ + 1 ? types_[types_.size() - 2] : 0; }
    /// The common type of the whole type stack; 0 when it is empty, the unchanged top entry when
    /// there is no common type.
    int superType() const;
    /// The common type of the two topmost entries only, by the same rule.
    int operandsType() const {
        const std::size_t size = types_.size();
        if (size < 2) return superType();
        const int last = Node::baseType(types_[size - 1]);
        // Most operands are of the same type.
        const bool isCommon =
            last == Node::baseType(types_[size - 2]) && last > 0 && last <= TypeCode::Hash;
        return isCommon ? last : commonType(size - 2);
    }

    /// The number of nodes on the data stack.
    std::size_t dataSize() const { return data_.size(); }
    /// Facts about the node that lies `fromTop` places below the top of the data stack.
    OperandTraits traits(std::size_t fromTop = 0) const {
        return data_[data_.size() - 1 - fromTop].traits;
    }

    /// The node that lies `fromTop` places below the top of the data stack, which keeps it.
    Node* data(std::size_t fromTop = 0) const {
        return data_[data_.size() - 1 - fromTop].node.get();
    }
    /// Destroys that node and puts `node` in its place.
    void replaceData(std::size_t fromTop, std::unique_ptr<Node> node) {
        data_[data_.size() - 1 - fromTop].node = std::move(node);
    }

    /// Puts `wrap(node, type word)`, a node that takes over that node and gives the same value, in
    /// its place. It cannot be assigned to.
    template <class Wrap>
    void wrapData(std::size_t fromTop, const Wrap& wrap) {
        std::unique_ptr<Node>& node = data_[data_.size() - 1 - fromTop].node;
        int& type = types_[types_.size() - 1 - fromTop];
        node = wrap(std::move(node), type);
        type &= ~TypeCode::LeftFlag;
    }

    void pushFunction(const FctDescr* descriptor) { functions_.push_back(descriptor); }
    /// Null after a message on standard error when there is none.
    const FctDescr* popFunction() { return pop(functions_, functionsCM); }
    const FctDescr* topFunction() const { return top(functions_, functionsCM); }
    int numFunctions() const { return static_cast<int>(functions_.size()); }

    void pushNumParams(int count) { numParams_.push_back(count); }
    /// 0 after a message on standard error when there is none; also the next two.
    int popNumParams() { return pop(numParams_, numParamsCM); }
    int topNumParams() const { return top(numParams_, numParamsCM); }
    /// Adds one to the count of arguments and gives the new count.
    int incTopNumParams() { return numParams_.empty() ? topNumParams() : ++numParams_.back(); }

    /// Moves every node of `nodes`, first to last, onto the data stack, without types.
    void appendDataStack(std::vector<std::unique_ptr<Node>>& nodes);

    /// Destroys the nodes held and empties all four stacks.
    void clear();
    /// The same, but keeps the lowest `functions` descriptors and counts.
    void clearTo(std::size_t functions);

    /// Whether all four stacks are empty.
    bool isEmpty() const {
        return data_.empty() && types_.empty() && functions_.empty() && numParams_.empty();
    }

    /// Writes the functions and types held, for diagnosis.
    void print(std::ostream& stream) const;

    /// While it lives, a factory can take the arguments of its call from the stacks, but nothing
    /// below them: the stacks seem empty then.
    class CallScope {
    public:
        /// For the topmost `count` nodes and `types` type words.
        CallScope(ParserStack& stack, std::size_t count, std::size_t types)
            : stack_(stack),
              dataFloor_(stack.dataFloor_),
              typeFloor_(stack.typeFloor_),
              dataUnderflows_(stack.dataUnderflows_) {
            stack.dataFloor_ = stack.data_.size() - count;
            stack.typeFloor_ = stack.types_.size() - types;
        }
        CallScope(const CallScope&) = delete;
        CallScope& operator=(const CallScope&) = delete;
        /// Drops the type words that are left.
        ~CallScope() {
            if (stack_.types_.size() > stack_.typeFloor_) {
                stack_.types_.resize(stack_.typeFloor_);
            }
            stack_.dataFloor_ = dataFloor_;
            stack_.typeFloor_ = typeFloor_;
        }
        /// Whether exactly these nodes were taken.
        bool isDone() const {
            return stack_.data_.size() == stack_.dataFloor_ &&
                   stack_.dataUnderflows_ == dataUnderflows_;
        }

    private:
        ParserStack& stack_;
        const std::size_t dataFloor_;
        const std::size_t typeFloor_;
        const std::size_t dataUnderflows_;
    };

    /// Pops the top node as a node of class `NodeClass`, which the descriptor's types guarantee.
    template <class NodeClass>
    std::unique_ptr<NodeClass> pop() {
        return std::unique_ptr<NodeClass>(static_cast<NodeClass*>(popData()));
    }

private:
    struct Operand {
        std::unique_ptr<Node> node;
        OperandTraits traits;
    };

    // The stacks' names in messages.
    static constexpr const char* dataCM = "datastack";
    static constexpr const char* typesCM = "type stack";
    static constexpr const char* functionsCM = "function stack";
    static constexpr const char* numParamsCM = "number of parameter stack";

    static void reportUnderflow(const char* stack);
    // The common type of the entries from `first` on, bottom to top.
    int commonType(std::size_t first) const;

    // The top of `stack`; the type's zero value after a message when it is no higher than `floor`.
    template <class Value>
    static Value top(const std::vector<Value>& stack, const char* name, std::size_t floor = 0) {
        if (stack.size() > floor) [[likely]]
            return stack.back();
        reportUnderflow(name);
        return {};
    }

    template <class Value>
    static Value pop(std::vector<Value>& stack, const char* name, std::size_t floor = 0) {
        const Value value = top(stack, name, floor);
        if (stack.size() > floor) stack.pop_back();
        return value;
    }

    std::size_t dataFloor_ = 0;  // entries that belong to the open calls around the one being made
    std::size_t typeFloor_ = 0;
    std::size_t dataUnderflows_ = 0;
    std::vector<Operand> data_;
    std::vector<int> types_;
    std::vector<const FctDescr*> functions_;
    std::vector<int> numParams_;
};

}  // namespace SCR
