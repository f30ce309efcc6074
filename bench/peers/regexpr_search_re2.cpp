// The search of regexpr_search by RE2 itself: the place of the first match in each line.
#include <re2/re2.h>

#include <cstdio>

#include "Texts.h"

int main() {
    const std::vector<std::string> texts = linesOf("texts.txt");
    const re2::RE2 pattern("[A-Z][A-Z][0-9]+-[0-9]+");
    long sum = 0;
    for (int pass = 0; pass < 60; ++pass) {
        for (const std::string& text : texts) {
            re2::StringPiece found;
            const bool matches =
                pattern.Match(text, 0, text.size(), re2::RE2::UNANCHORED, &found, 1);
            sum += matches ? found.data() - text.data() : -1;
        }
    }
    std::printf("%ld\n", sum);
}
