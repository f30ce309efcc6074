#pragma once

#include <array>
#include <cstddef>
#include <string_view>

namespace SCR {

/// The operators of the language. The name of an operator's descriptor is the type of its operands
/// followed by its sign, as in "Long+".
enum class Operator : unsigned char {
    Assign,
    Equal,
    NotEqual,
    Less,
    Greater,
    LessOrEqual,
    GreaterOrEqual,
    Add,
    Subtract,
    Multiply,
    Divide,
    Remainder,
    And,
    Or,
    Negate
};

/// The signs, in the order of the operators.
inline constexpr std::array<std::string_view, 15> operatorSignsS{
    "=", "==", "!=", "<", ">", "<=", ">=", "+", "-", "*", "/", "%", "AND", "OR", "Negation"};

/// The operator with the given sign, which must be one of those above.
constexpr Operator operatorOf(std::string_view sign) {
    const bool hasTwoBytes = sign.size() > 1;
    switch (sign[0]) {
        case '=':
            return hasTwoBytes ? Operator::Equal : Operator::Assign;
        case '!':
            return Operator::NotEqual;
        case '<':
            return hasTwoBytes ? Operator::LessOrEqual : Operator::Less;
        case '>':
            return hasTwoBytes ? Operator::GreaterOrEqual : Operator::Greater;
        case '+':
            return Operator::Add;
        case '-':
            return Operator::Subtract;
        case '*':
            return Operator::Multiply;
        case '/':
            return Operator::Divide;
        case '%':
            return Operator::Remainder;
        case 'A':
            return Operator::And;
        case 'O':
            return Operator::Or;
        default:
            return Operator::Negate;
    }
}

static_assert([] {
    for (std::size_t i = 0; i < operatorSignsS.size(); ++i) {
        if (operatorOf(operatorSignsS[i]) != static_cast<Operator>(i)) return false;
    }
    return true;
}());

}  // namespace SCR
