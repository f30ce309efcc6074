// The search of regexpr_search by PCRE2's just-in-time compiler: the place of the first match in
// each line.
#define PCRE2_CODE_UNIT_WIDTH 8
#include <pcre2.h>

#include <cstdio>

#include "Texts.h"

int main() {
    const std::vector<std::string> texts = linesOf("texts.txt");
    constexpr const char* pattern = "[A-Z][A-Z][0-9]+-[0-9]+";
    int error = 0;
    std::size_t offset = 0;
    pcre2_code* const code = pcre2_compile(reinterpret_cast<PCRE2_SPTR>(pattern),
                                           PCRE2_ZERO_TERMINATED, 0, &error, &offset, nullptr);
    if (code == nullptr || pcre2_jit_compile(code, PCRE2_JIT_COMPLETE) != 0) return 1;
    pcre2_match_data* const match = pcre2_match_data_create(1, nullptr);
    long sum = 0;
    for (int pass = 0; pass < 60; ++pass) {
        for (const std::string& text : texts) {
            const int found = pcre2_jit_match(code, reinterpret_cast<PCRE2_SPTR>(text.data()),
                                              text.size(), 0, 0, match, nullptr);
            sum += found >= 0 ? static_cast<long>(pcre2_get_ovector_pointer(match)[0]) : -1;
        }
    }
    std::printf("%ld\n", sum);
    pcre2_match_data_free(match);
    pcre2_code_free(code);
}
