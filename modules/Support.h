#pragma once

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <limits>
#include <new>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <sys/mman.h>

#include "scr/Module.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/RunControl.h"

/// What the functions of modules share: asking for stops, charging memory, and refusing bad input.
namespace Modules {

using SCR::ArrayRef;
using SCR::ArrayView;
using SCR::Effect;
using SCR::HashRef;
using SCR::HashView;
using SCR::Interpreter;
using SCR::ModuleFunction;

/// Counts work on `bytes` bytes. Now and then it asks whether the script has to stop, and throws
/// `SCR::ScriptStopped` then, which passes through the function.
inline void work(std::size_t bytes) {
    if (SCR::RunControl* const control = SCR::RunControl::current()) control->work(bytes);
}

/// Memory that a function takes, charged to the script as long as this object lives.
class Charge {
public:
    Charge() = default;
    explicit Charge(std::size_t bytes) { add(bytes); }
    Charge(Charge&& other) noexcept
        : control_(std::exchange(other.control_, nullptr)), bytes_(other.bytes_) {}
    Charge& operator=(Charge&&) = delete;
    ~Charge() {
        if (control_ != nullptr) control_->giveBuffer(bytes_);
    }

    /// Charges more, before it is taken; throws `SCR::ScriptStopped` beyond the limit.
    void add(std::size_t bytes) {
        control_ = SCR::RunControl::current();
        if (control_ == nullptr) return;
        control_->chargeBuffer(bytes);
        bytes_ += bytes;
    }

private:
    SCR::RunControl* control_ = nullptr;
    std::size_t bytes_ = 0;
};

/// Long lists, which are read here and there, get pages of 2 MiB where the system has them: with
/// small ones, looking up the page costs as much again as the memory.
struct ListPages {
    static constexpr std::size_t sizeCM = std::size_t{2} << 20;
    static constexpr std::size_t manyCM = 2 * sizeCM;  // bytes of a list that gets them

    /// Takes the pages of new memory from the system, one after another, so that the script can be
    /// stopped. It takes 0.2 ms each, but 10 ms in a virtual machine that has to get them from its
    /// host: then the rest comes in small pages.
    static void take(void* memory, std::size_t bytes) {
        using Clock = std::chrono::steady_clock;
        constexpr std::chrono::milliseconds most(1);
        if (bytes < manyCM) return;
        auto* const first = static_cast<volatile std::byte*>(memory);
        for (std::size_t at = 0; at < bytes; at += sizeCM) {
            work(sizeCM);
            const Clock::time_point begin = Clock::now();
            first[at] = std::byte{};
            if (Clock::now() - begin < most || at + sizeCM >= bytes) continue;
            madvise(static_cast<std::byte*>(memory) + at + sizeCM, bytes - at - sizeCM,
                    MADV_NOHUGEPAGE);
            return;
        }
    }
};

/// Where lists lie.
template <class T>
struct ListMemory {
    using value_type = T;

    ListMemory() = default;
    template <class U>
    ListMemory(const ListMemory<U>& /*other*/) {}

    T* allocate(std::size_t count) {
        const std::size_t bytes = count * sizeof(T);
        if (count > std::numeric_limits<std::size_t>::max() / 2 / sizeof(T)) throw std::bad_alloc();
        if (bytes < ListPages::manyCM) return static_cast<T*>(::operator new(bytes, alignmentCM));
        constexpr std::size_t page = ListPages::sizeCM;
        const std::size_t whole = (bytes + page - 1) / page * page;
        void* const memory = ::operator new(whole, std::align_val_t(page));
        madvise(memory, whole, MADV_HUGEPAGE);
        return static_cast<T*>(memory);
    }
    void deallocate(T* memory, std::size_t count) noexcept {
        if (count * sizeof(T) < ListPages::manyCM) {
            ::operator delete(memory, alignmentCM);
        } else {
            ::operator delete(memory, std::align_val_t(ListPages::sizeCM));
        }
    }
    template <class U>
    bool operator==(const ListMemory<U>& /*other*/) const {
        return true;
    }

private:
    static constexpr std::align_val_t alignmentCM{alignof(T)};
};

/// A list that is charged as it grows. Long ones grow in pieces, so that the script can be stopped.
template <class T>
class List : public std::vector<T, ListMemory<T>> {
    using Values = std::vector<T, ListMemory<T>>;

public:
    void add(const T& value) { add(T(value)); }
    void add(T&& value) {
        if (this->size() == this->capacity()) room(2 * this->size() + 8);
        this->push_back(std::move(value));
    }
    void room(std::size_t count) {
        if (count <= this->capacity()) return;
        charge_.add((count - this->capacity()) * sizeof(T));
        Values larger;
        larger.reserve(count);
        ListPages::take(larger.data(), count * sizeof(T));
        for (T& value : *this) {
            if (larger.size() % pieceCM == 0) work(pieceCM * sizeof(T));
            larger.push_back(std::move(value));
        }
        this->swap(larger);
    }
    /// Makes it that long; the new values are as if made by `T()`.
    void extend(std::size_t count) {
        room(count);
        while (this->size() < count) {
            const std::size_t piece = std::min(pieceCM, count - this->size());
            work(piece * sizeof(T));
            this->resize(this->size() + piece);
        }
    }

private:
    static constexpr std::size_t pieceCM = 4096;

    Charge charge_;
};

/// A list of marks for as many things as it is made for, each of them unset at first.
class Marks {
public:
    explicit Marks(std::size_t count) { words_.extend(count / wordCM + 1); }

    bool has(std::size_t index) const {
        return (words_[index / wordCM] >> index % wordCM & 1) != 0;
    }
    void set(std::size_t index) { words_[index / wordCM] |= std::uint64_t{1} << index % wordCM; }

private:
    static constexpr std::size_t wordCM = 64;

    List<std::uint64_t> words_;
};

/// What a function throws when it refuses its arguments: the log gets "name: what" and the script
/// the null value of the result's type.
class Refused : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

[[noreturn]] inline void refuse(const char* what, std::string_view value) {
    constexpr std::size_t shown = 60;
    const std::string_view cut = value.substr(0, shown);
    throw Refused(std::string(what) + " '" + std::string(cut) + (cut == value ? "'" : "...'"));
}
[[noreturn]] inline void refuse(const char* what, long number) {
    refuse(what, std::to_string(number));
}

/// A text that a function makes. It is charged, and no longer than the limit of a string allows.
class Text {
public:
    Text() = default;
    explicit Text(std::size_t size) { room(size); }

    void append(std::string_view more) {
        room(text_.size() + more.size());
        for (; more.size() > pieceCM; more.remove_prefix(pieceCM)) {
            work(pieceCM);
            text_.append(more.substr(0, pieceCM));
        }
        work(more.size());
        text_.append(more);
    }
    void append(char byte) {
        room(text_.size() + 1);
        text_.push_back(byte);
    }
    void append(std::size_t count, char byte) {
        room(text_.size() + count);
        for (; count > pieceCM; count -= pieceCM) {
            work(pieceCM);
            text_.append(pieceCM, byte);
        }
        work(count);
        text_.append(count, byte);
    }
    /// Makes room for so many more bytes.
    void makeRoom(std::size_t more) {
        constexpr auto most = static_cast<std::size_t>(std::numeric_limits<long>::max());
        room(std::min(most, text_.size() + std::min(more, most)));
    }
    std::size_t size() const { return text_.size(); }
    std::string& bytes() { return text_; }
    std::string take() { return std::move(text_); }

private:
    static constexpr std::size_t longestCM = std::size_t{1} << 30;
    /// A long text is made in pieces, so that the script can be stopped.
    static constexpr std::size_t pieceCM = 64 * 1024;

    void room(std::size_t size) {
        if (size <= text_.capacity()) return;
        const SCR::RunControl* const control = SCR::RunControl::current();
        const std::size_t longest =
            control != nullptr
                ? std::min(longestCM, static_cast<std::size_t>(control->limits().string))
                : longestCM;
        if (size > longest) refuse("result is too long", static_cast<long>(size));
        const std::size_t capacity = std::min(std::max(size, 2 * text_.capacity()), longest);
        charge_.add(capacity - text_.capacity());
        if (text_.size() <= pieceCM) return text_.reserve(capacity);
        std::string larger;
        larger.reserve(capacity);
        for (std::size_t at = 0; at < text_.size(); at += pieceCM) {
            work(pieceCM);
            larger.append(text_, at, pieceCM);
        }
        text_.swap(larger);
        SCR::releaseLarge(larger);
    }

    std::string text_;
    Charge charge_;
};

/// Fills an array with texts, from its first element on, and keeps the memory of its elements.
/// Refers to the array's `ArrayRef`.
class Parts {
public:
    explicit Parts(const ArrayRef<FND::String>& parts) : parts_(parts), run_(parts.change(0)) {}

    void add(std::string_view part) {
        weight_ += part.size() + 32;
        if (weight_ > manyCM) [[unlikely]]
            work(std::exchange(weight_, 0));
        if (part.size() <= longCM && at_ < run_.count && part.size() <= run_[at_].capacity())
            [[likely]] {
            run_[at_++].assign(part);
            ++count_;
        } else {
            addNew(part);
        }
    }
    /// Cuts off the elements after those, and gives their number.
    long finish() {
        if (parts_.size() != count_) parts_.resize(count_);
        return static_cast<long>(count_);
    }

private:
    static constexpr std::size_t manyCM = 4096;
    static constexpr std::size_t longCM = 64 * 1024;

    // Adds an element, or enlarges one.
    [[gnu::noinline]] void addNew(std::string_view part) {
        if (at_ == run_.count) {
            run_ = parts_.change(count_);
            at_ = 0;
        }
        if (part.size() <= longCM) {
            value_.assign(part);
            if (!parts_.set(count_, value_)) return;
        } else {
            Text made;
            made.append(part);
            if (!parts_.set(count_, made.take())) return;
        }
        if (at_ < run_.count) ++at_;
        ++count_;
    }

    const ArrayRef<FND::String>& parts_;
    SCR::Host::Run<FND::String> run_;  // of elements that exist
    unsigned long at_ = 0;
    FND::String value_;
    unsigned long count_ = 0;
    std::size_t weight_ = 0;  // work that is not counted yet
};

/// The first place of `byte`, or the end of the text. Can be stopped.
inline std::size_t placeOfByte(char byte, std::string_view text) {
    constexpr std::size_t piece = 64 * 1024;
    for (std::size_t begin = 0; begin < text.size(); begin += piece) {
        const std::string_view part = text.substr(begin, piece);
        if (begin > 0) work(part.size());
        const std::size_t place = part.find(byte);
        if (place != std::string_view::npos) return begin + place;
    }
    return text.size();
}

/// Some of the bytes.
class ByteSet {
public:
    explicit ByteSet(std::string_view bytes) {
        constexpr std::size_t piece = 64 * 1024;
        for (; !bytes.empty(); bytes.remove_prefix(std::min(piece, bytes.size()))) {
            work(std::min(piece, bytes.size()));
            for (const char byte : bytes.substr(0, piece)) has_[indexOf(byte)] = true;
        }
    }
    void add(char byte) { has_[indexOf(byte)] = true; }
    bool has(char byte) const { return has_[indexOf(byte)]; }
    /// The first byte of `text` that is in the set, if `isIn`, or is not; or the end of the text.
    std::size_t placeIn(std::string_view text, bool isIn) const {
        std::size_t place = 0;
        while (place < text.size() && has(text[place]) != isIn) ++place;
        return place;
    }

private:
    static std::size_t indexOf(char byte) { return static_cast<unsigned char>(byte); }

    bool has_[256] = {};
};

/// The value of a hexadecimal digit; -1 for another byte.
constexpr int hexValue(char byte) {
    if (byte >= '0' && byte <= '9') return byte - '0';
    const char lower = static_cast<char>(byte | 32);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

/// For the rows of a table: adds a functor, which keeps what its calls have in common. Each
/// extension of the module has its own.
template <class F>
SCR::FctDescr* addFunctor(SCR::HostExtension& module, const FND::String& name) {
    return module.function(name, F());
}

/// The rows of a module whose functions lie in several files.
inline std::vector<ModuleFunction> joined(
    std::initializer_list<std::span<const ModuleFunction>> parts) {
    std::vector<ModuleFunction> all;
    for (const auto part : parts) all.insert(all.end(), part.begin(), part.end());
    return all;
}

}  // namespace Modules
