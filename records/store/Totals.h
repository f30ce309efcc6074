#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fnd/DateTime.h"
#include "fnd/Decimal.h"
#include "fnd/String.h"
#include "scr/run/ScriptCharge.h"

namespace SCR {
class Hash;
class Variable;
}  // namespace SCR

namespace Records {

/// The totals of a script: variables, and elements of hashes, to which it adds from record to
/// record, and which several workers may count apart. In whatever order their totals are merged,
/// the result is the same: a sum that would have to be rounded is refused. What a record added is
/// taken back when the record is rejected. One thread at a time.
class Totals {
public:
    enum class Kind { Sum, Min, Max, Count, Set };

    /// A variable of the script that is a total.
    struct Entry {
        Kind kind;
        int type;                 ///< The base code of what is added.
        bool isHash;              ///< It has a total for each key.
        SCR::Variable* variable;  ///< not owned
        bool isSet = false;       ///< If it is no hash: whether something was added.
    };
    using Reference = std::shared_ptr<Entry>;

    /// The entry of `variable`, which is a total as long as somebody has one. Null when it is a
    /// total of another kind.
    Reference declare(Kind kind, int type, bool isHash, SCR::Variable* variable);
    /// The script keeps the first record of each key.
    void declareKeys() { hasKeys_ = true; }
    /// Whether the script has totals, or keys.
    bool areUsed() const;

    /// A record begins: what is added from now on can be taken back.
    void begin() {
        if (!undo_.empty()) forget();
        isOpen_ = true;
        mayAdd_ = true;
    }
    void end() { isOpen_ = false; }
    /// Takes back what was added since `begin`.
    void takeBack();
    /// Whether there is, or was, a record.
    bool mayAdd() const { return mayAdd_; }

    // These add to a total and give why it is impossible, or null.

    template <class Value>
    const char* add(Entry& entry, Value& total, const Value& value) {
        if (isOpen_) note(entry, &total, entry.isSet);
        const char* const wrong = combine(entry.kind, total, value, entry.isSet);
        if (wrong == nullptr) entry.isSet = true;
        return wrong;
    }
    /// The total of a key, which is an element of a hash and new if `isNew`.
    template <class Value>
    const char* add(Entry& entry, const FND::String& key, bool isNew, Value& total,
                    const Value& value) {
        if (isOpen_) {
            if (isNew) {
                noteNew(entry, key);
            } else {
                note(entry, &total, true);
            }
        }
        return combine(entry.kind, total, value, !isNew);
    }

    /// Adds the totals of `other`, a worker with the same script. Gives what is wrong, or "".
    std::string merge(const Totals& other);
    /// Appends the totals to `out`, as `read` takes them.
    void write(std::string& out) const;
    /// Adds the totals that `text` tells. Gives what is wrong, or "".
    std::string read(std::string_view text);

private:
    struct Undo {
        Entry* entry;
        void* total;  // null: it was made, under the key texts_[text]
        bool wasSet;
        std::array<std::byte, sizeof(FND::Decimal)> value;  // unless it is a text,
        std::size_t text;                                   // which is texts_[text]
    };

    static const char* combine(Kind kind, long& total, long value, bool isSet);
    static const char* combine(Kind kind, FND::Decimal& total, const FND::Decimal& value,
                               bool isSet);
    static const char* combine(Kind kind, FND::DateTime& total, const FND::DateTime& value,
                               bool isSet);
    static const char* combine(Kind kind, FND::String& total, const FND::String& value, bool isSet);
    static const char* combine(Kind kind, bool& total, bool value, bool isSet);

    void note(Entry& entry, void* total, bool wasSet);
    void noteNew(Entry& entry, const FND::String& key);
    Undo& addUndo(Entry& entry);
    void forget();
    std::vector<Reference> entries() const;

    // Calls `visit(key, value)` for each total of an entry; the key is empty if it is no hash.
    template <class Visit>
    static void forEach(const Entry& entry, const Visit& visit);
    // Adds `value` under `key` if the entry is a hash.
    template <class Value>
    static const char* mergeValue(Entry& entry, const FND::String& key, const Value& value);

    std::vector<std::weak_ptr<Entry>> entries_;  // in the order of the script
    std::vector<Undo> undo_;
    std::vector<FND::String> texts_;
    SCR::ScriptCharge charge_;  // for what can be taken back
    bool hasKeys_ = false;
    bool isOpen_ = false;
    bool mayAdd_ = false;
};

}  // namespace Records
