// Checks numbers in records: card numbers, bank accounts, telephone numbers.
//
//     use numbers;
//     if (luhnIsValid(card) and ibanIsValid(account)) { ... numbers::msisdn(caller, "49") ... }

#include <algorithm>
#include <cstddef>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>

#include "scr/HostExtension.h"
#include "scr/Version.h"

namespace {

bool isDigit(char c) { return c >= '0' && c <= '9'; }
bool isCapital(char c) { return c >= 'A' && c <= 'Z'; }

// Whether `text` has two digits or more and the last one is the check digit of the others (ISO/IEC
// 7812-1, annex B).
bool luhnIsValid(std::string_view text) {
    int sum = 0;
    bool isDoubled = false;
    for (std::size_t i = text.size(); i-- > 0; isDoubled = !isDoubled) {
        if (!isDigit(text[i])) return false;
        const int digit = (text[i] - '0') * (isDoubled ? 2 : 1);
        sum += digit > 9 ? digit - 9 : digit;
    }
    return text.size() >= 2 && sum % 10 == 0;
}

// Whether `text`, without its blanks, is an account number whose check digits fit (ISO 13616-1).
// The lengths of the numbers in each country are not checked.
bool ibanIsValid(std::string_view text) {
    std::string number;
    for (const char c : text) {
        if (c != ' ') number += c;
    }
    if (number.size() < 15 || number.size() > 34) return false;
    if (!isCapital(number[0]) || !isCapital(number[1])) return false;
    if (!isDigit(number[2]) || !isDigit(number[3])) return false;
    // The first four characters go to the end, letters count from 10, and the remainder of the
    // division by 97 must be 1.
    int remainder = 0;
    for (std::size_t i = 0; i < number.size(); ++i) {
        const char c = number[(i + 4) % number.size()];
        if (isDigit(c)) {
            remainder = (remainder * 10 + (c - '0')) % 97;
        } else if (isCapital(c)) {
            remainder = (remainder * 100 + (c - 'A' + 10)) % 97;
        } else {
            return false;
        }
    }
    return remainder == 1;
}

// A telephone number in its international form, "+" and at most 15 digits (ITU-T E.164); empty when
// `text` is none. A number with one leading 0, or none, belongs to `country`, such as "49". An
// exception becomes a message for scripts, which get an empty text.
FND::String msisdn(std::string_view text, std::string_view country) {
    if (country.empty() || !std::all_of(country.begin(), country.end(), isDigit)) {
        throw std::invalid_argument("'" + std::string(country) + "' is no country code");
    }
    FND::String digits;
    bool isInternational = false;
    for (const char c : text) {
        if (isDigit(c)) {
            digits += c;
        } else if (c == '+' && digits.empty() && !isInternational) {
            isInternational = true;
        } else if (std::string_view(" -/().").find(c) == std::string_view::npos) {
            return {};
        }
    }
    if (!isInternational) {
        if (digits.starts_with("00")) {
            digits.erase(0, 2);
        } else {
            if (digits.starts_with('0')) digits.erase(0, 1);
            digits.insert(0, country);
        }
    }
    if (digits.size() < 7 || digits.size() > 15 || digits.front() == '0') return {};
    return '+' + digits;
}

}  // namespace

KESTREL_EXTENSION_VERSION(numbers);

// "use numbers;" calls this function of libnumbers.so: the name of the library, then
// "_KestrelExtension". The interpreter owns the result, and each interpreter gets its own. So
// functions with a state keep it in the extension and need no lock.
extern "C" [[gnu::visibility("default")]] SCR::Extension* numbers_KestrelExtension() {
    auto numbers = std::make_unique<SCR::HostExtension>("numbers");
    numbers->function("luhnIsValid", luhnIsValid)->mayRunScript(false);
    numbers->function("ibanIsValid", ibanIsValid)->mayRunScript(false);
    numbers->function("msisdn", msisdn)->mayRunScript(false);
    return numbers.release();
}
