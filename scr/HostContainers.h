#pragma once

#include <cstddef>
#include <iterator>
#include <type_traits>
#include <vector>

#include "fnd/Export.h"
#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/Variable.h"

namespace SCR {

class Interpreter;

namespace Host {

/// The type of the language whose elements are of the C++ type `T`: `long`, `bool`, `FND::String`,
/// `FND::Decimal`, `FND::DateTime`, `FND::Identifier`, or `SCR::Array` and `SCR::Hash` for
/// containers in containers.
template <class T>
struct ElementOf {};
template <>
struct ElementOf<long> : LongType {};
template <>
struct ElementOf<bool> : BoolType {};
template <>
struct ElementOf<FND::String> : StringType {};
template <>
struct ElementOf<FND::Decimal> : DecimalType {};
template <>
struct ElementOf<FND::DateTime> : DateType {};
template <>
struct ElementOf<FND::Identifier> : NexidType {};
template <>
struct ElementOf<Array> {
    static constexpr int typeCode = TypeCode::Array;
    using Variable = Array;
};
template <>
struct ElementOf<Hash> {
    static constexpr int typeCode = TypeCode::Hash;
    using Variable = Hash;
};

template <>
struct ElementOf<AdtVariable> {
    static constexpr int typeCode = TypeCode::Adt;
    using Variable = AdtVariable;
};

/// A type that elements may have.
template <class T>
concept Element = requires {
    ElementOf<T>::typeCode;
};

/// Elements side by side: `count` values, each `stride` bytes after the one before.
template <class T>
struct Run {
    T* first = nullptr;
    std::size_t stride = 0;
    unsigned long count = 0;

    T& operator[](unsigned long index) const {
        using Byte = std::conditional_t<std::is_const_v<T>, const std::byte, std::byte>;
        return *reinterpret_cast<T*>(reinterpret_cast<Byte*>(first) + index * stride);
    }
};

}  // namespace Host

/// An array of a script, read by a function of a host: `T` is the type of its elements. A view into
/// the script's own array, valid during the call. It may be the same array as another argument, and
/// other arguments may lie in it. An array that does not exist, as under a negative index, is
/// empty. Elements stay where they are as long as they exist. Throws nothing.
template <class T>
class KESTREL_API ArrayView {
public:
    class Iterator;

    ArrayView() = default;
    /// A view of `array`, whose elements must be of the type `T`; empty if they are not.
    explicit ArrayView(const Array& array);

    bool exists() const { return array_ != nullptr; }
    unsigned long size() const { return array_ != nullptr ? array_->size() : 0; }
    /// The element `index`; for one beyond the end, what a new element would be. Unlike in scripts,
    /// reading never makes the array longer.
    const T& operator[](unsigned long index) const { return run(index)[0]; }
    /// The elements from `index` on that lie side by side. Beyond the end it is what a new element
    /// would be, with a count of 0.
    Host::Run<const T> run(unsigned long index) const;

    /// The elements in their order. The array must not become shorter meanwhile.
    Iterator begin() const { return Iterator(*this); }
    Iterator end() const { return Iterator(); }

    template <class U>
    bool isSame(const ArrayView<U>& other) const {
        return array_ == other.array();
    }
    const Array* array() const { return array_; }

protected:
    Array* array_ = nullptr;
};

template <class T>
class ArrayView<T>::Iterator {
public:
    using iterator_category = std::input_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = const T*;
    using reference = const T&;

    Iterator() = default;
    explicit Iterator(const ArrayView& view) : view_(view) { next(); }
    const T& operator*() const { return run_[at_]; }
    Iterator& operator++() {
        if (++at_ == run_.count) next();
        return *this;
    }
    bool operator==(const Iterator& other) const { return run_.count == other.run_.count; }

private:
    void next() {
        first_ += run_.count;
        run_ = view_.run(first_);
        at_ = 0;
    }

    ArrayView view_;
    Host::Run<const T> run_;
    unsigned long first_ = 0;
    unsigned long at_ = 0;
};

/// An array of a script that a function of a host reads and changes. Memory is charged to the
/// script: where a limit does not allow a change, nothing changes, the result is false, and the
/// script stops when the function returns. When it has to stop while many elements are removed,
/// some of them are left.
template <class T>
class KESTREL_API ArrayRef : public ArrayView<T> {
public:
    ArrayRef() = default;
    /// The elements of `array`, if they are of the type `T`; otherwise none. `interpreter` is the
    /// one whose limits hold, or null for none.
    ArrayRef(Array& array, Interpreter* interpreter);

    /// Sets an element; the array grows so far if it is shorter. False when there is no room, and
    /// for a container, which `at` gives.
    bool set(unsigned long index, const T& value) const;
    bool append(const T& value) const { return set(this->size(), value); }
    /// The element `index`, to be changed in place, but not made to take more memory; it is made
    /// when it is missing. Null when there is no room.
    T* at(unsigned long index) const;
    /// The elements from `index` on that lie side by side and exist, to be changed like `at`.
    Host::Run<T> change(unsigned long index) const;
    /// Makes the array longer, by new elements, or shorter. False when there is no room.
    bool resize(unsigned long size) const;
    void clear() const { resize(0); }

private:
    Interpreter* interpreter_ = nullptr;
};

/// A hash of a script, read by a function of a host. The rules of `ArrayView` hold.
template <class T>
class KESTREL_API HashView {
public:
    HashView() = default;
    explicit HashView(const Hash& hash);

    bool exists() const { return hash_ != nullptr; }
    unsigned long size() const { return hash_ != nullptr ? hash_->size() : 0; }
    /// The element under `key`; null when there is none. Makes nothing.
    const T* find(const FND::String& key) const;
    /// The keys in ascending order of their bytes. None, without memory for the list.
    std::vector<const FND::String*> keys() const noexcept;
    /// Calls `visit(key, value)` for each entry, in no certain order. It must not change the hash.
    template <class Visit>
    void forEach(const Visit& visit) const {
        std::size_t position = 0;
        const T* value = nullptr;
        while (const FND::String* const key = next(position, value)) visit(*key, *value);
    }

    const Hash* hash() const { return hash_; }

protected:
    // The first entry from `position` on, which then lies after it; null at the end.
    const FND::String* next(std::size_t& position, const T*& value) const;

    Hash* hash_ = nullptr;
};

/// A hash of a script that a function of a host reads and changes. The rules of `ArrayRef` hold.
template <class T>
class KESTREL_API HashRef : public HashView<T> {
public:
    HashRef() = default;
    HashRef(Hash& hash, Interpreter* interpreter);

    bool set(const FND::String& key, const T& value) const;
    /// The element under `key`, made when it is missing. Null when there is no room.
    T* at(const FND::String& key) const;
    /// False when there is no such key.
    bool remove(const FND::String& key) const;
    void clear() const;

private:
    Interpreter* interpreter_ = nullptr;
};

#define KESTREL_CONTAINERS_OF(T)        \
    extern template class ArrayView<T>; \
    extern template class ArrayRef<T>;  \
    extern template class HashView<T>;  \
    extern template class HashRef<T>;
KESTREL_CONTAINERS_OF(long)
KESTREL_CONTAINERS_OF(bool)
KESTREL_CONTAINERS_OF(FND::String)
KESTREL_CONTAINERS_OF(FND::Decimal)
KESTREL_CONTAINERS_OF(FND::DateTime)
KESTREL_CONTAINERS_OF(FND::Identifier)
KESTREL_CONTAINERS_OF(Array)
KESTREL_CONTAINERS_OF(Hash)
KESTREL_CONTAINERS_OF(AdtVariable)
#undef KESTREL_CONTAINERS_OF

}  // namespace SCR
