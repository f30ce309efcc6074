// The smallest extension library: one function, which writes a number as people say it.
//
//     use numbers;
//     logStdout(ordinal(22));     prints 22nd

#include <memory>
#include <string>

#include "scr/HostExtension.h"
#include "scr/Version.h"

namespace {

FND::String ordinal(long number) {
    const long tens = number % 100;
    const long ones = tens / 10 == 1 ? 0 : number % 10;
    return std::to_string(number) + (ones == 1 ? "st" : ones == 2 ? "nd" : ones == 3 ? "rd" : "th");
}

}  // namespace

KESTREL_EXTENSION_VERSION(numbers);

// "use numbers;" calls this function of libnumbers.so: the name of the library, then
// "_KestrelExtension". The interpreter owns the result, and each interpreter gets its own. So
// functions with a state keep it in the extension and need no lock.
extern "C" [[gnu::visibility("default")]] SCR::Extension* numbers_KestrelExtension() {
    auto numbers = std::make_unique<SCR::HostExtension>("numbers");
    numbers->function("ordinal", ordinal)->mayRunScript(false);
    return numbers.release();
}
