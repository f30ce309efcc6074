#include <algorithm>
#include <array>
#include <bit>
#include <memory>
#include <optional>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "modules/list/List.h"
#include "modules/list/Sorting.h"

namespace Modules::ListModule {

namespace {

/// How many elements ahead memory is asked for.
constexpr std::size_t aheadS = 16;

constexpr std::uint64_t signS = std::uint64_t{1} << 63;

std::uint64_t keyOf(long number) { return static_cast<std::uint64_t>(number) ^ signS; }
std::uint64_t keyOf(const FND::DateTime& date) { return keyOf(static_cast<long>(date.secs())); }
// Unequal numbers may have the same nearest double.
std::uint64_t keyOf(const FND::Decimal& number) {
    if (!number.isValid()) return 0;
    const double nearest = number.isZero() ? 0.0 : number.toDouble();
    const auto bits = std::bit_cast<std::uint64_t>(nearest);
    return (bits & signS) != 0 ? ~bits : bits | signS;
}
// The next eight bytes of a text.
std::uint64_t keyOf(std::string_view text, std::size_t skip) {
    std::uint64_t head = 0;
    if (text.size() >= skip + sizeof head) {
        std::memcpy(&head, text.data() + skip, sizeof head);
    } else if (text.size() > skip) {
        std::memcpy(&head, text.data() + skip, text.size() - skip);
    }
    return __builtin_bswap64(head);
}

// How many of their first bytes, at most `most`, two texts share.
std::size_t commonBytes(std::string_view a, std::string_view b, std::size_t most) {
    constexpr std::size_t piece = 64 * 1024;
    most = std::min({most, a.size(), b.size()});
    for (std::size_t at = 0; at < most; at += piece) {
        const std::size_t size = std::min(piece, most - at);
        if (most > piece) work(size);
        if (std::memcmp(a.data() + at, b.data() + at, size) == 0) continue;
        while (a[at] == b[at]) ++at;
        return at;
    }
    return most;
}

/// The order of the elements of an array: the least first or the greatest; equal ones as they are.
template <class T>
class Order {
public:
    Order(ArrayView<T> all, bool descends) : descends_(descends) {
        constexpr unsigned long most = UINT32_MAX;
        if (all.size() > most) refuse("more elements than 2^32", static_cast<long>(all.size()));
        if (all.size() == 0) return;
        entries_.room(all.size());
        if constexpr (isRefined) elements_.room(all.size());
        forEach(all, [&](const T& value) {
            if constexpr (isRefined) elements_.push_back(value);
            Ranked entry{0, static_cast<std::uint32_t>(entries_.size())};
            if constexpr (!isText) entry.key = keyOf(value);
            entries_.push_back(entry);
        });
        Packing<isText ? 3 : 1> packing;
        const std::size_t prefix = see(packing);
        packing.finish();
        forEachNumber(prefix, [&](std::size_t i, const auto& number) {
            entries_[i].key = turned(packing.keyOf(number));
        });
        List<Ranked> buffer;
        buffer.room(entries_.size());
        buffer_ = buffer.data();
        sort(entries_.data(), entries_.size(), packing.bits(), prefix + packing.bytes(), 0);
    }

    std::size_t size() const { return entries_.size(); }
    auto begin() const { return entries_.begin(); }
    auto end() const { return entries_.end(); }
    const Ranked& operator[](std::size_t place) const { return entries_[place]; }

private:
    static constexpr bool isText = std::is_same_v<T, FND::String>;
    /// Whether equal keys do not mean equal values.
    static constexpr bool isRefined = isText || std::is_same_v<T, FND::Decimal>;
    using Kept = std::conditional_t<isText, std::string_view, T>;
    static constexpr std::size_t fewCM = 8;
    static constexpr int deepestCM = 8;

    // Shows all numbers to `packing`. Gives how many of their first bytes all texts share.
    template <class Packing>
    std::size_t see(Packing& packing) const {
        std::size_t prefix = 0;
        if constexpr (isText) {
            // What some of them share, most likely all do.
            constexpr std::size_t some = 64;
            const std::size_t step = elements_.size() / some + 1;
            prefix = elements_[0].size();
            for (std::size_t i = 0; i < elements_.size(); i += step) {
                prefix = commonBytes(elements_[0], elements_[i], prefix);
            }
            const std::size_t likely = prefix;
            forEachNumber(likely, [&](std::size_t i, const auto& number) {
                prefix = commonBytes(elements_[0], elements_[i], prefix);
                packing.see(number);
            });
            if (prefix == likely) return prefix;
            packing = {};
        }
        forEachNumber(prefix, [&](std::size_t /*i*/, const auto& number) { packing.see(number); });
        return prefix;
    }
    // Calls `use(i, number)` for each element, where the number of a text is made of its first
    // bytes after `skip`.
    template <class Use>
    void forEachNumber([[maybe_unused]] std::size_t skip, const Use& use) const {
        constexpr std::size_t piece = 1024;
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            if constexpr (isText) {
                // The texts may lie all over the memory: it is told early which ones are next.
                if (i + aheadS < elements_.size()) {
                    __builtin_prefetch(elements_[i + aheadS].data() + skip);
                }
                const std::string_view text = elements_[i];
                use(i,
                    std::array{keyOf(text, skip), keyOf(text, skip + 8), keyOf(text, skip + 16)});
            } else {
                use(i, std::array{entries_[i].key});
            }
            if (i % piece == piece - 1) work(piece * 32);
        }
    }
    std::uint64_t turned(std::uint64_t key) const { return descends_ ? ~key : key; }

    // `entries` have the keys of their elements, which differ in so many bits. Texts with the same
    // key have the same first `skip` bytes.
    void sort(Ranked* entries, std::size_t count, int bits, std::size_t skip, int depth) {
        sortByKeys(entries, buffer_, count, bits);
        if constexpr (isRefined) {
            for (std::size_t begin = 0; begin < count;) {
                std::size_t end = begin + 1;
                while (end < count && entries[end].key == entries[begin].key) ++end;
                if (end - begin > 1) refine(entries + begin, end - begin, skip, depth);
                work(8 * (end - begin));
                begin = end;
            }
        }
    }

    // Sorts elements whose keys are equal. A text is looked at a few times only, however many it is
    // compared with, since it is sorted by its next bytes first.
    void refine(Ranked* entries, std::size_t count, std::size_t skip, int depth) {
        if constexpr (isText) {
            if (count > fewCM && depth < deepestCM) {
                constexpr std::size_t next = sizeof(std::uint64_t);
                for (std::size_t i = 0; i < count; ++i) {
                    const Ranked* const later = entries + i + aheadS;
                    if (later < entries_.data() + entries_.size()) {
                        __builtin_prefetch(elements_[later->index].data() + skip);
                    }
                    entries[i].key = turned(keyOf(elements_[entries[i].index], skip));
                    if (i % 1024 == 1023) work(1024 * 16);
                }
                return sort(entries, count, 64, skip + next, depth + 1);
            }
        }
        mergeSort(entries, buffer_, count, [this](const Ranked& a, const Ranked& b) {
            const int order = compare(elements_[a.index], elements_[b.index]);
            return descends_ ? order > 0 : order < 0;
        });
    }

    const bool descends_;
    List<Ranked> entries_;
    List<Kept> elements_;
    Ranked* buffer_ = nullptr;
};

/// Where the elements of an array lie, which are all made and keep their places.
template <class T>
class Elements {
public:
    explicit Elements(ArrayRef<T> all) {
        for (unsigned long i = 0; i < all.size();) {
            const auto run = all.change(i);
            if (run.count == 0) return;
            add(run, i, all.size() - i);
            i += run.count;
        }
        isComplete_ = true;
    }

    /// False when there is no room for some of them.
    bool isComplete() const { return isComplete_; }
    T& operator[](std::size_t index) const {
        const Block& block = blocks_[index / blockCM];
        const std::size_t at = index % blockCM;
        if (block.first == nullptr) return *singles_[block.firstSingle + at];
        return *reinterpret_cast<T*>(block.first + at * stride_);
    }

private:
    // So many elements, side by side if there is a first one, otherwise a pointer to each.
    struct Block {
        std::byte* first;
        std::size_t firstSingle;
    };
    static constexpr std::size_t blockCM = 4096;

    void add(const SCR::Host::Run<T>& run, std::size_t index, std::size_t left) {
        stride_ = run.stride;
        for (std::size_t k = 0; k < run.count;) {
            if ((index + k) % blockCM == 0) {
                const std::size_t size = std::min(blockCM, left - k);
                const bool isWhole = size <= run.count - k;
                auto* const first = reinterpret_cast<std::byte*>(&run[k]);
                blocks_.add({isWhole ? first : nullptr, singles_.size()});
                if (isWhole) {
                    k += size;
                    continue;
                }
            }
            singles_.add(&run[k++]);
        }
        work(run.count);
    }

    List<Block> blocks_;
    List<T*> singles_;
    std::size_t stride_ = 0;
    bool isComplete_ = false;
};

/// Puts the elements of an array in an order, in place: a value is taken into a hand, the one that
/// belongs into its place moves there, which leaves another place empty, and so on until the one in
/// the hand is wanted. Several hands work in turns, as each of them waits for the memory. When the
/// script is stopped, the values in the hands go to the places that are empty.
template <class T, class Order>
class Arrangement {
public:
    Arrangement(ArrayRef<T> all, const Order& order)
        : elements_(all), order_(order), taken_(order.size()) {}
    Arrangement(const Arrangement&) = delete;
    Arrangement& operator=(const Arrangement&) = delete;
    ~Arrangement() {
        for (std::size_t i = 0; i < open_; ++i)
            elements_[holes_[i].place] = std::move(hands_[i].value);
    }

    void run() {
        if (!elements_.isComplete()) return;
        do {
            while (open_ < handsCM && take()) {
            }
            for (std::size_t i = 0; i < open_; ++i) {
                holes_[i].source = order_[holes_[i].place].index;
                __builtin_prefetch(&elements_[holes_[i].source], 1);
            }
            // In the same order, so that each of them had the longest time to arrive.
            for (std::size_t i = 0; i < open_;) i += fill(i) ? 1 : 0;
            work(32 * handsCM);
        } while (open_ > 0 || next_ < order_.size());
    }

private:
    struct Hand {
        std::size_t from = 0;
        T value{};
    };
    struct Hole {
        std::size_t place = 0;
        std::size_t source = 0;  // of the value that belongs there
    };
    static constexpr std::size_t handsCM = 16;

    // Takes another value that is not in its place; false when there is none.
    bool take() {
        for (; next_ < order_.size(); ++next_) {
            if (next_ % 1024 == 1023) work(1024);
            if (taken_.has(next_) || order_[next_].index == next_) continue;
            taken_.set(next_);
            hands_[open_].value = std::move(elements_[next_]);
            hands_[open_].from = holes_[open_].place = next_;
            ++open_;
            return true;
        }
        return false;
    }
    // Fills a place. False when that closed a circle: the last one that is open has number `i`
    // then.
    bool fill(std::size_t i) {
        Hole& hole = holes_[i];
        T& empty = elements_[hole.place];
        if (!taken_.has(hole.source)) {
            empty = std::move(elements_[hole.source]);
            taken_.set(hole.source);
            hole.place = hole.source;
            __builtin_prefetch(&order_[hole.place]);
            return true;
        }
        std::size_t hand = 0;
        while (hands_[hand].from != hole.source) ++hand;
        empty = std::move(hands_[hand].value);
        --open_;
        if (hand != open_) hands_[hand] = std::move(hands_[open_]);
        hole = holes_[open_];
        return false;
    }

    const Elements<T> elements_;
    const Order& order_;
    Marks taken_;  // of elements that have left their places
    std::size_t next_ = 0;
    std::size_t open_ = 0;  // hands and holes in use
    std::array<Hand, handsCM> hands_;
    std::array<Hole, handsCM> holes_;
};

// Puts the elements of `all` in the order of `order`.
template <class T, class Order>
void arrange(ArrayRef<T> all, const Order& order) {
    Arrangement<T, Order>(all, order).run();
}

template <bool descends>
struct Sort {
    template <class T>
    void operator()(ArrayRef<T> all) const {
        arrange(all, Order<T>(all, descends));
    }
};

// Numbers before other texts.
void sortNumbers(ArrayRef<FND::String> all, std::optional<bool> descends) {
    struct Entry {
        FND::Decimal number;
        const FND::String* text;
        std::uint32_t index;
    };
    constexpr unsigned long most = UINT32_MAX;
    if (all.size() > most) refuse("more elements than 2^32", static_cast<long>(all.size()));
    List<Entry> order;
    List<Entry> buffer;
    order.room(all.size());
    buffer.extend(all.size());
    std::uint32_t index = 0;
    forEach<FND::String>(all, [&](const FND::String& text) {
        order.push_back({FND::Decimal::fromString(text), &text, index++});
    });
    const bool isDown = descends.value_or(false);
    mergeSort(order.data(), buffer.data(), order.size(), [&](const Entry& a, const Entry& b) {
        if (a.number.isValid() != b.number.isValid()) return a.number.isValid();
        const int sign =
            a.number.isValid() ? compare(a.number, b.number) : compare(*a.text, *b.text);
        return isDown ? sign > 0 : sign < 0;
    });
    arrange(all, order);
}

// The order of one array, as places in it.
struct OrderOf {
    template <class T>
    long operator()(ArrayView<T> keys, ArrayRef<long> out, std::optional<bool> descends) const {
        List<long> places;
        const Order<T> order(keys, descends.value_or(false));
        places.room(order.size());
        for (const Ranked& ranked : order) {
            work(8);
            places.push_back(ranked.index);
        }
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
        Marks taken(all.size());
        order.room(all.size());
        for (const long place : places) {
            if (place < 0 || place >= size || taken.has(static_cast<std::size_t>(place))) {
                refuse("places are no order, because of", place);
            }
            taken.set(static_cast<std::size_t>(place));
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
    if (!q.isValid() || q < FND::Decimal(0) || q > FND::Decimal(1)) {
        FND::String text;
        q.format(text, 4);
        refuse("the share must be from 0 to 1, not", text);
    }
    if (all.size() == 0) return FND::Decimal::invalid();
    const Order<T> order(all, false);
    const auto valueAt = [&](std::size_t place) { return FND::Decimal(all[order[place].index]); };
    const FND::Decimal place = q * FND::Decimal(static_cast<std::int64_t>(order.size() - 1));
    const auto below = static_cast<std::size_t>(place.toLong());
    const FND::Decimal low = valueAt(below);
    if (below + 1 >= order.size()) return low;
    const FND::Decimal part = place - FND::Decimal(static_cast<std::int64_t>(below));
    return part.isZero() ? low : low + (valueAt(below + 1) - low) * part;
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
        for (const FND::String* key : hash.keys()) {
            work(64);
            entries.add({key, hash.find(*key)});
        }
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
     "is equal keeps its order. A script that is stopped meanwhile leaves the elements in some "
     "order.",
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
     "neighbours in proportion. INVALID_DECIMAL without elements. Another share is an error, and "
     "the "
     "result 0.",
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
