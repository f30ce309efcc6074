#include <algorithm>
#include <memory>
#include <optional>

#include "fnd/Decimal.h"
#include "modules/list/List.h"

namespace Modules::ListModule {

namespace {

/// An element's value, or what decides most comparisons of it, and its place.
template <class Key>
struct Ranked {
    Key key;
    std::uint32_t index;
};

// Sorts by merging, which is stable, in place of a range and a buffer of the same size. Counts its
// work, so that it stops wherever it is.
template <class T, class Less>
void mergeSort(T* values, T* buffer, std::size_t count, const Less& less) {
    constexpr std::size_t few = 16;
    for (std::size_t begin = 0; begin < count; begin += few) {
        const std::size_t end = std::min(begin + few, count);
        for (std::size_t i = begin + 1; i < end; ++i) {
            T moved = values[i];
            std::size_t to = i;
            for (; to > begin && less(moved, values[to - 1]); --to) values[to] = values[to - 1];
            values[to] = moved;
        }
        work(few * 16);
    }
    T* from = values;
    T* into = buffer;
    for (std::size_t width = few; width < count; width *= 2, std::swap(from, into)) {
        for (std::size_t begin = 0; begin < count; begin += 2 * width) {
            const std::size_t middle = std::min(begin + width, count);
            const std::size_t end = std::min(begin + 2 * width, count);
            std::size_t left = begin;
            std::size_t right = middle;
            for (std::size_t at = begin; at < end; ++at) {
                const bool takesRight =
                    left == middle || (right < end && less(from[right], from[left]));
                into[at] = from[takesRight ? right++ : left++];
                if (at % 1024 == 1023) work(1024 * 8);
            }
            work((end - begin) % 1024);
        }
    }
    if (from != values) {
        for (std::size_t i = 0; i < count; ++i) {
            values[i] = from[i];
            if (i % 1024 == 1023) work(1024);
        }
    }
}

// The first 8 bytes of a text after a prefix, so that their order is that of the texts.
std::uint64_t headOf(const FND::String& text, std::size_t skip) {
    unsigned char bytes[8] = {};
    if (text.size() > skip) {
        const std::size_t count = std::min<std::size_t>(8, text.size() - skip);
        std::copy_n(text.data() + skip, count, bytes);
    }
    std::uint64_t head = 0;
    for (const unsigned char byte : bytes) head = head << 8 | byte;
    return head;
}

std::size_t commonPrefix(ArrayView<FND::String> all) {
    const FND::String& first = all[0];
    std::size_t common = first.size();
    forEach(all, [&](const FND::String& text) {
        const std::size_t most = std::min(common, text.size());
        common = static_cast<std::size_t>(
            std::mismatch(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(most),
                          first.begin())
                .first -
            text.begin());
    });
    return common;
}

template <class Key, class T>
struct Ranking {
    List<Ranked<Key>> order;

    Ranking(ArrayView<T> all, const auto& keyOf) {
        constexpr unsigned long most = UINT32_MAX;
        if (all.size() > most) refuse("more elements than 2^32", static_cast<long>(all.size()));
        order.room(all.size());
        std::uint32_t index = 0;
        forEach(all, [&](const T& value) { order.push_back({keyOf(value), index++}); });
    }

    template <class Less>
    void sort(const Less& less) {
        const Charge charge(order.size() * sizeof(Ranked<Key>));
        const auto buffer = std::make_unique_for_overwrite<Ranked<Key>[]>(order.size());
        mergeSort(order.data(), buffer.get(), order.size(), less);
    }
    // Sorts by `compareKeys(a, b)`, three-way.
    template <class Compare>
    void sort(bool descends, const Compare& compareKeys) {
        if (descends) {
            sort([&](const auto& a, const auto& b) { return compareKeys(b, a) < 0; });
        } else {
            sort([&](const auto& a, const auto& b) { return compareKeys(a, b) < 0; });
        }
    }
};

// Puts the elements of `all` in the order of `ranking`, from a copy of them, cycle by cycle.
template <class T, class Order>
void arrange(ArrayRef<T> all, const Order& order) {
    List<T*> elements;
    elements.room(all.size());
    for (unsigned long i = 0; i < all.size();) {
        const auto run = all.change(i);
        if (run.count == 0) return;
        for (unsigned long k = 0; k < run.count; ++k) elements.push_back(&run[k]);
        work(run.count);
        i += run.count;
    }
    // The values move out in their new order and back in. When the script is stopped on the way,
    // those that are out go back to their old places.
    struct Moved {
        List<T*>& elements;
        const Order& order;
        List<T> values;
        bool isComplete = false;

        ~Moved() {
            for (std::size_t i = 0; i < values.size(); ++i) {
                T* const to = elements[isComplete ? i : order[i].index];
                *to = std::move(values[i]);
            }
        }
    } moved{elements, order, {}};
    moved.values.room(order.size());
    for (const auto& ranked : order) {
        moved.values.push_back(std::move(*elements[ranked.index]));
        work(16);
    }
    moved.isComplete = true;
}

/// Sorts texts by eight bytes at a time: first all of them, then those that are equal so far by
/// the next eight. So a text is looked at a few times only, however many it is compared with.
class TextOrder {
public:
    using Entry = Ranked<std::uint64_t>;

    TextOrder(const List<const FND::String*>& texts, bool descends)
        : texts_(texts), descends_(descends) {}

    void sort(List<Entry>& order, std::size_t skip) {
        const Charge charge(order.size() * sizeof(Entry));
        const auto buffer = std::make_unique_for_overwrite<Entry[]>(order.size());
        buffer_ = buffer.get();
        sort(order.data(), order.size(), skip, 0);
    }

private:
    static constexpr std::size_t fewCM = 8;
    static constexpr int deepestCM = 8;

    // `entries` have the heads of their texts after `skip` bytes, which are equal.
    void sort(Entry* entries, std::size_t count, std::size_t skip, int depth) {
        if (count <= fewCM || depth == deepestCM) {
            return mergeBy(entries, count, [this](const Entry& a, const Entry& b) {
                if (a.key != b.key) return a.key < b.key ? -1 : 1;
                return compare(*texts_[a.index], *texts_[b.index]);
            });
        }
        mergeBy(entries, count, [](const Entry& a, const Entry& b) {
            return a.key < b.key ? -1 : a.key > b.key ? 1 : 0;
        });
        for (std::size_t begin = 0; begin < count;) {
            std::size_t end = begin + 1;
            while (end < count && entries[end].key == entries[begin].key) ++end;
            if (end - begin > 1) {
                for (std::size_t i = begin; i < end; ++i) {
                    entries[i].key = headOf(*texts_[entries[i].index], skip + 8);
                }
                work((end - begin) * 16);
                sort(entries + begin, end - begin, skip + 8, depth + 1);
            }
            begin = end;
        }
        work(count);
    }

    template <class Compare>
    void mergeBy(Entry* entries, std::size_t count, const Compare& compareEntries) {
        if (descends_) {
            mergeSort(entries, buffer_, count,
                      [&](const Entry& a, const Entry& b) { return compareEntries(b, a) < 0; });
        } else {
            mergeSort(entries, buffer_, count,
                      [&](const Entry& a, const Entry& b) { return compareEntries(a, b) < 0; });
        }
    }

    const List<const FND::String*>& texts_;
    const bool descends_;
    Entry* buffer_ = nullptr;
};

/// How the elements of a type are ranked: by their values, and texts by their heads first.
template <class T, class Use>
void withRanking(ArrayView<T> all, bool descends, const Use& use) {
    if constexpr (std::is_same_v<T, FND::String>) {
        if (all.size() == 0) return;
        List<const FND::String*> texts;
        texts.room(all.size());
        const std::size_t skip = commonPrefix(all);
        Ranking<std::uint64_t, T> ranking(all, [&](const FND::String& text) {
            texts.push_back(&text);
            return headOf(text, skip);
        });
        TextOrder(texts, descends).sort(ranking.order, skip);
        use(ranking.order);
    } else {
        Ranking<T, T> ranking(all, [](const T& value) { return value; });
        ranking.sort(descends, [](const auto& a, const auto& b) { return compare(a.key, b.key); });
        use(ranking.order);
    }
}

template <bool descends>
struct Sort {
    template <class T>
    void operator()(ArrayRef<T> all) const {
        withRanking<T>(all, descends, [&](const auto& order) { arrange(all, order); });
    }
};

// Numbers before other texts.
void sortNumbers(ArrayRef<FND::String> all, std::optional<bool> descends) {
    Ranking<FND::Decimal, FND::String> ranking(
        all, [](const FND::String& text) { return FND::Decimal::fromString(text); });
    List<const FND::String*> texts;
    texts.room(all.size());
    forEach<FND::String>(all, [&](const FND::String& text) { texts.push_back(&text); });
    ranking.sort(descends.value_or(false), [&](const auto& a, const auto& b) {
        if (a.key.isValid() != b.key.isValid()) return a.key.isValid() ? -1 : 1;
        if (!a.key.isValid()) return compare(*texts[a.index], *texts[b.index]);
        return compare(a.key, b.key);
    });
    arrange(all, ranking.order);
}

// The order of one array, as places in it.
struct OrderOf {
    template <class T>
    long operator()(ArrayView<T> keys, ArrayRef<long> out, std::optional<bool> descends) const {
        List<long> places;
        withRanking<T>(keys, descends.value_or(false), [&](const auto& order) {
            places.room(order.size());
            for (const auto& ranked : order) places.push_back(ranked.index);
        });
        replace(out, places);
        return static_cast<long>(places.size());
    }
};

struct Arrange {
    template <class T>
    bool operator()(ArrayRef<T> all, ArrayView<long> places) const {
        const auto size = static_cast<long>(all.size());
        if (static_cast<long>(places.size()) != size) {
            refuse("as many places as elements are needed, not", long(places.size()));
        }
        struct Place {
            unsigned long index;
        };
        List<Place> order;
        List<bool> isTaken;
        isTaken.extend(all.size());
        for (const long place : places) {
            if (place < 0 || place >= size || isTaken[static_cast<std::size_t>(place)]) {
                refuse("places are no order, because of", place);
            }
            isTaken[static_cast<std::size_t>(place)] = true;
            order.add({static_cast<unsigned long>(place)});
            work(16);
        }
        arrange(all, order);
        return true;
    }
};

// The value below which the share `q` of all lies, between two neighbours by their distance.
template <class T>
FND::Decimal quantileOf(ArrayView<T> all, const FND::Decimal& q) {
    FND::Decimal value = FND::Decimal::invalid();
    if (!q.isValid() || q < FND::Decimal(0) || q > FND::Decimal(1)) {
        FND::String text;
        q.format(text, 4);
        refuse("the share must be from 0 to 1, not", text);
    }
    if (all.size() == 0) return value;
    withRanking<T>(all, false, [&](const auto& order) {
        const FND::Decimal place = q * FND::Decimal(static_cast<std::int64_t>(order.size() - 1));
        const auto below = static_cast<std::size_t>(place.toLong());
        const FND::Decimal low(order[below].key);
        value = low;
        if (below + 1 >= order.size()) return;
        const FND::Decimal part = place - FND::Decimal(static_cast<std::int64_t>(below));
        if (!part.isZero()) value = low + (FND::Decimal(order[below + 1].key) - low) * part;
    });
    return value;
}

struct Quantile {
    template <class T>
    FND::Decimal operator()(ArrayView<T> all, const FND::Decimal& q) const {
        return quantileOf(all, q);
    }
};

struct Median {
    template <class T>
    FND::Decimal operator()(ArrayView<T> all) const {
        return quantileOf(all, FND::Decimal::fromString("0.5"));
    }
};

// Keys of a hash in the order of its values.
struct KeysByValue {
    template <class T>
    long operator()(HashView<T> hash, ArrayRef<FND::String> out,
                    std::optional<bool> descends) const {
        struct Entry {
            const FND::String* key;
            const T* value;
        };
        const Charge sorting(hash.size() * 2 * sizeof(void*));
        List<Entry> entries;
        List<Entry> buffer;
        entries.room(hash.size());
        for (const FND::String* key : hash.keys()) entries.add({key, hash.find(*key)});
        buffer.extend(entries.size());
        const bool isDown = descends.value_or(false);
        mergeSort(
            entries.data(), buffer.data(), entries.size(), [&](const Entry& a, const Entry& b) {
                return isDown ? compare(*b.value, *a.value) < 0 : compare(*a.value, *b.value) < 0;
            });
        unsigned long index = 0;
        for (const Entry& entry : entries) give(out, index++, *entry.key);
        out.resize(index);
        return static_cast<long>(index);
    }
};

#define KESTREL_ORDERED long, FND::Decimal, FND::String, FND::DateTime

constexpr ModuleFunction orderFunctionsS[] = {
    {"Void sort(change T[] items)", SCR::addFunctionOver<Sort<false>, KESTREL_ORDERED>,
     Effect::None,
     "Sorts Longs, Decimals and Dates by their values and Strings by their bytes, ascending. What "
     "is equal keeps its order.",
     R"(Long a[]; a[0] = 3; a[1] = 1; list::sort(a); a[0] == 1 and a[1] == 3)"},
    {"Void sortDown(change T[] items)", SCR::addFunctionOver<Sort<true>, KESTREL_ORDERED>,
     Effect::None, "As `sort`, descending.",
     R"(String a[]; a[0] = "a"; a[1] = "b"; list::sortDown(a); a[0] == "b")"},
    {"Void sortNumbers(change String[] items, [Bool descending])", SCR::addFunction<sortNumbers>,
     Effect::None,
     "Sorts texts by the numbers that they spell. Other texts come after them, by their bytes.",
     R"(String a[]; a[0] = "10"; a[1] = "9.5"; list::sortNumbers(a); a[0] == "9.5")"},
    {"Long order(T[] keys, out Long[] places, [Bool descending])",
     SCR::addFunctionOver<OrderOf, KESTREL_ORDERED>, Effect::None,
     "Fills `places` with the places of the elements of `keys` in their order, and gives their "
     "number: the least is `keys[places[0]]`.",
     R"(Long k[]; k[0] = 5; k[1] = 2; Long p[]; list::order(k, p) == 2 and p[0] == 1)"},
    {"Bool arrange(change T[] items, Long[] places)",
     SCR::addFunctionOver<Arrange, KESTREL_ORDERED, bool>, Effect::None,
     "Puts the elements in the order that `order` gave, so that several arrays can be sorted by "
     "one. Places that do not name each element once are an error, and the result false.",
     R"(Long k[]; k[0] = 5; k[1] = 2; String s[]; s[0] = "five"; s[1] = "two"; Long p[];
list::order(k, p); list::arrange(s, p) and s[0] == "two")"},
    {"Decimal quantile(T[] items, Decimal share)",
     SCR::addFunctionOver<Quantile, long, FND::Decimal>, Effect::None,
     "The value below which this share of the Longs or Decimals lies, from 0 to 1: between two "
     "neighbours in proportion. INVALID_DECIMAL without elements, or after an error for another "
     "share.",
     R"(Long a[]; a[0] = 10; a[1] = 20; a[2] = 30; list::quantile(a, 0.25) == 15)"},
    {"Decimal median(T[] items)", SCR::addFunctionOver<Median, long, FND::Decimal>, Effect::None,
     "As `quantile` with the share 0.5.",
     R"(Long a[]; a[0] = 1; a[1] = 2; list::median(a) == 1.5)"},
    {"Long keysByValue(T{} hash, out String[] keys, [Bool descending])",
     SCR::addFunctionOver<KeysByValue, KESTREL_ORDERED>, Effect::None,
     "Fills `keys` with the keys in the order of their values, those of equal ones by their bytes, "
     "and gives their number.",
     R"(Long h{}; h{"a"} = 2; h{"b"} = 1; String k[]; list::keysByValue(h, k) == 2 and k[0] == "b")"},
};

}  // namespace

std::span<const ModuleFunction> orderFunctions() { return orderFunctionsS; }

}  // namespace Modules::ListModule
