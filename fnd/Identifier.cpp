#include "fnd/Identifier.h"

#include <charconv>
#include <limits>

namespace FND {
namespace {

void appendNumber(String& out, std::int64_t number) {
    char digits[std::numeric_limits<std::int64_t>::digits10 + 2];
    out.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

}  // namespace

void Identifier::format(String& out) const {
    out.clear();
    appendNumber(out, db_);
    out += ':';
    out += type();
    out += ':';
    appendNumber(out, id_);
    out += ':';
    appendNumber(out, rev_);
}

String Identifier::toString() const {
    String text;
    format(text);
    return text;
}

}  // namespace FND
