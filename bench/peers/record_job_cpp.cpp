// The record job written by hand: each line is split at its commas, and prices are whole numbers of
// ten-thousandths.
#include <charconv>
#include <cstdio>
#include <fstream>
#include <string>
#include <string_view>

namespace {

// A text such as "0.1250" as ten-thousandths.
long tenThousandths(std::string_view text) {
    const std::size_t point = std::min(text.find('.'), text.size());
    long whole = 0;
    std::from_chars(text.data(), text.data() + point, whole);
    long fraction = 0;
    for (std::size_t digit = 1; digit <= 4; ++digit) {
        const bool hasDigit = point + digit < text.size();
        fraction = fraction * 10 + (hasDigit ? text[point + digit] - '0' : 0);
    }
    return whole * 10000 + fraction;
}

std::string spelled(long price) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%ld.%04ld", price / 10000, price % 10000);
    return digits;
}

}  // namespace

int main() {
    std::ifstream input("calls.csv");
    std::string line;
    std::string output;
    long total = 0;
    long records = 0;
    while (std::getline(input, line)) {
        std::string_view fields[4];
        std::string_view rest = line;
        for (std::string_view& field : fields) {
            field = rest.substr(0, rest.find(','));
            rest.remove_prefix(std::min(field.size() + 1, rest.size()));
        }
        long seconds = 0;
        std::from_chars(fields[2].data(), fields[2].data() + fields[2].size(), seconds);
        const long price = tenThousandths(fields[3]) * seconds;
        total += price;
        ++records;
        for (const std::string_view field : fields) output.append(field) += ',';
        output.append(spelled(price)) += '\n';
        if (output.size() < 60000) continue;
        std::fwrite(output.data(), 1, output.size(), stdout);
        output.clear();
    }
    output += std::to_string(records) + " " + spelled(total) + "\n";
    std::fwrite(output.data(), 1, output.size(), stdout);
}
