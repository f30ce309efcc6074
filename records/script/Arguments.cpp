#include "records/script/Arguments.h"

#include <algorithm>

namespace Records {

std::vector<Argument> popArguments(SCR::ParserStack& stack) {
    std::vector<Argument> arguments;
    for (int count = stack.topNumParams(); count > 0; --count) {
        const SCR::OperandTraits traits = stack.traits();
        const int type = stack.popType();
        arguments.push_back({std::unique_ptr<SCR::Node>(stack.popData()), type, traits});
    }
    std::reverse(arguments.begin(), arguments.end());
    return arguments;
}

}  // namespace Records
