#pragma once

#include <memory>
#include <unordered_map>
#include <vector>

#include "fnd/Export.h"
#include "scr/Limits.h"
#include "scr/Statement.h"
#include "scr/value/KeyHash.h"

namespace SCR {

class ParserStack;
class SwitchAutomaton;

/// Selects one of several bodies by the value of a selector. Labels, `default` and `break` are
/// resolved while it is built; at run time it looks up one body and executes it, and then those
/// that the body falls through into.
class KESTREL_API SwitchCase : public CompoundStatement {
public:
    /// Adds to the body of the labels last seen; always true.
    bool addStatement(Node* statement) override;
    void close() override;
    /// True only if there is a default body and every body, including those that it falls through
    /// into, returns a result.
    bool returnsResult() const override;

    /// Takes one label, type word and node, from the parser stack. False after a report.
    virtual bool nextCase(ParserStack& stack) = 0;
    /// Ends the current body, so that it does not fall through into the next.
    bool addBreak();
    /// Makes the open body, or else the next one, the default body. False after a report.
    bool addDefault();
    /// Called once all labels are known. False after a report.
    virtual bool finalSetup() = 0;

protected:
    /// The number of a body, in the order of the text.
    using Body = std::uint32_t;
    static constexpr Body noBody = ~Body{0};

    /// The body of the next label: the open one if it is still empty, otherwise a new one. Opens
    /// it.
    Body openBody();

    /// What a label leads to.
    struct Choice {
        LongStep sum;  // everything that the body does, if that is data
        Body body = noBody;

        explicit Choice(Body chosen = noBody) : body(chosen) {}
    };
    /// Sets what the body of `choice` does, after the bodies are complete.
    void complete(Choice& choice) const;

    std::int32_t run(const Choice& choice) const {
        if (choice.sum) {
            choice.sum.run();
            return goOn;
        }
        return run(choice.body);
    }
    /// Executes the body, and those that it falls through into; `noBody` means the default body.
    std::int32_t run(Body body) const {
        if (body == noBody) body = default_;
        if (body == noBody) return goOn;
        // Falling through is a loop, so that calls do not nest however many labels there are.
        while (true) {
            const Entry& entry = bodies_[body];
            const std::int32_t code = entry.run.execute();
            if (code != goOn || !entry.fallsThrough) return code;
            ++body;
        }
    }

private:
    struct Entry {
        std::unique_ptr<StatementList> statements;
        StatementRun run;
        bool fallsThrough = false;  // into the next body
    };

    enum class State { Closed, Labelled, Filled };

    State state_ = State::Closed;
    std::vector<Entry> bodies_;
    Body default_ = noBody;
};

/// Long labels.
class KESTREL_API LongSwitchCase : public SwitchCase {
public:
    /// Takes ownership of the selector.
    explicit LongSwitchCase(LongNode* selector) : selector_(selector) {}

    /// A new one of the class that fits `selector`; takes ownership of it.
    static std::unique_ptr<LongSwitchCase> make(std::unique_ptr<LongNode> selector);

    std::int32_t execute() override;
    bool nextCase(ParserStack& stack) override;
    bool finalSetup() override;
    void close() override;

protected:
    /// Without a node: for classes that execute by a selector of their own.
    LongSwitchCase() = default;

    /// Executes the body for the selector's value.
    std::int32_t choose(long value) const {
        const unsigned long place = static_cast<unsigned long>(value) - first_;
        return place < table_.size() ? run(table_[place]) : run(find(value));
    }

private:
    Body find(long value) const {
        if (!table_.empty()) return noBody;
        const auto found = labels_.find(value);
        return found != labels_.end() ? found->second : noBody;
    }

    const std::unique_ptr<LongNode> selector_;
    std::unordered_map<long, Body, NumberHash> labels_;
    // The bodies of all labels, beginning with the first one, when the labels lie close together.
    std::vector<Choice> table_;
    unsigned long first_ = 0;
};

/// String labels, compared exactly.
class KESTREL_API StringSwitchCase final : public SwitchCase {
public:
    /// Takes ownership of the selector.
    explicit StringSwitchCase(StringNode* selector) : selector_(selector) {}
    std::int32_t execute() override;
    bool nextCase(ParserStack& stack) override;
    bool finalSetup() override;
    void close() override;

private:
    // A label's length and its first and last 8 bytes, which overlap in a shorter label. They
    // identify a label of at most 16 bytes.
    struct Ends {
        bool operator==(const Ends&) const = default;

        std::uint64_t first = 0;
        std::uint64_t last = 0;
        std::size_t size = 0;
    };
    struct Slot {
        Ends ends;
        Choice choice;  // without a body in a free slot
    };

    Body selectLong(const FND::String& value) const;
    // Hidden symbols, so that they can be inlined into `execute`.
    [[gnu::visibility("hidden")]] const Choice& select(const FND::String& value) const;
    [[gnu::visibility("hidden")]] static Ends endsOf(const FND::String& text);
    [[gnu::visibility("hidden")]] std::size_t placeOf(const FND::String& label,
                                                      const Ends& ends) const;

    const std::unique_ptr<StringNode> selector_;
    std::unordered_map<FND::String, Body, KeyHash> labels_;

    // The labels by their hash; a label whose slot is taken lies in the next free one. More than
    // half of the slots are free; their number is a power of 2.
    std::vector<Slot> slots_;
    std::vector<const FND::String*> slotLabels_;  // by slot, keys of `labels_`
    std::size_t lastSlot_ = 0;
    int placeShift_ = 63;      // 64 minus the number of bits of a place
    std::size_t longest_ = 0;  // bytes of the longest label
};

/// Labels that are patterns: the body of the first pattern that matches the whole text runs.
class KESTREL_API RegExprSwitchCase final : public SwitchCase {
public:
    /// Takes ownership of the selector. The automaton of all patterns may have `stateLimit` states;
    /// a list that needs more is split over a group of automata.
    explicit RegExprSwitchCase(StringNode* selector,
                               std::size_t stateLimit = static_cast<std::size_t>(Limits().states));
    ~RegExprSwitchCase() override;
    std::int32_t execute() override;
    bool nextCase(ParserStack& stack) override;
    /// Lets the automaton be built after the parse.
    bool finalSetup() override;

private:
    [[gnu::visibility("hidden")]] Body select() const;
    Body selectLong(const FND::String& text) const;

    const std::unique_ptr<StringNode> selector_;
    const std::shared_ptr<SwitchAutomaton> automaton_;
    std::vector<Body> bodies_;  // by label
};

}  // namespace SCR
