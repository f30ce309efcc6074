#pragma once

#include <cstddef>
#include <span>
#include <string_view>
#include <type_traits>
#include <utility>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/HostTypes.h"
#include "scr/Outcome.h"

namespace SCR {

/// The values of one variable for the records of a batch, in arrays of the host, which are not
/// copied. Made by `input` and `output`.
class Column {
public:
    enum class Use : unsigned char { Input, Output };

    template <class T>
    Column(FND::String name, Use use, T* values, std::size_t size)
        : name_(std::move(name)),
          use_(use),
          isView_(std::is_same_v<std::remove_const_t<T>, std::string_view>),
          type_(Host::TypeOf<std::remove_const_t<T>>::Type::typeCode),
          values_(const_cast<std::remove_const_t<T>*>(values)),
          size_(size) {}

    const FND::String& name() const { return name_; }
    Use use() const { return use_; }
    /// Whether the values are `std::string_view`.
    bool isView() const { return isView_; }
    /// The type code of the variable.
    int type() const { return type_; }
    void* values() const { return values_; }
    std::size_t size() const { return size_; }

private:
    FND::String name_;
    Use use_;
    bool isView_;
    int type_;
    void* values_;
    std::size_t size_;
};

/// Assigns `values[i]` to the variable `name` before record i is executed. `values` is an array, a
/// vector or a span of long, bool, FND::String, std::string_view, FND::Decimal, FND::DateTime or
/// FND::Identifier.
template <class Values>
Column input(FND::String name, const Values& values) {
    const std::span all(values);
    using T = std::remove_const_t<typename decltype(all)::element_type>;
    static_assert(Host::Stored<T> || std::is_same_v<T, std::string_view>,
                  "a column has values of type long, bool, FND::String, std::string_view, "
                  "FND::Decimal, FND::DateTime or FND::Identifier");
    return Column(std::move(name), Column::Use::Input, all.data(), all.size());
}

/// Stores the value of the variable `name` in `values[i]` after record i was executed.
template <class Values>
Column output(FND::String name, Values&& values) {
    const std::span all(values);
    using T = typename decltype(all)::element_type;
    static_assert(Host::Stored<T>,
                  "a column of outputs has values that can be written, of type long, bool, "
                  "FND::String, FND::Decimal, FND::DateTime or FND::Identifier");
    return Column(std::move(name), Column::Use::Output, all.data(), all.size());
}

/// How a batch ended: as its last record did.
class BatchOutcome : public Outcome {
public:
    BatchOutcome(Outcome outcome, std::size_t record)
        : Outcome(std::move(outcome)), record_(record) {}
    /// The number of the record that went wrong, or else of the first one after the batch. All
    /// before it were executed, and their outputs are stored; those of the record itself are not.
    std::size_t record() const { return record_; }

private:
    std::size_t record_;
};

}  // namespace SCR
