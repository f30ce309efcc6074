#include "scr/tree/FunctionCall.h"

#include "scr/tree/StatementParts.h"

namespace SCR {

namespace {

long executeFunction(RunControl& /*control*/, long function, long /*b*/, long /*c*/) {
    return Code::at<Function>(function).execute();
}
constexpr Code::Helper executeFunctionS{Code::guarded<executeFunction>};

}  // namespace

// Emits the body in place of the call, or a call of it. Either leads to the label `returned` after
// a return, and to `other` after any other end. Gives whether there is another end.
bool FunctionCall::lowerBody(Code::Builder& code, Code::Label& returned, Code::Label& other) const {
    constexpr std::size_t mostInlined = 16;
    StatementList::Parts& parts = function_->parts();
    if (parts.statements.size() <= mostInlined && code.mayInline(*function_)) {
        const Code::Builder::Inlined body(code, *function_);
        parts.lower(code);
        if (!function_->returnsResult()) code.leave(Node::goOn);
        returned = body.returned();
        other = body.other();
        return body.isOtherUsed();
    }
    const Code::Builder::Frame frame(code);
    returned = code.newLabel();
    other = code.newLabel();
    const Code::Ref end = code.call(executeFunctionS, code.address(function_));
    code.jumpIf(Code::Relation::NotEqual, end, code.constant(Node::returned), other);
    return true;
}

Code::Ref FunctionCall::lowerCall(Code::Builder& code, const Node* place,
                                  const std::function<Code::Ref(Code::Ref)>& load,
                                  Code::Ref null) const {
    for (const std::unique_ptr<Node>& binding : bindings_) code.statement(*binding);
    const std::size_t opened = control_ != nullptr ? code.openCall(*place) : 0;
    Code::Label returned = 0;
    Code::Label other = 0;
    const bool hasOther = lowerBody(code, returned, other);
    code.bind(returned);
    Code::Ref value;
    if (!null) {
        code.bind(other);
    } else if (!hasOther) {
        value = load({});
    } else {
        value = code.temporary();
        if (const Code::Ref loaded = load(value); loaded != value) {
            code.emit(Code::Op::Move, value, loaded);
        }
        const Code::Label end = code.newLabel();
        code.jumpTo(end);
        code.bind(other);
        code.emit(Code::Op::Move, value, null);
        code.bind(end);
    }
    if (control_ != nullptr) code.closeCall(opened);
    return value;
}

}  // namespace SCR
