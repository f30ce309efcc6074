#pragma once

#include <cstddef>
#include <memory>
#include <type_traits>
#include <utility>

#include "fnd/Export.h"
#include "scr/HostContainers.h"

namespace SCR {

/// An object of the host, as scripts hold it: a parameter or the result of a host's function.
/// Scripts see a handle of the type that `HostExtension::type<T>` declares; to them it can only be
/// kept, given to functions for this type, and stored in variables, arrays and hashes of it.
///
/// Who owns the object is said where it is given to a script:
///   `Object(pointer)`      is lent: it stays with the host, which calls `HostExtension::forget`
///                          before it destroys it.
///   `Object(shared_ptr)`   is shared: the script has a share as long as a variable, an array or a
///                          hash of it holds the handle. After a run that was given such objects,
///                          the interpreter looks which ones are still held.
/// All handles are dead when another script is compiled, and when the interpreter is gone. As a
/// parameter it is never null: a call with a null or dead handle fails, as if the function had
/// thrown. During the call it has a share of a shared object.
template <class T>
class Object {
public:
    static_assert(std::is_class_v<T> || std::is_union_v<T>, "objects are of classes of the host");

    /// None: scripts get the null handle.
    Object(std::nullptr_t = nullptr) {}
    Object(T* lent) : object_(lent) {}
    Object(std::shared_ptr<T> shared) : object_(shared.get()), share_(std::move(shared)) {}

    T* get() const { return object_; }
    T& operator*() const { return *object_; }
    T* operator->() const { return object_; }
    explicit operator bool() const { return object_ != nullptr; }
    /// A share of it; empty when it is lent.
    const std::shared_ptr<T>& share() const { return share_; }
    /// Whether both are the same object.
    friend bool operator==(const Object& a, const Object& b) { return a.object_ == b.object_; }

private:
    T* object_ = nullptr;
    std::shared_ptr<T> share_;
};

/// A parameter that is null for null and dead handles.
template <class T>
class ObjectOrNull : public Object<T> {
public:
    using Object<T>::Object;
};

namespace Host {

/// Stands for the class `T`; by its address only.
template <class T>
inline char kindOfS = 0;

/// Where an object is that a handle stands for.
struct Place {
    void* object = nullptr;
    std::shared_ptr<void> share;  ///< empty when it is lent
};

template <class T>
inline constexpr bool isObjectS = false;
template <class T>
inline constexpr bool isObjectS<Object<T>> = true;
template <class T>
inline constexpr bool isObjectS<ObjectOrNull<T>> = true;

template <class T>
inline constexpr bool mayBeNullS = false;
template <class T>
inline constexpr bool mayBeNullS<ObjectOrNull<T>> = true;

template <class O>
struct ObjectFacts;
template <template <class> class O, class T>
struct ObjectFacts<O<T>> {
    using Class = T;
    static const void* kind() { return &kindOfS<T>; }
    static O<T> from(const Place& place) {
        if (!place.share) return O<T>(static_cast<T*>(place.object));
        return O<T>(std::static_pointer_cast<T>(place.share));
    }
    static Place place(const O<T>& object) {
        using Bare = std::remove_const_t<T>;
        return {const_cast<Bare*>(object.get()), std::const_pointer_cast<Bare>(object.share())};
    }
};

/// Where the object of a handle is; null for the null handle, a dead one and one of another class.
/// Valid until a script or the host gives or forgets an object.
KESTREL_API const Place* objectOf(Interpreter& interpreter, const void* kind, long handle) noexcept;
/// Sets `handle` to that of an object, 0 for none. False when there is no room: the script stops
/// then.
KESTREL_API bool handleOf(Interpreter& interpreter, const void* kind, const Place& place,
                          long& handle) noexcept;

/// Whether `type` is the name of the type of a class.
KESTREL_API bool isOfKind(Interpreter& interpreter, const void* kind,
                          const FND::String& type) noexcept;

template <class T>
struct ElementOf<Object<T>> {
    static constexpr int typeCode = TypeCode::Adt;
};

/// The object of a handle in a container, which may be missing.
template <class T>
Object<T> objectIn(const AdtVariable* element, Interpreter* interpreter) {
    using Facts = ObjectFacts<Object<T>>;
    const Place* const place =
        element != nullptr ? objectOf(*interpreter, Facts::kind(), element->value()) : nullptr;
    return place != nullptr ? Facts::from(*place) : Object<T>();
}
template <class T>
bool storeObject(AdtVariable* element, const Object<T>& object, Interpreter* interpreter) {
    using Facts = ObjectFacts<Object<T>>;
    return element != nullptr &&
           handleOf(*interpreter, Facts::kind(), Facts::place(object), element->value());
}

}  // namespace Host

/// An array of objects, read by a function of a host. The rules of other arrays hold, but elements
/// are read and set by value: an object for its handle, none for null and dead handles.
template <class T>
class ArrayView<Object<T>> {
public:
    ArrayView() = default;
    ArrayView(Array& array, Interpreter* interpreter)
        : handles_(array, interpreter), interpreter_(interpreter) {}

    bool exists() const { return handles_.exists(); }
    unsigned long size() const { return handles_.size(); }
    Object<T> operator[](unsigned long index) const {
        return Host::objectIn<T>(&handles_[index], interpreter_);
    }

protected:
    ArrayRef<AdtVariable> handles_;
    Interpreter* interpreter_ = nullptr;
};

/// An array of objects that a function of a host reads and changes.
template <class T>
class ArrayRef<Object<T>> : public ArrayView<Object<T>> {
public:
    using ArrayView<Object<T>>::ArrayView;

    bool set(unsigned long index, const Object<T>& value) const {
        return Host::storeObject(this->handles_.at(index), value, this->interpreter_);
    }
    bool append(const Object<T>& value) const { return set(this->size(), value); }
    bool resize(unsigned long size) const { return this->handles_.resize(size); }
    void clear() const { resize(0); }
};

/// A hash of objects, read by a function of a host.
template <class T>
class HashView<Object<T>> {
public:
    HashView() = default;
    HashView(Hash& hash, Interpreter* interpreter)
        : handles_(hash, interpreter), interpreter_(interpreter) {}

    bool exists() const { return handles_.exists(); }
    unsigned long size() const { return handles_.size(); }
    Object<T> operator[](const FND::String& key) const {
        return Host::objectIn<T>(handles_.find(key), interpreter_);
    }
    std::vector<const FND::String*> keys() const noexcept { return handles_.keys(); }

protected:
    HashRef<AdtVariable> handles_;
    Interpreter* interpreter_ = nullptr;
};

/// A hash of objects that a function of a host reads and changes.
template <class T>
class HashRef<Object<T>> : public HashView<Object<T>> {
public:
    using HashView<Object<T>>::HashView;

    bool set(const FND::String& key, const Object<T>& value) const {
        return Host::storeObject(this->handles_.at(key), value, this->interpreter_);
    }
    bool remove(const FND::String& key) const { return this->handles_.remove(key); }
    void clear() const { this->handles_.clear(); }
};

}  // namespace SCR
