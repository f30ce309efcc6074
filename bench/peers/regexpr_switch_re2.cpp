// The choice of regexpr_switch by RE2::Set.
#include <re2/set.h>

#include <algorithm>
#include <cstdio>

#include "Texts.h"

int main() {
    re2::RE2::Set set(re2::RE2::DefaultOptions, re2::RE2::ANCHOR_BOTH);
    for (const std::string& pattern : linesOf("patterns.txt")) set.Add(pattern, nullptr);
    set.Compile();
    std::vector<std::string> texts = linesOf("texts.txt");
    for (std::string& text : texts) text.resize(text.find(' '));
    long sum = 0;
    std::vector<int> matching;
    for (int pass = 0; pass < 300; ++pass) {
        for (const std::string& text : texts) {
            sum += set.Match(text, &matching)
                       ? *std::min_element(matching.begin(), matching.end()) + 1
                       : 1000;
        }
    }
    std::printf("%ld\n", sum);
}
