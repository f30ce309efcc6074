#include <array>
#include <optional>

#include "modules/Support.h"

namespace Modules::CheckModule {

namespace {

// Nothing that is checked here is longer, blanks included.
constexpr std::size_t longestS = 128;

bool isDigit(char byte) { return byte >= '0' && byte <= '9'; }
bool isLetter(char byte) { return byte >= 'A' && byte <= 'Z'; }
bool isAlphanumeric(char byte) { return isDigit(byte) || isLetter(byte); }

bool areAll(std::string_view text, bool (*holds)(char)) {
    return std::all_of(text.begin(), text.end(), holds);
}

/// A number as people write it, without blanks and in upper case.
std::string compact(std::string_view text, std::string_view dropped = " -") {
    std::string made;
    for (const char byte : text.substr(0, longestS)) {
        if (dropped.find(byte) != std::string_view::npos) continue;
        made += static_cast<char>(byte >= 'a' && byte <= 'z' ? byte - 32 : byte);
    }
    return made;
}

/// What is wrong with a text; null when nothing is.
using Fault = const char* (*)(const std::string& text);

// The sum of the digits, every second one from the right, but not the last, doubled.
int luhnSum(std::string_view digits) {
    int sum = 0;
    for (std::size_t i = 0; i < digits.size(); ++i) {
        const int digit = digits[digits.size() - 1 - i] - '0';
        const int value = i % 2 == 1 ? 2 * digit : digit;
        sum += value > 9 ? value - 9 : value;
    }
    return sum;
}

const char* luhnFault(const std::string& text) {
    if (text.size() < 2) return "too short";
    if (!areAll(text, isDigit)) return "not only digits";
    return luhnSum(text) % 10 == 0 ? nullptr : "wrong check digit";
}

struct IbanLength {
    char country[3];
    unsigned char length;
};

constexpr IbanLength ibanLengthsS[] = {
    {"AD", 24}, {"AE", 23}, {"AL", 28}, {"AT", 20}, {"AZ", 28}, {"BA", 20}, {"BE", 16}, {"BG", 22},
    {"BH", 22}, {"BI", 27}, {"BR", 29}, {"BY", 28}, {"CH", 21}, {"CR", 22}, {"CY", 28}, {"CZ", 24},
    {"DE", 22}, {"DJ", 27}, {"DK", 18}, {"DO", 28}, {"EE", 20}, {"EG", 29}, {"ES", 24}, {"FI", 18},
    {"FK", 18}, {"FO", 18}, {"FR", 27}, {"GB", 22}, {"GE", 22}, {"GI", 23}, {"GL", 18}, {"GR", 27},
    {"GT", 28}, {"HR", 21}, {"HU", 28}, {"IE", 22}, {"IL", 23}, {"IQ", 23}, {"IS", 26}, {"IT", 27},
    {"JO", 30}, {"KW", 30}, {"KZ", 20}, {"LB", 28}, {"LC", 32}, {"LI", 21}, {"LT", 20}, {"LU", 20},
    {"LV", 21}, {"LY", 25}, {"MC", 27}, {"MD", 24}, {"ME", 22}, {"MK", 19}, {"MN", 20}, {"MR", 27},
    {"MT", 31}, {"MU", 30}, {"NI", 28}, {"NL", 18}, {"NO", 15}, {"OM", 23}, {"PK", 24}, {"PL", 28},
    {"PS", 29}, {"PT", 25}, {"QA", 29}, {"RO", 24}, {"RS", 22}, {"RU", 33}, {"SA", 24}, {"SC", 31},
    {"SD", 18}, {"SE", 24}, {"SI", 19}, {"SK", 24}, {"SM", 27}, {"SO", 23}, {"ST", 25}, {"SV", 28},
    {"TL", 23}, {"TN", 24}, {"TR", 26}, {"UA", 29}, {"VA", 22}, {"VG", 24}, {"XK", 20},
};

const char* ibanFault(const std::string& text) {
    if (text.size() < 4) return "too short";
    if (!areAll(text, isAlphanumeric)) return "not only letters and digits";
    const std::string_view country = std::string_view(text).substr(0, 2);
    if (!areAll(country, isLetter)) return "no country at the start";
    const auto* const found =
        std::find_if(std::begin(ibanLengthsS), std::end(ibanLengthsS),
                     [&](const IbanLength& entry) { return country == entry.country; });
    if (found == std::end(ibanLengthsS)) return "unknown country";
    if (text.size() != found->length) return "wrong length for the country";
    unsigned rest = 0;
    for (const char byte : text.substr(4) + text.substr(0, 4)) {
        rest = isDigit(byte) ? rest * 10 + static_cast<unsigned>(byte - '0')
                             : rest * 100 + static_cast<unsigned>(byte - 'A' + 10);
        rest %= 97;
    }
    return rest == 1 ? nullptr : "wrong check digits";
}

const char* bicFault(const std::string& text) {
    if (text.size() != 8 && text.size() != 11) return "neither 8 nor 11 characters";
    const std::string_view all = text;
    if (!areAll(all.substr(0, 4), isAlphanumeric)) return "no bank at the start";
    if (!areAll(all.substr(4, 2), isLetter)) return "no country at place 4";
    return areAll(all.substr(6), isAlphanumeric) ? nullptr : "not only letters and digits";
}

const char* eanFault(const std::string& text) {
    const std::size_t size = text.size();
    if (size != 8 && size != 12 && size != 13 && size != 14)
        return "neither 8, 12, 13 nor 14 digits";
    if (!areAll(text, isDigit)) return "not only digits";
    int sum = 0;
    for (std::size_t i = 0; i < size; ++i) {
        sum += (text[size - 1 - i] - '0') * (i % 2 == 1 ? 3 : 1);
    }
    return sum % 10 == 0 ? nullptr : "wrong check digit";
}

const char* isinFault(const std::string& text) {
    if (text.size() != 12) return "not 12 characters";
    if (!areAll(text, isAlphanumeric)) return "not only letters and digits";
    if (!areAll(std::string_view(text).substr(0, 2), isLetter)) return "no country at the start";
    if (!isDigit(text.back())) return "no check digit at the end";
    std::string digits;
    for (const char byte : text) {
        digits += isDigit(byte) ? std::string(1, byte) : std::to_string(byte - 'A' + 10);
    }
    return luhnSum(digits) % 10 == 0 ? nullptr : "wrong check digit";
}

// The calling codes of countries and services. No code is the start of another one.
constexpr short callingCodesS[] = {
    1,   7,   20,  27,  30,  31,  32,  33,  34,  36,  39,  40,  41,  43,  44,  45,  46,  47,
    48,  49,  51,  52,  53,  54,  55,  56,  57,  58,  60,  61,  62,  63,  64,  65,  66,  81,
    82,  84,  86,  90,  91,  92,  93,  94,  95,  98,  211, 212, 213, 216, 218, 220, 221, 222,
    223, 224, 225, 226, 227, 228, 229, 230, 231, 232, 233, 234, 235, 236, 237, 238, 239, 240,
    241, 242, 243, 244, 245, 246, 247, 248, 249, 250, 251, 252, 253, 254, 255, 256, 257, 258,
    260, 261, 262, 263, 264, 265, 266, 267, 268, 269, 290, 291, 297, 298, 299, 350, 351, 352,
    353, 354, 355, 356, 357, 358, 359, 370, 371, 372, 373, 374, 375, 376, 377, 378, 379, 380,
    381, 382, 383, 385, 386, 387, 389, 420, 421, 423, 500, 501, 502, 503, 504, 505, 506, 507,
    508, 509, 590, 591, 592, 593, 594, 595, 596, 597, 598, 599, 670, 672, 673, 674, 675, 676,
    677, 678, 679, 680, 681, 682, 683, 685, 686, 687, 688, 689, 690, 691, 692, 800, 808, 850,
    852, 853, 855, 856, 870, 878, 880, 881, 882, 883, 886, 888, 960, 961, 962, 963, 964, 965,
    966, 967, 968, 970, 971, 972, 973, 974, 975, 976, 977, 979, 992, 993, 994, 995, 996, 998,
};

// The calling code that `digits` begin with, or 0.
int callingCode(std::string_view digits) {
    int code = 0;
    for (const char byte : digits.substr(0, 3)) {
        code = code * 10 + (byte - '0');
        if (std::binary_search(std::begin(callingCodesS), std::end(callingCodesS), code)) {
            return code;
        }
    }
    return 0;
}

// A number in the form +49301234, or what it is without that form. `country` is the calling code
// that a number with a single 0 at the start gets, or empty.
std::string phoneOf(std::string_view text, std::string_view country) {
    std::string made = compact(text, " -/().");
    if (made.starts_with("00")) return "+" + made.substr(2);
    if (made.starts_with('0') && !country.empty())
        return "+" + compact(country, " +") + made.substr(1);
    return made;
}

const char* phoneFault(const std::string& text) {
    constexpr std::size_t most = 15;
    constexpr std::size_t least = 7;
    if (!text.starts_with('+')) return "no + or 00 at the start";
    const std::string_view digits = std::string_view(text).substr(1);
    if (!areAll(digits, isDigit)) return "not only digits";
    if (digits.size() > most) return "more than 15 digits";
    if (digits.size() < least) return "fewer than 7 digits";
    return callingCode(digits) != 0 ? nullptr : "unknown country code";
}

template <Fault fault>
bool is(std::string_view text) {
    return text.size() <= longestS && fault(compact(text)) == nullptr;
}

template <Fault fault>
std::string_view faultOf(std::string_view text) {
    if (text.size() > longestS) return "too long";
    const char* const found = fault(compact(text));
    return found != nullptr ? found : "";
}

bool isPhone(std::string_view text, std::optional<std::string_view> country) {
    return text.size() <= longestS && phoneFault(phoneOf(text, country.value_or(""))) == nullptr;
}

std::string_view phoneFaultOf(std::string_view text, std::optional<std::string_view> country) {
    if (text.size() > longestS) return "too long";
    const char* const found = phoneFault(phoneOf(text, country.value_or("")));
    return found != nullptr ? found : "";
}

FND::String phone(std::string_view text, std::optional<std::string_view> country) {
    const std::string made = phoneOf(text, country.value_or(""));
    return text.size() <= longestS && phoneFault(made) == nullptr ? made : "";
}

long phoneCountry(std::string_view text) {
    const std::string made = phoneOf(text, "");
    return phoneFault(made) == nullptr ? callingCode(std::string_view(made).substr(1)) : 0;
}

FND::String luhnDigit(std::string_view digits) {
    const std::string text = compact(digits);
    if (digits.size() > longestS || !areAll(text, isDigit)) refuse("not only digits", digits);
    return std::to_string((10 - luhnSum(text + "0") % 10) % 10);
}

constexpr ModuleFunction functionsS[] = {
    {"Bool isLuhn(String digits)", SCR::addFunction<is<luhnFault>>, Effect::None,
     "Whether the last digit is the check digit of those before it, as on cards and of IMEI. "
     "Blanks "
     "and `-` do not count, here and in the other checks, and letters may be small.",
     R"(check::isLuhn("4111 1111 1111 1111"))"},
    {"String luhnFault(String digits)", SCR::addFunction<faultOf<luhnFault>>, Effect::None,
     "Why it is not: `too short`, `too long`, `not only digits` or `wrong check digit`; empty when "
     "it is.",
     R"(check::luhnFault("4111111111111112") == "wrong check digit")"},
    {"String luhnDigit(String digits)", SCR::addFunction<luhnDigit>, Effect::None,
     "The check digit for digits that have none yet. A text with something else is an error, and "
     "the result empty.",
     R"(check::luhnDigit("7992739871") == "3")"},
    {"Bool isIban(String text)", SCR::addFunction<is<ibanFault>>, Effect::None,
     "Whether it is an account number of the length of its country, with right check digits.",
     R"(check::isIban("DE89 3704 0044 0532 0130 00"))"},
    {"String ibanFault(String text)", SCR::addFunction<faultOf<ibanFault>>, Effect::None,
     "Why it is not: `unknown country`, `wrong length for the country`, `wrong check digits` and "
     "so "
     "on; empty when it is.",
     R"(check::ibanFault("XX00") == "unknown country")"},
    {"Bool isBic(String text)", SCR::addFunction<is<bicFault>>, Effect::None,
     "Whether it has the form of a bank's code.", R"(check::isBic("DEUTDEFF500"))"},
    {"String bicFault(String text)", SCR::addFunction<faultOf<bicFault>>, Effect::None,
     "Why it has not; empty when it has.",
     R"(check::bicFault("DEUT") == "neither 8 nor 11 characters")"},
    {"Bool isEan(String text)", SCR::addFunction<is<eanFault>>, Effect::None,
     "Whether it is an article's number of 8, 12, 13 or 14 digits with the right check digit.",
     R"(check::isEan("4006381333931"))"},
    {"String eanFault(String text)", SCR::addFunction<faultOf<eanFault>>, Effect::None,
     "Why it is not; empty when it is.",
     R"(check::eanFault("400638133393a") == "not only digits")"},
    {"Bool isIsin(String text)", SCR::addFunction<is<isinFault>>, Effect::None,
     "Whether it is a security's number with the right check digit.",
     R"(check::isIsin("US0378331005"))"},
    {"String isinFault(String text)", SCR::addFunction<faultOf<isinFault>>, Effect::None,
     "Why it is not; empty when it is.",
     R"(check::isinFault("US0378331006") == "wrong check digit")"},
    {"Bool isPhone(String text, [String country])", SCR::addFunction<isPhone>, Effect::None,
     "Whether it is a phone number of 7 to 15 digits after `+` or `00`, with a country code that "
     "is "
     "in use. Blanks and `-/().` do not count. With `country`, such as \"49\", numbers may also "
     "begin with a single 0.",
     R"(check::isPhone("+49 (30) 1234-567") and check::isPhone("030 1234567", "49"))"},
    {"String phoneFault(String text, [String country])", SCR::addFunction<phoneFaultOf>,
     Effect::None, "Why it is not; empty when it is.",
     R"(check::phoneFault("0049") == "fewer than 7 digits")"},
    {"String phone(String text, [String country])", SCR::addFunction<phone>, Effect::None,
     "The number in the form of E.164, as +49301234567; empty when it is none.",
     R"(check::phone("030/123 45 67", "49") == "+49301234567")"},
    {"Long phoneCountry(String text)", SCR::addFunction<phoneCountry>, Effect::None,
     "The country code of a number after `+` or `00`; 0 when it is none.",
     R"(check::phoneCountry("+49301234567") == 49)"},
};

constexpr SCR::ModuleTable tableS{
    "check", "Numbers with check digits and forms, each with the reason when it fails.",
    functionsS};

}  // namespace

}  // namespace Modules::CheckModule

KESTREL_MODULE(check, Modules::CheckModule::tableS);
