#include <arpa/inet.h>

#include <charconv>
#include <cstdio>
#include <map>
#include <memory>
#include <optional>
#include <span>

#include "modules/net/Net.h"
#include "modules/net/Steps.h"
#include "scr/Interpreter.h"
#include "scr/value/KeyHash.h"

namespace Modules::NetModule {

namespace {

// Four numbers of 0 to 255 without zeros at their start.
std::optional<Address> addressOfFour(std::string_view text) {
    const auto isDigit = [&](std::size_t at) {
        return at < text.size() && text[at] >= '0' && text[at] <= '9';
    };
    std::uint32_t number = 0;
    std::size_t at = 0;
    for (int part = 0; part < 4; ++part) {
        if (part > 0 && (at >= text.size() || text[at++] != '.')) return std::nullopt;
        if (!isDigit(at)) return std::nullopt;
        auto value = static_cast<std::uint32_t>(text[at++] - '0');
        while (value > 0 && value < 256 && isDigit(at)) {
            value = value * 10 + static_cast<std::uint32_t>(text[at++] - '0');
        }
        if (value > 255) return std::nullopt;
        number = number << 8 | value;
    }
    if (at != text.size()) return std::nullopt;
    return Address{number, 32};
}

std::optional<Address> addressOf(std::string_view text) {
    char copy[INET6_ADDRSTRLEN + 1];
    if (text.size() >= sizeof copy) return std::nullopt;
    if (text.find(':') == std::string_view::npos) return addressOfFour(text);
    if (text.find('\0') != std::string_view::npos) return std::nullopt;
    *std::copy(text.begin(), text.end(), copy) = '\0';
    std::array<unsigned char, 16> bytes{};
    if (inet_pton(AF_INET6, copy, bytes.data()) != 1) return std::nullopt;
    Address address{0, 128};
    for (const unsigned char byte : bytes) address.number = address.number << 8 | byte;
    return address;
}

FND::String textOf(const Address& address) {
    std::array<unsigned char, 16> bytes{};
    for (int i = 0; i < address.bits / 8; ++i) {
        bytes[static_cast<std::size_t>(i)] =
            static_cast<unsigned char>(address.number >> (address.bits - 8 - 8 * i) & 255);
    }
    char made[INET6_ADDRSTRLEN] = "";
    // The library would end ::1:2 in an address of IPv4, which only ::ffff:0:0/96 is for.
    const bool isLow = address.bits == 128 && address.number >> 32 == 0;
    if (isLow && address.number >> 16 != 0) {
        std::snprintf(made, sizeof made, "::%x:%x", static_cast<unsigned>(address.number >> 16),
                      static_cast<unsigned>(address.number & 0xFFFF));
        return made;
    }
    inet_ntop(address.bits == 128 ? AF_INET6 : AF_INET, bytes.data(), made, sizeof made);
    return made;
}

// The bits that a range of this length leaves open.
Number openBits(int bits, int length) {
    return length == 0 && bits == 128 ? ~Number{0} : (Number{1} << (bits - length)) - 1;
}

std::optional<Range> rangeOf(std::string_view text) {
    constexpr std::size_t longest = 64;
    if (text.size() > longest) return std::nullopt;
    const std::size_t slash = std::min(text.find('/'), text.size());
    const std::optional<Address> address = addressOf(text.substr(0, slash));
    if (!address) return std::nullopt;
    Range range{*address, address->bits};
    if (slash < text.size()) {
        const std::string_view length = text.substr(slash + 1);
        const auto read =
            std::from_chars(length.data(), length.data() + length.size(), range.length);
        const bool isRead = read.ec == std::errc() && read.ptr == length.data() + length.size();
        if (!isRead || range.length < 0 || range.length > address->bits) return std::nullopt;
    }
    range.first.number &= ~openBits(address->bits, range.length);
    return range;
}

Address addressIn(std::string_view text) {
    const std::optional<Address> address = addressOf(text);
    if (!address) refuse("no address", text);
    return *address;
}

Range rangeIn(std::string_view text) {
    const std::optional<Range> range = rangeOf(text);
    if (!range) refuse("no range of addresses", text);
    return *range;
}

long ipVersion(std::string_view text) {
    const std::optional<Address> address = addressOf(text);
    return !address ? 0 : address->bits == 32 ? 4 : 6;
}

FND::String ip(std::string_view text) {
    const std::optional<Address> address = addressOf(text);
    return address ? textOf(*address) : "";
}

bool inRange(std::string_view text, std::string_view rangeText) {
    const Range range = rangeIn(rangeText);
    const std::optional<Address> address = addressOf(text);
    return address && address->bits == range.first.bits &&
           (address->number & ~openBits(address->bits, range.length)) == range.first.number;
}

FND::String rangeFirst(std::string_view text) { return textOf(rangeIn(text).first); }

FND::String rangeLast(std::string_view text) {
    Range range = rangeIn(text);
    range.first.number |= openBits(range.first.bits, range.length);
    return textOf(range.first);
}

FND::String mask(std::string_view text, long length) {
    const Address address = addressIn(text);
    if (length < 0 || length > address.bits) refuse("an address has not so many bits", length);
    return textOf(
        {address.number & ~openBits(address.bits, static_cast<int>(length)), address.bits});
}

long ipToLong(std::string_view text) {
    const Address address = addressIn(text);
    if (address.bits != 32) refuse("not of IPv4", text);
    return static_cast<long>(address.number);
}

FND::String longToIp(long number) {
    if (number < 0 || number > 0xFFFFFFFFL) refuse("no address of IPv4 has the number", number);
    return textOf({static_cast<Number>(number), 32});
}

template <class Key>
struct TableRange {
    Key first;
    Key last;
    std::uint32_t value;
};

/// Ranges with values.
class Table {
public:
    Table(ArrayView<FND::String> ranges, ArrayView<FND::String> values) {
        List<TableRange<std::uint32_t>> four;
        List<TableRange<Number>> six;
        std::uint32_t index = 0;
        for (const FND::String& text : ranges) {
            work(128);
            const Range range = rangeIn(text);
            const Number first = range.first.number;
            const Number last = first | openBits(range.first.bits, range.length);
            const std::uint32_t value = valueFor(values[index++]);
            if (range.first.bits == 32) {
                four.add(
                    {static_cast<std::uint32_t>(first), static_cast<std::uint32_t>(last), value});
            } else {
                six.add({first, last, value});
            }
        }
        known_.reset();
        sort(four);
        sort(six);
        four_.emplace(stepsOf<std::uint32_t>(four));
        six_.emplace(stepsOf<Number>(six));
    }

    std::string_view find(const Address& address) const {
        const std::uint32_t value = address.bits == 32
                                        ? four_->find(static_cast<std::uint32_t>(address.number))
                                        : six_->find(address.number);
        return value != noValueS ? std::string_view(values_[value]) : std::string_view();
    }

private:
    std::uint32_t valueFor(const FND::String& text) {
        if (!known_ || 2 * values_.size() >= known_->size()) growKnown();
        std::uint32_t& known = knownSlot(text);
        if (known == 0) {
            if (text.size() >= sizeof(FND::String) / 2) charge_.add(text.size() + 16);
            values_.add(text);
            known = static_cast<std::uint32_t>(values_.size());
        }
        return known - 1;
    }

    // Where a value is noted, or is to be.
    std::uint32_t& knownSlot(std::string_view text) {
        List<std::uint32_t>& known = *known_;
        const std::size_t mask = known.size() - 1;
        for (std::size_t at = SCR::KeyHash()(text) & mask;; at = (at + 1) & mask) {
            work(64);  // a slot is seldom in the processor's caches
            if (known[at] == 0 || values_[known[at] - 1] == text) return known[at];
        }
    }

    void growKnown() {
        List<std::uint32_t> larger;
        larger.extend(known_ ? 4 * known_->size() : 64);
        known_.emplace(std::move(larger));
        for (std::uint32_t place = 0; place < values_.size(); ++place) {
            knownSlot(values_[place]) = place + 1;
        }
    }

    // When a range is given twice, the later one counts.
    template <class Key>
    static void sort(List<TableRange<Key>>& ranges) {
        const auto isBefore = [](const TableRange<Key>& a, const TableRange<Key>& b) {
            work(32);
            return a.first != b.first ? a.first < b.first : a.last > b.last;
        };
        if (std::is_sorted(ranges.begin(), ranges.end(), isBefore)) return;
        const Charge buffer(ranges.size() * sizeof(TableRange<Key>));
        std::stable_sort(ranges.begin(), ranges.end(), isBefore);
    }

    std::optional<ShortSteps> four_;
    std::optional<LongSteps> six_;
    // While the table is made: a hash table of the places of values, each plus one; 0 is none.
    std::optional<List<std::uint32_t>> known_;
    List<FND::String> values_;
    Charge charge_;
};

/// The tables of one interpreter's script.
struct Tables {
    std::map<long, std::unique_ptr<Table>> all;
    long last = 0;
    std::uint64_t generation = 0;

    // A new script has no numbers of tables from before.
    void enter(const Interpreter& interpreter) {
        if (std::exchange(generation, interpreter.generation()) == interpreter.generation()) return;
        // The charges of the former script were forgotten with it. They cannot be given back again.
        SCR::RunControl* const control = SCR::RunControl::current();
        const std::int64_t before = control != nullptr ? control->buffers() : 0;
        all.clear();
        if (control != nullptr) {
            control->chargeBuffer(static_cast<std::size_t>(before - control->buffers()));
        }
    }
    Table& find(long number) const {
        const auto found = all.find(number);
        if (found == all.end()) refuse("there is no table", number);
        return *found->second;
    }
};

struct RangeTable {
    std::shared_ptr<Tables> tables;

    long operator()(Interpreter& interpreter, ArrayView<FND::String> ranges,
                    ArrayView<FND::String> values) const {
        constexpr std::size_t most = 64;
        tables->enter(interpreter);
        if (ranges.size() != values.size() || ranges.size() >= noValueS) {
            refuse("as many values as ranges are needed, not", static_cast<long>(values.size()));
        }
        if (tables->all.size() >= most) refuse("more tables than 64", tables->last);
        auto made = std::make_unique<Table>(ranges, values);
        tables->all.emplace(++tables->last, std::move(made));
        return tables->last;
    }
};

struct RangeFind {
    std::shared_ptr<Tables> tables;

    std::string_view operator()(Interpreter& interpreter, long table, std::string_view text) const {
        tables->enter(interpreter);
        const Table& found = tables->find(table);
        const std::optional<Address> address = addressOf(text);
        return address ? found.find(*address) : std::string_view();
    }
};

struct RangeDrop {
    std::shared_ptr<Tables> tables;

    bool operator()(Interpreter& interpreter, long table) const {
        tables->enter(interpreter);
        return tables->all.erase(table) > 0;
    }
};

// The functions of one extension are added one after another, and share its tables.
std::shared_ptr<Tables> tablesOf(const SCR::HostExtension& module) {
    thread_local const SCR::HostExtension* last = nullptr;
    thread_local std::weak_ptr<Tables> lastTables;
    std::shared_ptr<Tables> tables = last == &module ? lastTables.lock() : nullptr;
    if (!tables) tables = std::make_shared<Tables>();
    last = &module;
    lastTables = tables;
    return tables;
}

template <class F>
SCR::FctDescr* addShared(SCR::HostExtension& module, const FND::String& name) {
    return module.function(name, F{tablesOf(module)});
}

constexpr ModuleFunction rangeFunctionsS[] = {
    {"Long ipVersion(String text)", SCR::addFunction<ipVersion>, Effect::None,
     "4 or 6 for an address of IPv4 or IPv6, otherwise 0.",
     R"(net::ipVersion("::1") == 6 and net::ipVersion("1.2.3.256") == 0)"},
    {"String ip(String text)", SCR::addFunction<ip>, Effect::None,
     "The address in its usual form; empty for any other text.",
     R"(net::ip("2001:DB8:0:0:0:0:0:1") == "2001:db8::1")"},
    {"Bool inRange(String ip, String range)", SCR::addFunction<inRange>, Effect::None,
     "Whether the address lies in a range such as \"10.0.0.0/8\". What is no address lies in none; "
     "what is no range is an error, here and below.",
     R"(net::inRange("10.1.2.3", "10.0.0.0/8") and net::inRange("::1", "::/0"))"},
    {"String rangeFirst(String range)", SCR::addFunction<rangeFirst>, Effect::None,
     "The first address of a range.", R"(net::rangeFirst("10.1.2.3/8") == "10.0.0.0")"},
    {"String rangeLast(String range)", SCR::addFunction<rangeLast>, Effect::None,
     "The last address of a range.", R"(net::rangeLast("10.1.2.3/8") == "10.255.255.255")"},
    {"String mask(String ip, Long bits)", SCR::addFunction<mask>, Effect::None,
     "The address with all but its first `bits` bits 0, such as for a record without names.",
     R"(net::mask("192.168.7.9", 24) == "192.168.7.0")"},
    {"Long ipToLong(String ip)", SCR::addFunction<ipToLong>, Effect::None,
     "The number that an address of IPv4 is; for any other text an error, and 0.",
     R"(net::ipToLong("0.0.1.2") == 258)"},
    {"String longToIp(Long number)", SCR::addFunction<longToIp>, Effect::None,
     "The address of IPv4 that is this number.", R"(net::longToIp(258) == "0.0.1.2")"},
    {"Long rangeTable(String[] ranges, String[] values)", addShared<RangeTable>, Effect::None,
     "Makes a table of ranges, each with the value at the same place, and gives the table's "
     "number, "
     "which is above 0. It lasts as long as the script, which may have 64. Of a range that is "
     "given "
     "twice the later value counts. A text that is no range is an error, and the result 0.",
     R"(String r[]; String v[]; r[0] = "10.0.0.0/8"; v[0] = "own"; Long t = net::rangeTable(r, v);
net::rangeFind(t, "10.1.1.1") == "own")"},
    {"String rangeFind(Long table, String ip)", addShared<RangeFind>, Effect::None,
     "The value of the smallest range of the table that the address lies in; empty when it lies in "
     "none. A number that is no table's is an error.",
     R"(String r[]; String v[]; r[0] = "::/0"; v[0] = "all"; r[1] = "::1"; v[1] = "here";
net::rangeFind(net::rangeTable(r, v), "::1") == "here")"},
    {"Bool rangeDrop(Long table)", addShared<RangeDrop>, Effect::None,
     "Gives the memory of a table back; false when there is none of this number.",
     R"(net::rangeDrop(7) == false)"},
};

}  // namespace

std::span<const ModuleFunction> rangeFunctions() { return rangeFunctionsS; }

}  // namespace Modules::NetModule
