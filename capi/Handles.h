#pragma once

#include <cstdint>
#include <memory>

namespace CApi {

/// The kinds of objects that handles name.
enum class Kind : unsigned char {
    Interpreter,
    Program,
    Variable,
    Conditions,
    Patterns,
    Call,
    Live,
    Runner
};

/// What a handle names.
class Object {
public:
    explicit Object(Kind kind) : kind_(kind) {}
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;
    virtual ~Object() = default;

    Kind kind() const { return kind_; }

private:
    const Kind kind_;
};

/// The table of all handles of the process. A handle is the number of a slot, and how often the
/// slot was used before; so one that was given back names nothing, even when its slot is used
/// again. Look-ups neither lock nor wait.
namespace Handles {

/// A handle for `object`, which is not owned; null when there is no memory.
void* add(Object& object) noexcept;
/// What `handle` names if it is of the kind; null otherwise.
Object* find(const void* handle, Kind kind) noexcept;
/// From now on the handle names nothing.
void remove(const void* handle) noexcept;

}  // namespace Handles

/// An entry of the table for as long as this lives.
class Handle {
public:
    explicit Handle(Object& object) noexcept : handle_(Handles::add(object)) {}
    Handle(const Handle&) = delete;
    Handle& operator=(const Handle&) = delete;
    ~Handle() { Handles::remove(handle_); }

    void* get() const { return handle_; }

private:
    void* const handle_;
};

}  // namespace CApi
