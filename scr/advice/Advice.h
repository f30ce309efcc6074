#pragma once

#include <string_view>
#include <vector>

#include "fnd/String.h"
#include "scr/Log.h"
#include "scr/advice/Scout.h"
#include "scr/call/Operator.h"
#include "scr/message/Messages.h"

namespace SCR {

class FctDescr;
class Interpreter;

/// What is known of an error when it is reported.
struct Fault {
    Messages::Message message;
    /// Where it is: the place that is shown, then the operands in the order of the text.
    std::vector<Span> spans;
    /// The operands' type words and the operator, of a binary one.
    bool isBinary = false;
    Operator sign = Operator::Assign;
    int left = 0;
    int right = 0;
    /// The function called, or null.
    const FctDescr* function = nullptr;

    Span operand(std::size_t index) const {
        return index + 1 < spans.size() ? spans[index + 1] : Span();
    }
};

/// Finds out what helps to mend an error.
class Advice {
public:
    /// The parser has read up to `scout`'s last token.
    Advice(const Interpreter& interpreter, Scout& scout, const Fault& fault, Diagnostic& diagnostic)
        : interpreter_(interpreter), scout_(scout), fault_(fault), diagnostic_(diagnostic) {}

    /// Sets the code, place, explanation and cure.
    void give();

private:
    const Interpreter& interpreter_;
    Scout& scout_;
    const Fault& fault_;
    Diagnostic& diagnostic_;

    void find();
    void syntax();
    void name();
    bool nameByNeighbours(Span span, const Scout::Token& next);
    bool method(Span span);
    bool goesOnStrangely();
    void operands();
    void argument();
    void rest();

    // Parts of `syntax`; each is true when it knows the cause.
    bool openText(const Scout::Token& found);
    bool strangeSign(const Scout::Token& found);
    bool otherOperator(const Scout::Token& found, const Scout::Token& last);
    bool declaration(const Scout::Token& found, const Scout::Token& last);
    bool header(const Scout::Token& found, const Scout::Token& last);
    bool brackets(const Scout::Token& found, const Scout::Token& last);
    bool statement(const Scout::Token& found, const Scout::Token& last);
    bool openCall(const Scout::Token& found, const Scout::Token& last);
    bool operatorWord(const Scout::Token& found);
    bool closesInLine(const Scout::Token& found) const;
    bool innerQuotes(const Scout::Token& found, const Scout::Token& last);

    Scout::Token beforeParentheses(bool& endsDo) const;
    bool say(MessageCode code, Span span, FND::String explanation, FND::String cure = {});
    void note(const FND::String& text, Span span);
    void change(Span span, FND::String text);
    // Sets a cure and the change that makes it.
    void cureBy(Span span, const FND::String& text);
    // Says how to make a value of the type `to` of the one at `span`.
    void convert(Span span, int from, int to);
    void pattern();
    // The function called, with the names of its parameters.
    FND::String signatureOf() const;
};

/// The name among `candidates` that is most like `name`; empty when none is like it.
FND::String nearestName(std::string_view name, const std::vector<FND::String>& candidates);

/// "Long" with its article: "a Long".
FND::String aType(int typeWord);
/// Whether values of the base type `type` are numbers.
bool isNumber(int type);
/// The function that converts between two types; empty when there is none.
std::string_view conversionOf(int from, int to);

}  // namespace SCR
