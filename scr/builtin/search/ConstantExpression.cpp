#include "scr/builtin/search/ConstantExpression.h"

#include <utility>

#include "scr/Interpreter.h"
#include "scr/message/Messages.h"
#include "scr/run/AutomataAccount.h"
#include "scr/run/CountedWork.h"
#include "scr/run/RunControl.h"

namespace SCR {

ConstantExpression::ConstantExpression(Interpreter& interpreter, const FND::String& pattern)
    : interpreter_(interpreter) {
    const AutomataScope scope(interpreter);
    patternCharge_ = FSM::Charge(FSM::blockBytes(pattern.size()));
    pattern_ = copyOf(pattern);
    interpreter.automata().expect(1);
}

ConstantExpression::~ConstantExpression() {
    endExpecting();
    interpreter_.automata().shareTaken(-share_);
}

void ConstantExpression::endExpecting() {
    if (std::exchange(isExpected_, false)) interpreter_.automata().expect(-1);
}

void ConstantExpression::compile() {
    const AutomataScope scope(interpreter_);
    AutomataAccount& automata = interpreter_.automata();
    endExpecting();
    interpreter_.runControl().askFor(RegExpr::millisecondsToCompile(pattern_));
    const std::int64_t share = automata.expressionShare();
    expression_ = std::make_shared<const RegExpr>(pattern_, share);
    if (expression_->isPlain()) return;
    share_ = share;
    automata.shareTaken(share);
}

std::optional<Messages::Message> ConstantExpression::build(Interpreter* interpreter,
                                                           std::size_t /*step*/,
                                                           const FND::String& /*file*/) {
    if (!expression().isValid()) return Messages::invalidRegularExpression(pattern_);
    // Others that adopt it compare the pattern.
    if (interpreter == nullptr || interpreter->filledScript() == nullptr) dropPattern();
    return std::nullopt;
}

bool ConstantExpression::adopt(const PendingBuild& built) {
    const auto* const other = dynamic_cast<const ConstantExpression*>(&built);
    if (other == nullptr || pattern_ != other->pattern_) return false;
    endExpecting();
    expression_ = other->expression_;
    dropPattern();
    return true;
}

void ConstantExpression::dropPattern() {
    FND::String().swap(pattern_);
    patternCharge_ = FSM::Charge();
}

}  // namespace SCR
