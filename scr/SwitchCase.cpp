#include "scr/SwitchCase.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <unordered_map>
#include <utility>
#include <vector>

#include "scr/Interpreter.h"
#include "scr/code/Builder.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/CountedWork.h"
#include "scr/run/MemoryCharge.h"
#include "scr/tree/SwitchAutomaton.h"
#include "scr/value/KeyHash.h"

namespace SCR {

namespace {

// Pops a label that must be a constant of the type `expected`; null after a report.
std::unique_ptr<Node> popLabel(ParserStack& stack, int expected) {
    const int type = stack.popType();
    auto label = stack.pop<Node>();
    if (Node::baseType(type) != expected) {
        SCR_YaccError(Messages::caseLabelType(expected, type));
        return nullptr;
    }
    if (!Node::isConst(type)) {
        SCR_YaccError(Messages::caseNotConst);
        return nullptr;
    }
    return label;
}

// The memory of a label in a map, with its share of the map's own table.
constexpr std::size_t labelBytesS = 80;

}  // namespace

/// The bodies, and which of them runs into the next.
class SwitchCase::Bodies : public InNodeMemory {
public:
    /// The number of a body, in the order of the text.
    using Number = std::uint32_t;
    static constexpr Number none = ~Number{0};

    /// The body of the next label: the open one if it is still empty, otherwise a new one. Opens
    /// it.
    Number open() {
        if (state_ != State::Labelled) {
            if (state_ == State::Filled) bodies_.back().fallsThrough = true;
            bodies_.push_back({std::make_unique<StatementList>()});
            state_ = State::Labelled;
        }
        return static_cast<Number>(bodies_.size() - 1);
    }
    bool add(Node* statement) {
        state_ = State::Filled;
        return bodies_.back().statements->addStatement(statement);
    }
    void endBody() { state_ = State::Closed; }
    /// False when there is a default body already.
    bool openDefault() {
        if (default_ != none) return false;
        default_ = open();
        return true;
    }
    void close() {
        for (Body& body : bodies_) body.statements->close();
    }
    bool returnResult() const {
        if (default_ == none) return false;
        // From the last body to the first: a body returns a result if it does itself or falls
        // through into one that does.
        bool isNextReturning = false;
        for (auto body = bodies_.rbegin(); body != bodies_.rend(); ++body) {
            isNextReturning =
                body->statements->returnsResult() || (body->fallsThrough && isNextReturning);
            if (!isNextReturning) return false;
        }
        return true;
    }

    /// Executes the body, and those that it falls through into; `none` means the default body.
    std::int32_t run(Number number) const {
        if (number == none) number = default_;
        if (number == none) return goOn;
        // Falling through is a loop, so that calls do not nest however many labels there are.
        while (true) {
            const Body& body = bodies_[number];
            const std::int32_t code = body.statements->execute();
            if (code != goOn || !body.fallsThrough) return code;
            ++number;
        }
    }

    /// Whether there are so few that their code stays short.
    bool areFew() const { return bodies_.size() <= 256; }
    /// Labels of the code of a switch: one for each body and the last one for the default.
    std::vector<Code::Label> newLabels(Code::Builder& code) const {
        std::vector<Code::Label> labels;
        for (std::size_t i = 0; i <= bodies_.size(); ++i) labels.push_back(code.newLabel());
        if (default_ != none) labels.back() = labels[default_];
        return labels;
    }
    /// Emits the bodies.
    void lower(Code::Builder& code, const std::vector<Code::Label>& labels) const {
        const Code::Label end = code.newLabel();
        for (std::size_t i = 0; i < bodies_.size(); ++i) {
            code.bind(labels[i]);
            code.statement(*bodies_[i].statements);
            if (!bodies_[i].fallsThrough) code.jumpTo(end);
        }
        if (default_ == none) code.bind(labels.back());
        code.bind(end);
    }

private:
    struct Body {
        std::unique_ptr<StatementList> statements;
        bool fallsThrough = false;  // into the next body
    };

    enum class State { Closed, Labelled, Filled };

    State state_ = State::Closed;
    std::vector<Body> bodies_;
    Number default_ = none;
};

SwitchCase::SwitchCase() : bodies_(std::make_unique<Bodies>()) {}
SwitchCase::~SwitchCase() = default;

bool SwitchCase::addStatement(Node* statement) { return bodies_->add(statement); }

void SwitchCase::close() { bodies_->close(); }

bool SwitchCase::addBreak() {
    bodies_->endBody();
    return true;
}

bool SwitchCase::addDefault() {
    return bodies_->openDefault() || SCR_YaccError(Messages::secondDefault);
}

bool SwitchCase::returnsResult() const { return bodies_->returnResult(); }

// The code of a switch over texts: a helper gives the number of the body.
template <class Labels>
void SwitchCase::lowerChoice(Code::Builder& code, StringNode& selector, const Labels& choice) {
    if (!bodies().areFew()) return code.execute(*this);
    constexpr auto choose = [](RunControl& /*control*/, long from, long text, long /*c*/) {
        return static_cast<long>(
            Code::at<const Labels>(from).choose(Code::at<const FND::String>(text)));
    };
    static constexpr Code::Helper helper{Code::guarded<choose>, true, false};
    const std::vector<Code::Label> labels = bodies().newLabels(code);
    {
        const Code::Builder::Frame frame(code);
        const Code::Ref text = code.value(selector);
        const Code::Ref body = code.call(helper, code.address(&choice), text);
        code.switchOn(body, {0, {labels.begin(), labels.end() - 1}, labels.back()});
    }
    bodies().lower(code, labels);
}

// Long labels.

class LongSwitchCase::Labels : public InNodeMemory {
public:
    using Number = Bodies::Number;

    explicit Labels(const Bodies& bodies) : bodies_(bodies) {}

    bool contains(long label) const { return labels_.contains(label); }
    void add(long label, Number body) { labels_.emplace(label, body); }
    void setUp();

    /// Executes the body for the selector's value.
    std::int32_t choose(long value) const {
        const unsigned long index = static_cast<unsigned long>(value) - first_;
        return bodies_.run(index < table_.size() ? table_[index] : find(value));
    }
    /// How many values the code tells apart.
    std::size_t values() const { return std::max(table_.size(), labels_.size()); }
    void lower(Code::Builder& code, LongNode& selector) const;

private:
    Number find(long value) const {
        if (!table_.empty()) return Bodies::none;
        const auto found = labels_.find(value);
        return found != labels_.end() ? found->second : Bodies::none;
    }

    const Bodies& bodies_;
    // The bodies of all labels, beginning with the first one, when the labels lie close together.
    std::vector<Number> table_;
    unsigned long first_ = 0;
    std::unordered_map<long, Number, NumberHash> labels_;
};

// The pointer has an owner before anything is allocated.
LongSwitchCase::LongSwitchCase(LongNode* selector)
    : LongSwitchCase(std::unique_ptr<LongNode>(selector)) {}
LongSwitchCase::LongSwitchCase(std::unique_ptr<LongNode> selector)
    : selector_(std::move(selector)), labels_(std::make_unique<Labels>(bodies())) {}
LongSwitchCase::~LongSwitchCase() = default;

std::int32_t LongSwitchCase::execute() { return labels_->choose(selector_->result()); }

bool LongSwitchCase::nextCase(ParserStack& stack) {
    const std::unique_ptr<Node> label = popLabel(stack, TypeCode::Long);
    if (!label) return false;
    const long value = static_cast<LongNode&>(*label).result();
    if (labels_->contains(value)) return SCR_YaccError(Messages::caseDefined(value));
    chargeBuffer(labelBytesS);
    labels_->add(value, bodies().open());
    return true;
}

bool LongSwitchCase::finalSetup() {
    labels_->setUp();
    return true;
}

void LongSwitchCase::Labels::setUp() {
    if (labels_.empty()) return;
    const auto [least, greatest] =
        std::minmax_element(labels_.begin(), labels_.end(),
                            [](const auto& a, const auto& b) { return a.first < b.first; });
    const unsigned long range =
        static_cast<unsigned long>(greatest->first) - static_cast<unsigned long>(least->first);
    if (range / 4 > labels_.size()) return;
    chargeBuffer(blockBytes((range + 1) * sizeof(Number)));
    countWork((range + 1) * sizeof(Number));
    first_ = static_cast<unsigned long>(least->first);
    table_.resize(range + 1, Bodies::none);
    for (const auto& [label, body] : labels_) {
        table_[static_cast<unsigned long>(label) - first_] = body;
    }
}

void LongSwitchCase::lower(Code::Builder& code) {
    constexpr std::size_t mostValues = 1024;
    if (!bodies().areFew() || labels_->values() > mostValues) return code.execute(*this);
    labels_->lower(code, *selector_);
}

void LongSwitchCase::Labels::lower(Code::Builder& code, LongNode& selector) const {
    const std::vector<Code::Label> labels = bodies_.newLabels(code);
    {
        const Code::Builder::Frame frame(code);
        const Code::Ref value = code.value(selector);
        if (table_.empty()) {
            constexpr auto choose = [](RunControl& /*control*/, long from, long number,
                                       long /*c*/) {
                return static_cast<long>(Code::at<const Labels>(from).find(number));
            };
            static constexpr Code::Helper helper{Code::guarded<choose>, false, false};
            const Code::Ref body = code.call(helper, code.address(this), value);
            code.switchOn(body, {0, {labels.begin(), labels.end() - 1}, labels.back()});
        } else {
            Code::SwitchTable table{static_cast<long>(first_), {}, labels.back()};
            for (const Number body : table_) {
                table.labels.push_back(body != Bodies::none ? labels[body] : labels.back());
            }
            code.switchOn(value, std::move(table));
        }
    }
    bodies_.lower(code, labels);
}

// String labels.

class StringSwitchCase::Labels : public InNodeMemory {
public:
    using Number = Bodies::Number;

    explicit Labels(const Bodies& bodies) : bodies_(bodies) {}

    bool contains(const FND::String& label) const { return labels_.contains(label); }
    void add(const FND::String& label, Number body) { labels_.emplace(label, body); }
    void setUp();

    /// The body for the selector's value.
    Number choose(const FND::String& value) const {
        return isLarge(value.size()) ? findLarge(value) : find(value);
    }
    const Bodies& bodies() const { return bodies_; }

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
        Number body = Bodies::none;  // none in a free slot
    };

    static constexpr std::size_t fewCM = 32;
    static constexpr std::uint64_t anyFactorCM = 0x9e3779b97f4a7c15;

    Number findLarge(const FND::String& value) const;
    Number find(const FND::String& value) const;
    [[gnu::noinline]] Number findInRow(const FND::String& value) const;
    static Ends endsOf(const FND::String& text);
    std::size_t slotOf(const Ends& ends) const {
        return ((ends.first ^ std::rotl(ends.last, 23)) * factor_) >> hashShift_;
    }
    bool haveSlotsOfTheirOwn() const;
    void chooseFactor();

    const Bodies& bodies_;
    std::unordered_map<FND::String, Number, KeyHash> labels_;

    // The labels by their hash; a label whose slot is taken lies in the next free one. More than
    // half of the slots are free; their number is a power of 2. A few short labels are direct: they
    // have a hash of their own that gives each another slot.
    std::vector<Slot> slots_;
    std::vector<const FND::String*> slotLabels_;  // by slot, keys of `labels_`
    std::size_t lastSlot_ = 0;
    int hashShift_ = 63;  // 64 minus the number of bits of a slot's number
    bool isDirect_ = false;
    std::uint64_t factor_ = anyFactorCM;  // of the hash of direct labels
    std::size_t longest_ = 0;             // bytes of a label
};

// The pointer has an owner before anything is allocated.
StringSwitchCase::StringSwitchCase(StringNode* selector)
    : StringSwitchCase(std::unique_ptr<StringNode>(selector)) {}
StringSwitchCase::StringSwitchCase(std::unique_ptr<StringNode> selector)
    : selector_(std::move(selector)), labels_(std::make_unique<Labels>(bodies())) {}
StringSwitchCase::~StringSwitchCase() = default;

bool StringSwitchCase::nextCase(ParserStack& stack) {
    const std::unique_ptr<Node> label = popLabel(stack, TypeCode::String);
    if (!label) return false;
    const FND::String& value = static_cast<StringNode&>(*label).result();
    if (labels_->contains(value)) return SCR_YaccError(Messages::caseDefined(value));
    chargeBuffer(labelBytesS + blockBytes(value.size() + 1));
    labels_->add(value, bodies().open());
    return true;
}

[[gnu::always_inline]] inline StringSwitchCase::Labels::Ends StringSwitchCase::Labels::endsOf(
    const FND::String& text) {
    const char* const data = text.data();
    const std::size_t size = text.size();
    Ends ends;
    ends.size = size;
    const auto load = [&]<class Word>(Word /*size*/) {
        Word word;
        std::memcpy(&word, data, sizeof(Word));
        ends.first = word;
        std::memcpy(&word, data + size - sizeof(Word), sizeof(Word));
        ends.last = word;
    };
    if (size >= 8) {
        load(std::uint64_t{});
    } else if (size >= 4) {
        load(std::uint32_t{});
    } else if (size >= 2) {
        load(std::uint16_t{});
    } else {
        ends.first = ends.last = size > 0 ? static_cast<unsigned char>(*data) : 0;
    }
    return ends;
}

bool StringSwitchCase::finalSetup() {
    labels_->setUp();
    return true;
}

bool StringSwitchCase::Labels::haveSlotsOfTheirOwn() const {
    std::uint64_t taken[4 * fewCM / 64] = {};
    for (const auto& label : labels_) {
        const std::size_t slot = slotOf(endsOf(label.first));
        const std::uint64_t bit = std::uint64_t{1} << slot % 64;
        if ((taken[slot / 64] & bit) != 0) return false;
        taken[slot / 64] |= bit;
    }
    return true;
}

// Looks for a hash that gives each label a slot of its own.
void StringSwitchCase::Labels::chooseFactor() {
    for (int tries = 100; tries > 0; --tries) {
        isDirect_ = haveSlotsOfTheirOwn();
        if (isDirect_) return;
        factor_ += anyFactorCM << 1;
    }
}

void StringSwitchCase::Labels::setUp() {
    const bool areFew = labels_.size() < fewCM;
    const std::size_t slots = std::bit_ceil((areFew ? 4 : 2) * (labels_.size() + 1));
    // NOLINTNEXTLINE(bugprone-sizeof-expression): of pointers
    chargeBuffer(blockBytes(slots * sizeof(Slot)) + blockBytes(slots * sizeof slotLabels_[0]));
    countWork(slots * sizeof(Slot));
    slots_.resize(slots);
    slotLabels_.resize(slots_.size());
    lastSlot_ = slots_.size() - 1;
    hashShift_ = std::countl_zero(std::uint64_t{slots_.size()}) + 1;
    for (const auto& label : labels_) longest_ = std::max(longest_, label.first.size());
    if (areFew && longest_ <= 16) chooseFactor();
    for (const auto& [label, body] : labels_) {
        const Ends ends = endsOf(label);
        std::size_t at = isDirect_ ? slotOf(ends) : keyHash(label);
        while (slots_[at & lastSlot_].body != Bodies::none) ++at;
        slots_[at & lastSlot_] = {ends, body};
        slotLabels_[at & lastSlot_] = &label;
    }
}

[[gnu::always_inline]] inline SwitchCase::Bodies::Number StringSwitchCase::Labels::find(
    const FND::String& value) const {
    if (!isDirect_) return findInRow(value);
    const Ends ends = endsOf(value);
    const Slot& slot = slots_[slotOf(ends)];
    return slot.ends == ends ? slot.body : Bodies::none;
}

SwitchCase::Bodies::Number StringSwitchCase::Labels::findInRow(const FND::String& value) const {
    const Ends ends = endsOf(value);
    for (std::size_t at = keyHash(value);; ++at) {
        const Slot& slot = slots_[at & lastSlot_];
        // A free slot has the ends of "".
        if (slot.ends == ends && (ends.size <= 16 || *slotLabels_[at & lastSlot_] == value)) {
            return slot.body;
        }
        if (slot.body == Bodies::none) return slot.body;
    }
}

SwitchCase::Bodies::Number StringSwitchCase::Labels::findLarge(const FND::String& value) const {
    countWork(value.size());
    if (value.size() > longest_) return Bodies::none;
    const auto found = labels_.find(value);
    return found != labels_.end() ? found->second : Bodies::none;
}

std::int32_t StringSwitchCase::execute() {
    return bodies().run(labels_->choose(selector_->result()));
}

void StringSwitchCase::lower(Code::Builder& code) {
    lowerChoice<Labels>(code, *selector_, *labels_);
}

// Patterns as labels.

class RegExprSwitchCase::Labels : public InNodeMemory {
public:
    using Number = Bodies::Number;

    explicit Labels(std::size_t stateLimit)
        : automaton_(std::make_shared<SwitchAutomaton>(stateLimit)) {}

    bool add(std::unique_ptr<StringNode> label, Number body) {
        const std::size_t number = automaton_->size();
        automaton_->add(std::move(label), parsedLine());
        bodies_.push_back(body);
        return buildLater(automaton_, number);
    }
    bool setUp() { return buildLater(automaton_, SwitchAutomaton::finalStep); }

    /// The body for the selector's value.
    Number choose(const FND::String& text) const {
        const std::int32_t label =
            isLarge(text.size()) ? automaton_->firstOfLarge(text) : automaton_->first(text);
        return label >= 0 ? bodies_[static_cast<std::size_t>(label)] : Bodies::none;
    }

private:
    const std::shared_ptr<SwitchAutomaton> automaton_;
    std::vector<Number> bodies_;  // by label
};

// The pointer has an owner before anything is allocated.
RegExprSwitchCase::RegExprSwitchCase(StringNode* selector, std::size_t stateLimit)
    : RegExprSwitchCase(std::unique_ptr<StringNode>(selector), stateLimit) {}
RegExprSwitchCase::RegExprSwitchCase(std::unique_ptr<StringNode> selector, std::size_t stateLimit)
    : selector_(std::move(selector)), labels_(std::make_unique<Labels>(stateLimit)) {}
RegExprSwitchCase::~RegExprSwitchCase() = default;

bool RegExprSwitchCase::nextCase(ParserStack& stack) {
    std::unique_ptr<Node> label = popLabel(stack, TypeCode::String);
    if (!label) return false;
    return labels_->add(std::unique_ptr<StringNode>(static_cast<StringNode*>(label.release())),
                        bodies().open());
}

bool RegExprSwitchCase::finalSetup() { return labels_->setUp(); }

std::int32_t RegExprSwitchCase::execute() {
    return bodies().run(labels_->choose(selector_->result()));
}

void RegExprSwitchCase::lower(Code::Builder& code) {
    lowerChoice<Labels>(code, *selector_, *labels_);
}

}  // namespace SCR
