#include <cerrno>
#include <cstdio>
#include <string_view>

#include "scr/Output.h"

namespace SCR {

namespace {

// Where nobody is waited for, what the C library does is enough.
class StandardOutput final : public Output {
public:
    bool write(std::string_view text) override {
        return std::fwrite(text.data(), 1, text.size(), stdout) == text.size();
    }
    bool flush(bool /*mayWait*/) override { return std::fflush(stdout) == 0; }
};

}  // namespace

Output& standardOutput() {
    static StandardOutput output;
    return output;
}

}  // namespace SCR
