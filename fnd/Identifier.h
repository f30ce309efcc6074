#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <type_traits>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace FND {

/// Names an object of a database: object type, database number, object id and revision. A value of
/// 280 bytes that never allocates; the cost of a copy depends on the length of its type, not on the
/// room for it. Thread rule of a plain struct: many threads may read it, or one may write it.
class KESTREL_API Identifier {
public:
    /// The longest object type name, in bytes.
    static constexpr std::size_t maxTypeLengthCM = 254;

    /// The null identifier: all numbers 0 and no type.
    constexpr Identifier() noexcept { clearType(); }

    /// An identifier of the given fields; see `setType` for the type.
    constexpr Identifier(std::int64_t db, std::string_view type, std::int64_t id,
                         std::int32_t rev) noexcept
        : db_(db), id_(id), rev_(rev) {
        clearType();
        setType(type);
    }

    constexpr Identifier(const Identifier& other) noexcept
        : db_(other.db_), id_(other.id_), rev_(other.rev_) {
        clearType();
        copyType(other.type_, other.typeLength());
    }

    constexpr Identifier& operator=(const Identifier& other) noexcept {
        if (this != &other) {
            copyType(other.type_, other.typeLength());
            db_ = other.db_;
            id_ = other.id_;
            rev_ = other.rev_;
        }
        return *this;
    }

    ~Identifier() = default;

    /// The object type name, without NUL; it is followed by one. Points into this identifier and
    /// holds until that is changed or destroyed.
    constexpr std::string_view type() const noexcept { return {type_, typeLength()}; }
    /// Sets the object type name to the text before the first NUL of `type`, cut after
    /// `maxTypeLengthCM` bytes. `type` may be part of this identifier's own type.
    constexpr void setType(std::string_view type) noexcept {
        type = type.substr(0, maxTypeLengthCM);
        copyType(type.data(), std::min(type.find('\0'), type.size()));
    }

    /// The database number.
    constexpr std::int64_t db() const noexcept { return db_; }
    constexpr void setDb(std::int64_t db) noexcept { db_ = db; }

    /// The object id.
    constexpr std::int64_t id() const noexcept { return id_; }
    constexpr void setId(std::int64_t id) noexcept { id_ = id; }

    /// The revision.
    constexpr std::int32_t rev() const noexcept { return rev_; }
    constexpr void setRev(std::int32_t rev) noexcept { rev_ = rev; }

    /// Replaces `out` by "db:type:id:rev", the numbers in decimal, such as "1:/account:42:0".
    /// Allocates only when the capacity of `out` is too small.
    void format(String& out) const;
    /// The text that `format` gives.
    String toString() const;

    /// True when all four fields are equal.
    friend constexpr bool operator==(const Identifier& a, const Identifier& b) noexcept {
        return a.id_ == b.id_ && a.db_ == b.db_ && a.rev_ == b.rev_ && a.type() == b.type();
    }

private:
    // The type's field ends in its length: at most 254 bytes, a NUL, and one byte for the length.
    static constexpr std::size_t typeFieldSizeCM = maxTypeLengthCM + 2;

    constexpr std::size_t typeLength() const noexcept {
        return static_cast<unsigned char>(type_[typeFieldSizeCM - 1]);
    }

    // At run time only the bytes in use are ever written; a constant must have no others.
    constexpr void clearType() noexcept {
        if (std::is_constant_evaluated()) std::fill_n(type_, typeFieldSizeCM, '\0');
        type_[0] = '\0';
        type_[typeFieldSizeCM - 1] = '\0';
    }

    constexpr void copyType(const char* type, std::size_t length) noexcept {
        if (std::is_constant_evaluated())
            std::copy_n(type, length, type_);
        else if (length > 0)
            std::memmove(type_, type, length);
        type_[length] = '\0';
        type_[typeFieldSizeCM - 1] = static_cast<char>(length);
    }

    char type_[typeFieldSizeCM];
    std::int64_t db_ = 0;
    std::int64_t id_ = 0;
    std::int32_t rev_ = 0;
};

/// The identifier of no object; equal to a default-constructed one.
inline constexpr Identifier NULL_IDENTIFIER;

/// The identifier that stands for a failure; differs from `NULL_IDENTIFIER`. Its numbers are -1.
inline constexpr Identifier INVALID_IDENTIFIER{-1, {}, -1, -1};

}  // namespace FND

/// The invalid value of the Nexid type.
inline constexpr const FND::Identifier& FND_INVALID_IDENTIFIER = FND::INVALID_IDENTIFIER;
