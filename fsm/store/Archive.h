#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

#include "fsm/PatternOptions.h"
#include "fsm/store/Flat.h"

namespace FSM {

/// Writes the values of an object into a text, or takes them from one, so that one function serves
/// both. Arrays that are read stay where they are: the text must outlive them. Values are those of
/// this kind of processor.
class Archive {
public:
    /// Writes to the end of `out`.
    explicit Archive(std::string& out) : out_(&out) {}
    /// Reads `in`, which is aligned to 16 bytes.
    explicit Archive(std::string_view in) : in_(in) {}

    bool isReading() const { return out_ == nullptr; }
    /// False once a text was too short.
    bool isGood() const { return isGood_; }
    /// Nothing is left to read.
    bool isAtEnd() const { return at_ == in_.size(); }

    template <class Value>
    void value(Value& value) {
        static_assert(std::is_trivially_copyable_v<Value>);
        std::span<const Value> own(&value, 1);
        const std::span<const Value> taken = values(own);
        if (isReading() && !taken.empty()) std::memcpy(&value, taken.data(), sizeof value);
    }
    /// Any number but 0 is read as true.
    void flag(bool& flag) {
        std::uint32_t number = flag ? 1 : 0;
        value(number);
        flag = number != 0;
    }
    /// Several values and arrays, one after the other.
    template <class... Items>
    void all(Items&... items) {
        (item(items), ...);
    }
    void options(PatternOptions& options) {
        for (bool* option : {&options.ignoresCase, &options.isUtf8, &options.leavesByTextbook,
                             &options.takesNul}) {
            flag(*option);
        }
    }
    template <class Value>
    void array(Flat<Value>& array) {
        static_assert(std::is_trivially_copyable_v<Value>);
        std::uint64_t size = array.size();
        value(size);
        if (size > in_.size() && isReading()) isGood_ = false;
        if (!isGood_) return;
        if (isReading()) {
            array = Flat<Value>(take<Value>(size));
        } else {
            values(array.view());
        }
    }
    template <class Value>
    void array(std::vector<Value>& array) {
        Flat<Value> flat{std::span<const Value>(array)};
        this->array(flat);
        if (isReading()) array.assign(flat.view().begin(), flat.view().end());
    }

private:
    static constexpr std::size_t alignmentCM = 16;

    template <class Item>
    void item(Item& item) {
        if constexpr (requires { array(item); }) {
            array(item);
        } else {
            value(item);
        }
    }

    template <class Value>
    std::span<const Value> values(std::span<const Value> own) {
        if (isReading()) return take<Value>(own.size());
        out_->append(reinterpret_cast<const char*>(own.data()), own.size_bytes());
        out_->resize((out_->size() + alignmentCM - 1) / alignmentCM * alignmentCM);
        return own;
    }
    template <class Value>
    std::span<const Value> take(std::size_t count) {
        const std::size_t left = in_.size() - at_;
        if (!isGood_ || count > left / sizeof(Value)) {
            isGood_ = false;
            return {};
        }
        const auto* const begin = reinterpret_cast<const Value*>(in_.data() + at_);
        const std::size_t bytes =
            (count * sizeof(Value) + alignmentCM - 1) / alignmentCM * alignmentCM;
        at_ += std::min(bytes, left);
        return {begin, count};
    }

    std::string* out_ = nullptr;
    std::string_view in_;
    std::size_t at_ = 0;
    bool isGood_ = true;
};

}  // namespace FSM
