#pragma once

#include <string_view>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

/// Scrambles script texts so that their source is not readable at a glance, and reads them back.
/// This is no protection: a scrambled text carries everything that is needed to read it, and
/// changes to it are not noticed.
///
/// A scrambled text is the magic "0A42" followed by bytes as two hexadecimal digits each: 8 mask
/// bytes, the length of the key (masked with the first mask byte), the key (masked) and the plain
/// text (masked, and XORed with the key over and over). Each line has 80 characters, and the text
/// has no line feed at its end. It is a little more than twice as long as the plain text.
///
/// Thread rule: no state; every operation may run on any number of threads at once. All take time
/// linear in their input and throw nothing but `std::bad_alloc`.
class KESTREL_API Crypt {
public:
    /// Stores the scrambled form of `plain` (any bytes) in `scrambled`, with a new mask and a new
    /// key of 6 to 10 bytes from the system's random generator. Always true: when the system has no
    /// random bytes, the clock is used, as nothing here depends on secrecy.
    static bool encrypt(const FND::String& plain, FND::String& scrambled);

    /// Stores the plain text of `scrambled` in `plain`. False, with `plain` unchanged, when
    /// `scrambled` is not well-formed: no magic, a character that is no hexadecimal digit (of
    /// either case) where one must stand, a key that is missing, cut or of length 0, half a byte at
    /// the end. One line feed may follow each byte; carriage returns are not skipped. Key lengths
    /// from 1 to 255 are accepted.
    static bool decrypt(const FND::String& scrambled, FND::String& plain);

    /// The two upper-case hexadecimal digits of `byte`.
    static FND::String hexString(unsigned char byte);

    /// Reads two hexadecimal digits of either case from the front of `cursor` into `byte`. Removes
    /// them from `cursor`, and one line feed after them if there is one. False, with nothing
    /// changed, when fewer than two characters are left or one of the two is no digit.
    static bool charFromHex(std::string_view& cursor, unsigned char& byte);
};

}  // namespace SCR
