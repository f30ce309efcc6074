#include "scr/value/Words.h"

#include <algorithm>

namespace SCR {

namespace {

struct Entry {
    std::string_view text;
    Word word = Word::None;
};

constexpr Entry wordsS[] = {
    {"and", Word::BoolOperator},
    {"AND", Word::BoolOperator},
    {"or", Word::BoolOperator},
    {"OR", Word::BoolOperator},
    {"use", Word::Use},
    {"regExprSwitch", Word::RegExprSwitch},
    {"switch", Word::Switch},
    {"case", Word::Case},
    {"default", Word::Default},
    {"return", Word::Return},
    {"break", Word::Break},
    {"do", Word::Do},
    {"while", Word::While},
    {"if", Word::If},
    {"else", Word::Else},
    {"for", Word::For},
    {"const", Word::Const},
    {"function", Word::Function},
    {"Bool", Word::TypeName},
    {"Date", Word::TypeName},
    {"Decimal", Word::TypeName},
    {"Ebuf", Word::TypeName},
    {"File", Word::TypeName},
    {"Flist", Word::TypeName},
    {"Iterator", Word::TypeName},
    {"Long", Word::TypeName},
    {"Nexid", Word::TypeName},
    {"Nxid", Word::TypeName},
    {"String", Word::TypeName},
    {"true", Word::BoolConstant},
    {"false", Word::BoolConstant},
};

// Functions of hosts. If their first argument is an identifier, it is the name of a field.
constexpr std::array<std::string_view, 19> fieldFunctionsS{"edrString",
                                                           "edrLong",
                                                           "edrDate",
                                                           "edrDecimal",
                                                           "edrNew",
                                                           "edrAddDatablock",
                                                           "edrNumDatablocks",
                                                           "edrDatablockIsValid",
                                                           "edrConnectToken",
                                                           "edrFieldConnectInfo",
                                                           "edrFieldTokenBytePos",
                                                           "edrDeleteField",
                                                           "edrDeleteDatablock",
                                                           "edrMissingInput",
                                                           "edrEmptyInput",
                                                           "edrInputState",
                                                           "edrInternalState",
                                                           "edrNexid",
                                                           "edrArrayIndex"};

// The words where their lengths and ends say, or after that. At most half of the slots are taken.
constexpr std::size_t numSlotsS = 128;

constexpr std::size_t slotOf(std::string_view word) {
    const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(word[i]); };
    return (word.size() + 5U * byte(0) + 19U * byte(word.size() - 1)) % numSlotsS;
}

constexpr std::array<Entry, numSlotsS> slotsS = [] {
    std::array<Entry, numSlotsS> slots{};
    for (const Entry& entry : wordsS) {
        std::size_t slot = slotOf(entry.text);
        while (!slots[slot].text.empty()) slot = (slot + 1) % numSlotsS;
        slots[slot] = entry;
    }
    return slots;
}();

}  // namespace

Word wordOf(std::string_view text) {
    std::size_t slot = slotOf(text);
    while (!slotsS[slot].text.empty()) {
        if (slotsS[slot].text == text) return slotsS[slot].word;
        slot = (slot + 1) % numSlotsS;
    }
    return Word::None;
}

bool isHandleType(std::string_view name) {
    return name == "Nxid" || name == "Ebuf" || name == "Flist" || name == "Iterator";
}

std::vector<std::string_view> languageWords() {
    std::vector<std::string_view> words;
    for (const Entry& entry : wordsS) words.push_back(entry.text);
    return words;
}

bool namesField(std::string_view function) {
    if (!function.starts_with("edr")) return false;
    return std::find(fieldFunctionsS.begin(), fieldFunctionsS.end(), function) !=
           fieldFunctionsS.end();
}

bool isName(std::string_view text) {
    return !text.empty() && beginsName(text.front()) &&
           std::all_of(text.begin(), text.end(), isOfName);
}

}  // namespace SCR
