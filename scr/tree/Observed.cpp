#include "scr/tree/Observed.h"

#include <atomic>
#include <utility>

#include "scr/message/Quote.h"
#include "scr/tree/FunctionCall.h"

namespace SCR {

namespace {

void store(long& word, long value) {
    std::atomic_ref<long>(word).store(value, std::memory_order_release);
}

long positionOf(std::size_t site) { return 2 * static_cast<long>(site) + 2; }

void lowerStore(Code::Builder& code, const Observation& observation, const long* word, long value) {
    // Without the aspect only a stop looks at it.
    const bool isLate = !observation.has(Observation::positionsCM);
    code.emit(isLate ? Code::Op::LateNote : Code::Op::Note, {}, code.constant(value), {}, word);
}

void lowerCount(Code::Builder& code, const Observation::Count& count) {
    const Code::Ref number = code.variable(&count.code);
    code.emit(Code::Op::Add, number, number, code.constant(1));
}

// What of a statement stands before one that shares its count: nothing is counted there.
Observation::Count* countOf(Observation& observation, std::size_t site) {
    const std::size_t count = observation.siteAt(site).count;
    if (!observation.has(Observation::countsCM) || count == ObservedSite::none) return nullptr;
    return &observation.countAt(count);
}

}  // namespace

ObservedMark::ObservedMark(Observation& observation, std::size_t site, bool counts)
    : observation_(&observation),
      site_(site),
      count_(counts ? countOf(observation, site) : nullptr),
      position_(observation.keepsPosition() ? observation.position() : nullptr) {}

void ObservedMark::pass() const {
    if (count_ != nullptr) ++count_->tree;
    if (position_ != nullptr) store(*position_, positionOf(site_));
    if (!observation_->listens()) return;
    const std::size_t choosing = observation_->choosing();
    observation_->choose(ObservedSite::none);
    switch (observation_->siteAt(site_).kind) {
        case ObservedSite::Kind::Function:
            return observation_->entered(site_);
        case ObservedSite::Kind::Case:
            if (choosing == observation_->siteAt(site_).owner) observation_->chosen(site_);
            return;
        default:
            return observation_->statement(site_);
    }
}

void ObservedMark::lower(Code::Builder& code) const {
    if (count_ != nullptr) lowerCount(code, *count_);
    lowerPosition(code);
}

void ObservedMark::lowerPosition(Code::Builder& code) const {
    if (position_ != nullptr) lowerStore(code, *observation_, position_, positionOf(site_) + 1);
}

Code::Ref ObservedStatement::lowerValue(Code::Builder& /*code*/, Code::Ref /*target*/) {
    return {};
}

void ObservedStatement::lowerStatement(Code::Builder& code) {
    if (mark_.hasEvents()) return code.execute(*this);
    mark_.lower(code);
    code.statement(*statement_);
}

std::int32_t ObservedPlace::execute() {
    mark_.pass();
    return goOn;
}

Code::Ref ObservedPlace::lowerValue(Code::Builder& /*code*/, Code::Ref /*target*/) { return {}; }

void ObservedPlace::lowerStatement(Code::Builder& code) {
    if (mark_.hasEvents()) return code.execute(*this);
    mark_.lower(code);
}

Code::Ref CountedPlace::lowerValue(Code::Builder& /*code*/, Code::Ref /*target*/) { return {}; }

void CountedPlace::lowerStatement(Code::Builder& code) { lowerCount(code, *count_); }

ObservedCondition::ObservedCondition(std::unique_ptr<BoolNode> condition, Observation& observation,
                                     std::size_t site, bool isRepeated)
    : condition_(std::move(condition)), observation_(&observation), site_(site) {
    const ObservedSite& of = observation.siteAt(site);
    if (isRepeated && observation.keepsPosition()) position_ = positionOf(of.owner);
    if (!observation.has(Observation::countsCM) || of.count == ObservedSite::none) return;
    held_ = &observation.countAt(of.count);
    if (of.otherwise != ObservedSite::none) otherwise_ = &observation.countAt(of.otherwise);
}

bool ObservedCondition::result() {
    if (position_ != 0) store(*observation_->position(), position_);
    const bool holds = condition_->result();
    if (Observation::Count* const count = holds ? held_ : otherwise_) ++count->tree;
    if (observation_->listens()) observation_->condition(site_, holds);
    return holds;
}

Code::Ref ObservedCondition::lowerValue(Code::Builder& code, Code::Ref target) {
    return code.callNode<BoolNode>(*this, target);
}

void ObservedCondition::lowerJump(Code::Builder& code, Code::Label label, bool when) {
    if (observation_->tellsSteps()) return Lowerable::lowerJump(code, label, when);
    if (position_ != 0) {
        lowerStore(code, *observation_, observation_->position(), position_ + 1);
    }
    Observation::Count* const stays = when ? otherwise_ : held_;
    Observation::Count* const leaves = when ? held_ : otherwise_;
    if (leaves == nullptr) {
        code.jump(*condition_, label, when);
        if (stays != nullptr) lowerCount(code, *stays);
        return;
    }
    const Code::Label end = code.newLabel();
    code.jump(*condition_, end, !when);
    lowerCount(code, *leaves);
    code.jumpTo(label);
    code.bind(end);
    if (stays == nullptr) return;
    // The loop is left here.
    code.closeLoop();
    lowerCount(code, *stays);
    code.openLoop();
}

FND::String observedText(long value) { return std::to_string(value); }
FND::String observedText(bool value) { return value ? "true" : "false"; }

FND::String observedText(const FND::Decimal& value) {
    if (!value.isValid()) return "no number";
    FND::String text = value.toString(28);
    if (text.find('.') == FND::String::npos) return text;
    text.resize(text.find_last_not_of('0') + 1);
    if (text.back() == '.') text += '0';
    return text;
}

FND::String observedText(const FND::String& value) {
    constexpr std::size_t most = 200;
    FND::String text = "\"";
    appendPrintable(text, std::string_view(value).substr(0, most));
    text += '"';
    if (value.size() > most) text += "... (" + std::to_string(value.size()) + " bytes)";
    return text;
}

FND::String observedText(const FND::DateTime& value) {
    if (!value.isValid()) return "no date";
    FND::String text;
    value.format(text);
    return text;
}

FND::String observedText(const FND::Identifier& value) { return value.toString(); }

namespace {

using ValueTypes = TypeList<LongType, StringType, DecimalType, BoolType, DateType, NexidType>;

// Tells where a function is called, once its arguments are there: they may call it as well.
class CallerMark final : public Node, public Code::Lowerable {
public:
    CallerMark(Observation& observation, std::size_t function,
               std::shared_ptr<const std::size_t> statement)
        : observation_(&observation), function_(function), statement_(std::move(statement)) {}

    std::int32_t execute() override {
        store(*observation_->callerOf(function_), positionOf(*statement_));
        return goOn;
    }
    Code::Ref lowerValue(Code::Builder& code, Code::Ref /*target*/) override {
        lowerStore(code, *observation_, observation_->callerOf(function_),
                   positionOf(*statement_) + 1);
        return {};
    }

private:
    Observation* const observation_;
    const std::size_t function_;
    const std::shared_ptr<const std::size_t> statement_;
};

// A call of a function. While it runs, the position is in the function.
template <class Type>
class ObservedCall final : public CallBase<Type>, public Code::Lowerable {
public:
    ObservedCall(std::unique_ptr<Node> call, Observation& observation, std::size_t function,
                 std::shared_ptr<const std::size_t> statement)
        : call_(static_cast<CallBase<Type>*>(call.release())),
          observation_(&observation),
          function_(function),
          statement_(std::move(statement)) {
        if (auto* const entered = dynamic_cast<FunctionCall*>(call_.get())) {
            entered->onEntry(std::make_unique<CallerMark>(observation, function, statement_));
        }
    }

    decltype(std::declval<CallBase<Type>&>().result()) result() override {
        const long before = *observation_->callerOf(function_);
        if constexpr (std::is_same_v<Type, VoidType>) {
            call_->result();
            leave(before);
        } else {
            decltype(auto) value = call_->result();
            leave(before);
            return value;
        }
    }

    Code::Ref lowerValue(Code::Builder& code, Code::Ref target) override {
        if (observation_->tellsSteps()) {
            return code.callNode<CallBase<Type>>(*this, target);
        }
        const long position = positionOf(*statement_) + 1;
        const Code::Ref value = code.value(*call_, target);
        lowerStore(code, *observation_, observation_->position(), position);
        return value;
    }

private:
    void leave(long caller) {
        if (observation_->keepsPosition()) {
            store(*observation_->position(), positionOf(*statement_));
        }
        store(*observation_->callerOf(function_), caller);
        if (observation_->listens()) observation_->left(function_);
    }

    const std::unique_ptr<CallBase<Type>> call_;
    Observation* const observation_;
    const std::size_t function_;
    const std::shared_ptr<const std::size_t> statement_;
};

}  // namespace

std::unique_ptr<Node> observedValue(std::unique_ptr<Node>& value, int typeWord,
                                    Observation& observation, std::size_t site) {
    return withType(ValueTypes(), typeWord, [&]<class Type>(Type) -> std::unique_ptr<Node> {
        return std::make_unique<ObservedValue<Type>>(std::move(value), observation, site);
    });
}

std::unique_ptr<Node> observedCall(std::unique_ptr<Node> call, int typeWord,
                                   Observation& observation, std::size_t function,
                                   std::shared_ptr<const std::size_t> statement) {
    return withType(ResultTypes(), typeWord, [&]<class Type>(Type) -> std::unique_ptr<Node> {
        return std::make_unique<ObservedCall<Type>>(std::move(call), observation, function,
                                                    std::move(statement));
    });
}

}  // namespace SCR
