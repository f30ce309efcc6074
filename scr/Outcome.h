#pragma once

#include <memory>
#include <utility>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Log.h"

namespace SCR {

/// How a call of a host ended. A plain value: cheap while nothing went wrong, and free to be copied
/// and passed to other threads.
class KESTREL_API Outcome {
public:
    enum class Kind : unsigned char {
        Finished,  ///< Everything was done.
        Returned,  ///< A statement at the top level, of an extension, ended the script early.
        Stopped,   ///< By a limit or an interruption; `limit` tells.
        Failed,    ///< A function of the host failed, or there was no memory; `function` tells.
        Invalid,   ///< The text does not compile.
        Refused,   ///< Nothing was done: the call was not possible.
    };

    /// What is known of a call that went wrong.
    struct Details {
        Diagnostic diagnostic;
        FND::String limit;
        FND::String function;
    };

    /// Finished.
    Outcome() noexcept = default;
    /// An outcome with what is known of it.
    Outcome(Kind kind, Details details) noexcept;
    /// A call that was refused for the reason `text`.
    static Outcome refused(const FND::String& text) noexcept;
    /// An outcome of which nothing else is known.
    explicit Outcome(Kind kind) noexcept : kind_(kind) {}

    /// Whether nothing went wrong: it finished, or returned early.
    explicit operator bool() const { return kind_ <= Kind::Returned; }
    Kind kind() const { return kind_; }

    /// For `Stopped`: the limit's name ("steps", "time", ...), "stack" at the end of the thread's
    /// stack, "" for an interruption.
    const FND::String& limit() const;
    /// For `Failed`: the host's function that failed; "" when it was none.
    const FND::String& function() const;
    /// What went wrong and where; its text is empty when nothing did. Lives as long as this object
    /// and its copies.
    const Diagnostic& diagnostic() const;

private:
    Kind kind_ = Kind::Finished;
    std::shared_ptr<const Details> details_;
};

/// A value, or the reason why there is none.
template <class T>
class Result {
public:
    Result(T value) : value_(std::move(value)) {}
    Result(Outcome failure) : outcome_(std::move(failure)) {}

    /// Whether there is a value.
    explicit operator bool() const { return static_cast<bool>(outcome_); }
    /// The value; the null value of its type when there is none.
    const T& value() const { return value_; }
    const T& operator*() const { return value_; }
    const T* operator->() const { return &value_; }
    const Outcome& outcome() const { return outcome_; }

private:
    Outcome outcome_;
    T value_{};
};

template <>
class Result<void> : public Outcome {
public:
    Result() = default;
    Result(Outcome outcome) : Outcome(std::move(outcome)) {}
    const Outcome& outcome() const { return *this; }
};

}  // namespace SCR
