#include "modules/list/List.h"

#include <bit>
#include <optional>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "scr/value/KeyHash.h"

namespace Modules::ListModule {

namespace {

std::uint32_t hashOf(const FND::String& text) { return SCR::keyHash(text); }
std::uint32_t hashOf(long number) {
    return SCR::keyHash({reinterpret_cast<const char*>(&number), sizeof number});
}
std::uint32_t hashOf(const FND::DateTime& date) { return hashOf(static_cast<long>(date.secs())); }
// Numbers that are equal have the same nearest double, whatever their scales.
std::uint32_t hashOf(const FND::Decimal& number) {
    return hashOf(std::bit_cast<long>(number.isZero() ? 0.0 : number.toDouble()));
}

bool areSame(const FND::Decimal& a, const FND::Decimal& b) {
    return a.isValid() == b.isValid() && (!a.isValid() || a == b);
}
template <class T>
bool areSame(const T& a, const T& b) {
    return compare(a, b) == 0;
}

/// Values that are told apart; they must stay where they are.
template <class T>
class Set {
public:
    explicit Set(std::size_t count) { slots_.extend(std::bit_ceil(2 * count + 2)); }

    /// Adds a value; false when it is there already.
    bool add(const T& value) {
        const T*& slot = slots_[find(value)];
        if (slot != nullptr) return false;
        slot = &value;
        return true;
    }
    bool contains(const T& value) const { return slots_[find(value)] != nullptr; }

private:
    std::size_t find(const T& value) const {
        work(64);  // a slot is seldom in the processor's caches
        const std::size_t mask = slots_.size() - 1;
        std::size_t at = hashOf(value) & mask;
        while (slots_[at] != nullptr && !areSame(*slots_[at], value)) {
            at = (at + 1) & mask;
            work(32);
        }
        return at;
    }

    List<const T*> slots_;
};

// Keeps the elements for which `keeps` holds, in place.
template <class T, class Keeps>
long filter(ArrayRef<T> all, const Keeps& keeps) {
    const unsigned long size = all.size();
    Marks kept(size);
    unsigned long index = 0;
    forEach<T>(all, [&](const T& value) {
        if (keeps(value)) kept.set(index);
        ++index;
    });
    unsigned long count = 0;
    for (unsigned long i = 0; i < size; ++i) {
        work(16);
        if (!kept.has(i)) continue;
        T* const from = all.at(i);
        T* const to = all.at(count++);
        if (from != nullptr && to != nullptr && from != to) std::swap(*from, *to);
    }
    all.resize(count);
    return static_cast<long>(count);
}

struct Unique {
    template <class T>
    long operator()(ArrayRef<T> all) const {
        Set<T> seen(all.size());
        return filter(all, [&](const T& value) { return seen.add(value); });
    }
};

struct Reverse {
    template <class T>
    void operator()(ArrayRef<T> all) const {
        for (unsigned long i = 0, k = all.size(); i + 1 < k; ++i) {
            T* const first = all.at(i);
            T* const last = all.at(--k);
            if (first == nullptr || last == nullptr) return;
            std::swap(*first, *last);
            work(16);
        }
    }
};

struct Slice {
    template <class T>
    long operator()(ArrayView<T> all, long first, long count, ArrayRef<T> out) const {
        if (first < 0 || count < 0) refuse("place and count must not be negative", first);
        const unsigned long size = all.size();
        const auto begin = std::min(size, static_cast<unsigned long>(first));
        const auto taken = std::min(size - begin, static_cast<unsigned long>(count));
        // In this order the two may be the same array.
        for (unsigned long i = 0; i < taken; ++i) give(out, i, all[begin + i]);
        out.resize(taken);
        return static_cast<long>(taken);
    }
};

struct Append {
    template <class T>
    long operator()(ArrayRef<T> to, ArrayView<T> from) const {
        const unsigned long count = from.size();
        for (unsigned long i = 0; i < count; ++i) give(to, to.size(), from[i]);
        return static_cast<long>(to.size());
    }
};

struct Find {
    template <class T>
    long operator()(ArrayView<T> all, const T& value, std::optional<long> from) const {
        if (from.value_or(0) < 0) return -1;
        for (auto i = static_cast<unsigned long>(from.value_or(0)); i < all.size(); ++i) {
            work(16);
            if (areSame(all[i], value)) return static_cast<long>(i);
        }
        return -1;
    }
};

struct Contains {
    template <class T>
    bool operator()(ArrayView<T> all, const T& value) const {
        return Find()(all, value, std::nullopt) >= 0;
    }
};

struct Count {
    template <class T>
    long operator()(ArrayView<T> all, const T& value) const {
        long count = 0;
        forEach(all, [&](const T& element) { count += areSame(element, value) ? 1 : 0; });
        return count;
    }
};

template <int sign>
struct Extreme {
    template <class T>
    T operator()(ArrayView<T> all) const {
        const T* best = nullptr;
        forEach(all, [&](const T& value) {
            if (best == nullptr || compare(value, *best) * sign > 0) best = &value;
        });
        return best != nullptr ? copyOf(*best) : T();
    }
};

template <class T>
FND::Decimal sumOf(ArrayView<T> all) {
    FND::Decimal sum;
    forEach(all, [&](const T& value) { sum = sum + FND::Decimal(value); });
    return sum;
}

struct Sum {
    template <class T>
    T operator()(ArrayView<T> all) const {
        const FND::Decimal sum = sumOf(all);
        if constexpr (std::is_same_v<T, long>) {
            long exact = 0;
            forEach(all, [&](long value) {
                if (__builtin_add_overflow(exact, value, &exact)) refuse("sum is too large", value);
            });
            return exact;
        } else {
            return sum;
        }
    }
};

struct Mean {
    template <class T>
    FND::Decimal operator()(ArrayView<T> all) const {
        if (all.size() == 0) return FND::Decimal::invalid();
        return sumOf(all) / FND::Decimal(static_cast<std::int64_t>(all.size()));
    }
};

struct Values {
    template <class T>
    long operator()(HashView<T> hash, ArrayRef<T> out) const {
        const Charge sorting(hash.size() * 3 * sizeof(void*));
        unsigned long index = 0;
        for (const FND::String* key : hash.keys()) {
            work(64);
            give(out, index++, *hash.find(*key));
        }
        out.resize(index);
        return static_cast<long>(index);
    }
};

// Adds the values of `b` that are not in `a`.
struct Unite {
    template <class T>
    long operator()(ArrayRef<T> a, ArrayView<T> b) const {
        if (a.isSame(b)) return Unique()(a);
        Set<T> seen(a.size() + b.size());
        filter(a, [&](const T& value) { return seen.add(value); });
        Set<T> known(a.size());
        forEach<T>(a, [&](const T& value) { known.add(value); });
        List<const T*> added;
        Set<T> others(b.size());
        forEach(b, [&](const T& value) {
            if (!known.contains(value) && others.add(value)) added.add(&value);
        });
        for (const T* const value : added) give(a, a.size(), *value);
        return static_cast<long>(a.size());
    }
};

template <bool keepsCommon>
struct Restrict {
    template <class T>
    long operator()(ArrayRef<T> a, ArrayView<T> b) const {
        // Its elements move.
        if (a.isSame(b)) {
            if (!keepsCommon) a.resize(0);
            return Unique()(a);
        }
        Set<T> others(b.size());
        forEach(b, [&](const T& value) { others.add(value); });
        Set<T> seen(a.size());
        return filter(a, [&](const T& value) {
            return others.contains(value) == keepsCommon && seen.add(value);
        });
    }
};

#define KESTREL_COMPARED long, FND::Decimal, FND::String, FND::DateTime
#define KESTREL_NUMBERS long, FND::Decimal

constexpr ModuleFunction listFunctionsS[] = {
    {"Long unique(change T[] items)", SCR::addFunctionOver<Unique, KESTREL_COMPARED>, Effect::None,
     "Removes the elements that equal an earlier one, and gives the number of those left. This and "
     "the next functions, unless they say something else, take Longs, Decimals, Strings and Dates.",
     R"(Long a[]; a[0] = 2; a[1] = 2; a[2] = 1; list::unique(a) == 2 and a[1] == 1)"},
    {"Void reverse(change T[] items)", SCR::addFunctionOver<Reverse, KESTREL_COMPARED, bool>,
     Effect::None, "Turns the order of the elements around; also of Bools.",
     R"(Long a[]; a[0] = 1; a[1] = 2; list::reverse(a); a[0] == 2)"},
    {"Long slice(T[] items, Long first, Long count, out T[] part)",
     SCR::addFunctionOver<Slice, KESTREL_COMPARED, bool>, Effect::None,
     "Fills `part`, which may be the same array, with at most `count` elements from number `first` "
     "on, and gives how many those are; also of Bools. A negative number is an error.",
     R"(Long a[]; a[2] = 7; Long b[]; list::slice(a, 1, 9, b) == 2 and b[1] == 7)"},
    {"Long append(change T[] items, T[] more)",
     SCR::addFunctionOver<Append, KESTREL_COMPARED, bool>, Effect::None,
     "Adds the elements of `more` at the end, and gives the number of elements; also of Bools.",
     R"(Long a[]; a[0] = 1; list::append(a, a) == 2 and a[1] == 1)"},
    {"Long find(T[] items, T value, [Long from])", SCR::addFunctionOver<Find, KESTREL_COMPARED>,
     Effect::None,
     "The place of the first element that equals `value`, at or after `from`; -1 "
     "when there is none, or `from` is negative.",
     R"(String a[]; a[1] = "x"; list::find(a, "x") == 1)"},
    {"Bool contains(T[] items, T value)", SCR::addFunctionOver<Contains, KESTREL_COMPARED>,
     Effect::None, "Whether an element equals `value`.",
     R"(Decimal a[]; a[0] = 1.50; list::contains(a, 1.5))"},
    {"Long count(T[] items, T value)", SCR::addFunctionOver<Count, KESTREL_COMPARED>, Effect::None,
     "How many elements equal `value`.", R"(Long a[]; a[2] = 1; list::count(a, 0) == 2)"},
    {"T min(T[] items)", SCR::addFunctionOver<Extreme<-1>, KESTREL_COMPARED>, Effect::None,
     "The least element; 0, the empty text or the invalid date when there is none.",
     R"(Long a[]; a[0] = 4; a[1] = -2; list::min(a) == -2)"},
    {"T max(T[] items)", SCR::addFunctionOver<Extreme<1>, KESTREL_COMPARED>, Effect::None,
     "The greatest element, or as `min`.",
     R"(String a[]; a[0] = "b"; a[1] = "a"; list::max(a) == "b")"},
    {"T sum(T[] items)", SCR::addFunctionOver<Sum, KESTREL_NUMBERS>, Effect::None,
     "The sum of the Longs or Decimals. One of Longs that does not fit is an error, and the result "
     "0.",
     R"(Decimal a[]; a[0] = 1.5; a[1] = 2; list::sum(a) == 3.5)"},
    {"Decimal mean(T[] items)", SCR::addFunctionOver<Mean, KESTREL_NUMBERS>, Effect::None,
     "The sum of the Longs or Decimals by their number; INVALID_DECIMAL when there are none.",
     R"(Long a[]; a[0] = 1; a[1] = 2; list::mean(a) == 1.5)"},
    {"Long values(T{} hash, out T[] values)", SCR::addFunctionOver<Values, KESTREL_COMPARED, bool>,
     Effect::None,
     "Fills `values` with the elements of the hash in the order of their keys, and gives their "
     "number; also of Bools.",
     R"(Long h{}; h{"b"} = 1; h{"a"} = 2; Long v[]; list::values(h, v) == 2 and v[0] == 2)"},
    {"Long unite(change T[] items, T[] others)", SCR::addFunctionOver<Unite, KESTREL_COMPARED>,
     Effect::None,
     "Makes `items` a set: each value once, its own ones first and then those of `others`. Gives "
     "their number.",
     R"(Long a[]; a[0] = 1; Long b[]; b[0] = 1; b[1] = 2; list::unite(a, b) == 2)"},
    {"Long intersect(change T[] items, T[] others)",
     SCR::addFunctionOver<Restrict<true>, KESTREL_COMPARED>, Effect::None,
     "Leaves of `items` the values that `others` has, each once, and gives their number.",
     R"(Long a[]; a[1] = 1; Long b[]; b[0] = 1; list::intersect(a, b) == 1 and a[0] == 1)"},
    {"Long subtract(change T[] items, T[] others)",
     SCR::addFunctionOver<Restrict<false>, KESTREL_COMPARED>, Effect::None,
     "Leaves of `items` the values that `others` does not have, each once, and gives their number.",
     R"(Long a[]; a[1] = 1; Long b[]; b[0] = 1; list::subtract(a, b) == 1 and a[0] == 0)"},
};

}  // namespace

std::span<const ModuleFunction> listFunctions() { return listFunctionsS; }

namespace {

const std::vector<ModuleFunction> functionsS = joined({listFunctions(), orderFunctions()});

const SCR::ModuleTable tableS{"list", "Arrays and hashes as a whole: order, sets and statistics.",
                              functionsS};

}  // namespace

}  // namespace Modules::ListModule

KESTREL_MODULE(list, Modules::ListModule::tableS);
