#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>

#include "fnd/String.h"
#include "fsm/store/Account.h"
#include "scr/builtin/search/RegExpr.h"
#include "scr/run/PendingBuilds.h"

namespace SCR {

/// The constant regular expression of a call, which is compiled once the parse is over.
class ConstantExpression final : public PendingBuild {
public:
    /// The interpreter must outlive it.
    ConstantExpression(Interpreter& interpreter, const FND::String& pattern);
    ~ConstantExpression() override;

    std::optional<Messages::Message> build(Interpreter* interpreter, std::size_t step,
                                           const FND::String& file) override;
    bool adopt(const PendingBuild& built) override;

    /// The expression. Compiled at once when a call is evaluated earlier, for example by a host
    /// that tries out a condition as soon as it gets it. An invalid expression matches nothing
    /// then.
    const RegExpr& expression() {
        if (!expression_) [[unlikely]]
            compile();
        return *expression_;
    }

private:
    void compile();
    void endExpecting();
    void dropPattern();

    Interpreter& interpreter_;
    FSM::Charge patternCharge_;
    FND::String pattern_;
    bool isExpected_ = true;
    std::int64_t share_ = 0;
    std::shared_ptr<const RegExpr> expression_;
};

}  // namespace SCR
