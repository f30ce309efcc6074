#include <algorithm>
#include <type_traits>
#include <utility>
#include <vector>

#include "scr/FctDescr.h"
#include "scr/Variable.h"
#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/StringResult.h"
#include "scr/message/Messages.h"
#include "scr/message/Quote.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"

namespace SCR {

namespace {

/// Selects from a table of constants, which is built when the call is compiled.
template <class Type>
class Decode final : public Type::Node {
public:
    /// A function that takes any number of arguments gets them unchecked, together with their
    /// types.
    static Node* factory(Interpreter& interpreter, ParserStack& stack, const FctDescr& descriptor) {
        const int count = stack.topNumParams();
        if (count < descriptor.minimum()) {
            SCR_YaccError(Messages::missingArguments(descriptor.minimum() - count));
            return nullptr;
        }
        if (count % 2 != 0) {
            SCR_YaccError(Messages::evenArguments(descriptor.name()));
            return nullptr;
        }
        auto node = std::make_unique<Decode>();
        if (!popConstant(stack, descriptor, node->default_)) return nullptr;
        node->table_.resize(static_cast<std::size_t>(count) / 2 - 1);
        for (auto entry = node->table_.rbegin(); entry != node->table_.rend(); ++entry) {
            if (!popConstant(stack, descriptor, entry->second)) return nullptr;
            if (!popConstant(stack, descriptor, entry->first)) return nullptr;
        }
        if (!descriptor.checkType(Type::typeCode, stack.popType())) return nullptr;
        node->selector_ = stack.pop<typename Type::Node>();
        node->sortTable();
        node->interpreter_ = &interpreter;
        return node.release();
    }

    typename Type::Argument result() override {
        typename Type::Argument selected = selector_->result();
        const auto entry = std::lower_bound(
            table_.begin(), table_.end(), selected,
            [](const Entry& left, typename Type::Argument right) { return left.first < right; });
        return admit(entry != table_.end() && entry->first == selected ? entry->second : default_);
    }

private:
    using Value = typename Type::Value;
    using Entry = std::pair<Value, Value>;

    typename Type::Argument admit(typename Type::Argument value) const {
        if constexpr (std::is_same_v<Type, StringType>) {
            if (!isResultSize(*interpreter_, value.size())) [[unlikely]] {
                interpreter_->logError(Messages::resultTooLong(value.size()), this,
                                       {quotedValue(value)});
                return StringType::null();
            }
        }
        return value;
    }

    static bool popConstant(ParserStack& stack, const FctDescr& descriptor, Value& value) {
        if (!descriptor.checkType(Type::typeCode | TypeCode::ConstFlag, stack.popType())) {
            return false;
        }
        value = stack.pop<typename Type::Node>()->result();
        return true;
    }

    // Of several entries with the same key the first one stays.
    void sortTable() {
        std::stable_sort(table_.begin(), table_.end(), [](const Entry& left, const Entry& right) {
            return left.first < right.first;
        });
        const auto end = std::unique(
            table_.begin(), table_.end(),
            [](const Entry& left, const Entry& right) { return left.first == right.first; });
        table_.erase(end, table_.end());
    }

    Interpreter* interpreter_ = nullptr;  // not owned; outlives the node
    std::unique_ptr<typename Type::Node> selector_;
    std::vector<Entry> table_;
    Value default_{};
};

constexpr BuiltIn decodeBuiltInsS[] = {
    {.number = 27,
     .signature = "Long longDecode(Long selector, Long key, ...)",
     .factory = Decode<LongType>::factory,
     .manual =
         "Selects by a table: after `selector` come any number of pairs, a key and its value, "
         "and last a default. The value of the first pair whose key equals `selector`, or the "
         "default. Keys, values and default are constants, so the number of arguments is "
         "even. The time taken grows with the logarithm of the number of pairs.",
     .example = "longDecode(2, 1, 10, 2, 20, -1) == 20 and longDecode(3, 1, 10, 2, 20, -1) == -1"},
    {.number = 49,
     .signature = "String strDecode(String selector, String key, ...)",
     .factory = Decode<StringType>::factory,
     .manual =
         "Selects by a table: after `selector` come any number of pairs, a key and its value, "
         "and last a default. The value of the first pair whose key has the same bytes as "
         "`selector`, or the default. Keys, values and default are constants, so the number "
         "of arguments is even. The time taken grows with the logarithm of the number of "
         "pairs.",
     .example = R"(strDecode("b", "a", "1", "b", "2", "none") == "2" and )"
                R"(strDecode("z", "a", "1", "b", "2", "none") == "none")"},
};

}  // namespace

std::span<const BuiltIn> decodeBuiltIns() { return decodeBuiltInsS; }

}  // namespace SCR
