#include "records/store/Totals.h"

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>
#include <type_traits>
#include <utility>

#include "scr/Hash.h"
#include "scr/HostContainers.h"
#include "scr/Variable.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/RunControl.h"
#include "scr/value/TypeVisitor.h"

namespace Records {
namespace {

constexpr const char* tooLargeS = "the sum does not fit a Long";
constexpr const char* inexactS = "the sum has more digits than a Decimal";
constexpr const char* noRoomS = "no room for more elements";
constexpr const char* damagedS = "the totals are damaged";

template <class Value>
void keepBetter(bool isMin, Value& total, const Value& value, bool isSet) {
    if (!isSet || (isMin ? value < total : total < value)) total = value;
}

// The types that totals have.
using Types =
    SCR::TypeList<SCR::LongType, SCR::DecimalType, SCR::DateType, SCR::StringType, SCR::BoolType>;

template <class Visit>
void withType(int code, const Visit& visit) {
    SCR::withType(Types(), code, [&]<class Type>(Type type) {
        visit(type);
        return true;
    });
}

std::string spelled(long value) { return std::to_string(value); }
std::string spelled(bool value) { return value ? "1" : "0"; }
std::string spelled(const FND::Decimal& value) { return value.toPlainString(); }
std::string spelled(const FND::DateTime& value) { return std::to_string(value.secs()); }
const std::string& spelled(const FND::String& value) { return value; }

std::optional<long> numberIn(std::string_view text) {
    long number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number);
    return error == std::errc() && stop == end ? std::optional(number) : std::nullopt;
}

bool readValue(std::string_view text, FND::String& value) {
    value = text;
    return true;
}
bool readValue(std::string_view text, FND::Decimal& value) {
    value = FND::Decimal::fromString(text);
    return value.isValid();
}
bool readValue(std::string_view text, long& value) {
    const std::optional<long> number = numberIn(text);
    value = number.value_or(0);
    return number.has_value();
}
bool readValue(std::string_view text, bool& value) {
    value = text == "1";
    return value || text == "0";
}
bool readValue(std::string_view text, FND::DateTime& value) {
    long seconds = 0;
    if (!readValue(text, seconds)) return false;
    value = FND::DateTime(seconds);
    return true;
}

// Takes pieces from a text: numbers that end with a blank, and texts of a length told before them.
class Pieces {
public:
    explicit Pieces(std::string_view text) : rest_(text) {}
    bool isEmpty() const { return rest_.empty(); }
    long number() {
        const std::size_t end = rest_.find(' ');
        const auto found = numberIn(rest_.substr(0, end));
        if (end == std::string_view::npos || !found || *found < 0) return fail();
        rest_.remove_prefix(end + 1);
        return *found;
    }
    std::string_view text() {
        const long size = number();
        if (size < 0 || static_cast<std::size_t>(size) > rest_.size()) {
            fail();
            return {};
        }
        const std::string_view found = rest_.substr(0, static_cast<std::size_t>(size));
        rest_.remove_prefix(found.size());
        return found;
    }
    bool isGood() const { return isGood_; }

private:
    long fail() {
        isGood_ = false;
        rest_ = {};
        return -1;
    }
    std::string_view rest_;
    bool isGood_ = true;
};

void appendNumber(std::size_t number, std::string& out) { out += std::to_string(number) + ' '; }

void appendSized(std::string_view text, std::string& out) {
    appendNumber(text.size(), out);
    out += text;
}

}  // namespace

const char* Totals::combine(Kind kind, long& total, long value, bool isSet) {
    if (kind == Kind::Set) {
        total = value;
    } else if (kind == Kind::Sum || kind == Kind::Count) {
        if (__builtin_add_overflow(total, value, &total)) return tooLargeS;
    } else {
        keepBetter(kind == Kind::Min, total, value, isSet);
    }
    return nullptr;
}

const char* Totals::combine(Kind kind, FND::Decimal& total, const FND::Decimal& value, bool isSet) {
    if (kind != Kind::Sum) {
        keepBetter(kind == Kind::Min, total, value, isSet);
        return nullptr;
    }
    const FND::Decimal sum = total + value;
    // A sum that was rounded has fewer digits after the point than the more exact operand.
    if (!sum.isValid() || sum.scale() < std::max(total.scale(), value.scale())) return inexactS;
    total = sum;
    return nullptr;
}

const char* Totals::combine(Kind kind, FND::DateTime& total, const FND::DateTime& value,
                            bool isSet) {
    keepBetter(kind == Kind::Min, total, value, isSet);
    return nullptr;
}

const char* Totals::combine(Kind kind, FND::String& total, const FND::String& value, bool isSet) {
    SCR::RunControl* const control = SCR::RunControl::current();
    if (control != nullptr && value.size() > total.capacity()) {
        control->charge(SCR::growth(total, value.size()));
    }
    keepBetter(kind == Kind::Min, total, value, isSet);
    return nullptr;
}

const char* Totals::combine(Kind /*kind*/, bool& total, bool value, bool /*isSet*/) {
    total = value;
    return nullptr;
}

Totals::Reference Totals::declare(Kind kind, int type, bool isHash, SCR::Variable* variable) {
    std::erase_if(entries_, [](const auto& entry) { return entry.expired(); });
    for (const Reference& entry : entries()) {
        if (entry->variable == variable) return entry->kind == kind ? entry : nullptr;
    }
    auto entry = std::make_shared<Entry>(Entry{kind, type, isHash, variable});
    entries_.push_back(entry);
    return entry;
}

std::vector<Totals::Reference> Totals::entries() const {
    std::vector<Reference> living;
    for (const auto& entry : entries_) {
        if (Reference reference = entry.lock()) living.push_back(std::move(reference));
    }
    return living;
}

bool Totals::areUsed() const { return hasKeys_ || !entries().empty(); }

Totals::Undo& Totals::addUndo(Entry& entry) {
    if (undo_.size() == undo_.capacity()) charge_.take(2 * sizeof(Undo) * (undo_.size() + 1));
    return undo_.emplace_back(Undo{&entry, nullptr, false, {}, texts_.size()});
}

void Totals::note(Entry& entry, void* total, bool wasSet) {
    Undo& undo = addUndo(entry);
    undo.total = total;
    undo.wasSet = wasSet;
    withType(entry.type, [&]<class Type>(Type) {
        using Value = typename Type::Value;
        if constexpr (std::is_same_v<Value, FND::String>) {
            const auto& text = *static_cast<const FND::String*>(total);
            charge_.take(sizeof(FND::String) + text.size());
            texts_.push_back(text);
        } else {
            std::memcpy(undo.value.data(), total, sizeof(Value));
        }
    });
}

void Totals::noteNew(Entry& entry, const FND::String& key) {
    charge_.take(sizeof(FND::String) + key.size());
    addUndo(entry);
    texts_.push_back(key);
}

void Totals::forget() {
    if (charge_.isLarge()) {
        undo_ = {};
        texts_ = {};
    }
    undo_.clear();
    texts_.clear();
    charge_.release();
}

void Totals::takeBack() {
    for (auto undo = undo_.rbegin(); undo != undo_.rend(); ++undo) {
        if (undo->total == nullptr) {
            static_cast<SCR::Hash*>(undo->entry->variable)->remove(texts_[undo->text]);
            continue;
        }
        undo->entry->isSet = undo->wasSet;
        withType(undo->entry->type, [&]<class Type>(Type) {
            using Value = typename Type::Value;
            if constexpr (std::is_same_v<Value, FND::String>) {
                static_cast<FND::String*>(undo->total)->assign(texts_[undo->text]);
            } else {
                std::memcpy(undo->total, undo->value.data(), sizeof(Value));
            }
        });
    }
    forget();
}

template <class Visit>
void Totals::forEach(const Entry& entry, const Visit& visit) {
    withType(entry.type, [&]<class Type>(Type) {
        if (entry.isHash) {
            const SCR::HashView<typename Type::Value> hash(
                *static_cast<const SCR::Hash*>(entry.variable));
            hash.forEach(visit);
        } else if (entry.isSet) {
            visit(FND::String(), static_cast<typename Type::Variable*>(entry.variable)->value());
        }
    });
}

template <class Value>
const char* Totals::mergeValue(Entry& entry, const FND::String& key, const Value& value) {
    using Type = SCR::Host::ElementOf<Value>;
    if (!entry.isHash) {
        auto& total = static_cast<typename Type::Variable*>(entry.variable)->value();
        const char* const wrong = combine(entry.kind, total, value, entry.isSet);
        entry.isSet = true;
        return wrong;
    }
    auto& hash = *static_cast<SCR::Hash*>(entry.variable);
    const unsigned long before = hash.size();
    Value* const total = SCR::HashRef<Value>(hash, nullptr).at(key);
    if (total == nullptr) return noRoomS;
    return combine(entry.kind, *total, value, hash.size() == before);
}

std::string Totals::merge(const Totals& other) {
    const std::vector<Reference> own = entries();
    const std::vector<Reference> others = other.entries();
    mayAdd_ = true;
    const char* wrong = nullptr;
    for (std::size_t i = 0; i < std::min(own.size(), others.size()); ++i) {
        forEach(*others[i], [&](const FND::String& key, const auto& value) {
            if (wrong == nullptr) wrong = mergeValue(*own[i], key, value);
        });
    }
    return wrong == nullptr ? std::string() : wrong;
}

void Totals::write(std::string& out) const {
    const std::vector<Reference> all = entries();
    appendNumber(all.size(), out);
    for (const Reference& entry : all) {
        std::size_t count = 0;
        forEach(*entry, [&](const FND::String& /*key*/, const auto& /*value*/) { ++count; });
        appendNumber(static_cast<std::size_t>(entry->kind), out);
        appendNumber(static_cast<std::size_t>(entry->type), out);
        appendNumber(entry->isHash ? 1 : 0, out);
        appendNumber(count, out);
        forEach(*entry, [&](const FND::String& key, const auto& value) {
            appendSized(key, out);
            appendSized(spelled(value), out);
        });
    }
}

std::string Totals::read(std::string_view text) {
    const std::vector<Reference> all = entries();
    mayAdd_ = true;
    Pieces pieces(text);
    const char* wrong = pieces.number() == static_cast<long>(all.size()) ? nullptr : damagedS;
    for (std::size_t i = 0; wrong == nullptr && i < all.size(); ++i) {
        Entry& entry = *all[i];
        const bool isSame = pieces.number() == static_cast<long>(entry.kind) &&
                            pieces.number() == entry.type &&
                            pieces.number() == (entry.isHash ? 1 : 0);
        const long count = pieces.number();
        if (!isSame) return damagedS;
        withType(entry.type, [&]<class Type>(Type) {
            typename Type::Value value{};
            for (long n = 0; wrong == nullptr && n < count; ++n) {
                const FND::String key(pieces.text());
                wrong = readValue(pieces.text(), value) ? mergeValue(entry, key, value) : damagedS;
                if (!pieces.isGood()) wrong = damagedS;
            }
        });
    }
    if (wrong == nullptr && !pieces.isEmpty()) wrong = damagedS;
    return wrong == nullptr ? "" : wrong;
}

}  // namespace Records
