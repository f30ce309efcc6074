#include <memory>
#include <variant>
#include <vector>

#include "capi/Convert.h"
#include "capi/Objects.h"
#include "scr/Batch.h"

namespace CApi {

namespace {

// The values of one column as the library wants them, besides those of the host.
class ColumnValues {
public:
    explicit ColumnValues(const kestrel_column& column) : column_(column) {}

    // Why it cannot be a column of `count` records; null when it can.
    const char* problem(std::size_t count) const {
        if (column_.name == nullptr) return "the name of a column is null";
        if (column_.values == nullptr && count > 0) return "the values of a column are null";
        switch (column_.type) {
            case KESTREL_LONG:
            case KESTREL_BOOL:
            case KESTREL_STRING:
            case KESTREL_DECIMAL:
            case KESTREL_DATE:
                return nullptr;
            default:
                return "a column has values of type Long, Bool, String, Decimal or Date";
        }
    }

    SCR::Column make(std::size_t count) {
        switch (column_.type) {
            case KESTREL_LONG:
                return of(static_cast<long*>(column_.values), count);
            case KESTREL_BOOL:
                bools_ = std::make_unique<bool[]>(count);
                for (std::size_t i = 0; i < count && !column_.is_output; ++i) {
                    bools_[i] = given<unsigned char>()[i] != 0;
                }
                return of(bools_.get(), count);
            case KESTREL_DECIMAL:
                decimals_.resize(count);
                for (std::size_t i = 0; i < count && !column_.is_output; ++i) {
                    decimals_[i] = toDecimal(given<kestrel_decimal>()[i]);
                }
                return of(decimals_.data(), count);
            case KESTREL_DATE:
                dates_.resize(count);
                for (std::size_t i = 0; i < count && !column_.is_output; ++i) {
                    dates_[i] = FND::DateTime(given<std::int64_t>()[i]);
                }
                return of(dates_.data(), count);
            default:
                break;
        }
        if (column_.is_output) {
            texts_.resize(count);
            return of(texts_.data(), count);
        }
        views_.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            views_.push_back(textOf(given<kestrel_text>()[i].data, given<kestrel_text>()[i].size));
        }
        return of(views_.data(), count);
    }

    // Gives the host the outputs of the records from `first` to before `end`.
    void giveBack(std::size_t first, std::size_t end) const {
        if (!column_.is_output) return;
        for (std::size_t i = first; i < end; ++i) {
            switch (column_.type) {
                case KESTREL_BOOL:
                    given<unsigned char>()[i] = bools_[i] ? 1 : 0;
                    break;
                case KESTREL_DECIMAL:
                    given<kestrel_decimal>()[i] = fromDecimal(decimals_[i]);
                    break;
                case KESTREL_DATE:
                    given<std::int64_t>()[i] = dates_[i].secs();
                    break;
                case KESTREL_STRING:
                    given<kestrel_text>()[i] = {texts_[i].data(), texts_[i].size()};
                    break;
                default:
                    break;
            }
        }
    }
    std::vector<FND::String>& texts() { return texts_; }

private:
    template <class T>
    T* given() const {
        return static_cast<T*>(column_.values);
    }
    template <class T>
    SCR::Column of(T* values, std::size_t count) const {
        using Use = SCR::Column::Use;
        return SCR::Column(column_.name, column_.is_output ? Use::Output : Use::Input, values,
                           count);
    }

    const kestrel_column& column_;
    std::unique_ptr<bool[]> bools_;
    std::vector<FND::Decimal> decimals_;
    std::vector<FND::DateTime> dates_;
    std::vector<std::string_view> views_;
    std::vector<FND::String> texts_;
};

}  // namespace

}  // namespace CApi

using namespace CApi;

kestrel_status kestrel_execute_batch(kestrel_interpreter* interpreter,
                                     const kestrel_column* columns, size_t columnCount,
                                     size_t recordCount, size_t* record) {
    size_t unused = 0;
    if (record == nullptr) record = &unused;
    return with(interpreter, [&](InterpreterObject& object) {
        if (columns == nullptr && columnCount > 0) return refuse("the columns are null");
        if (object.isBusy()) return refuse("the interpreter is in use");
        std::vector<ColumnValues> values;
        std::vector<SCR::Column> made;
        values.reserve(columnCount);
        for (std::size_t i = 0; i < columnCount; ++i) {
            values.emplace_back(columns[i]);
            const char* const problem = values.back().problem(recordCount);
            if (problem != nullptr) return refuse(problem);
            made.push_back(values.back().make(recordCount));
        }
        const std::size_t first = *record;
        const SCR::BatchOutcome outcome =
            object.interpreter().executeBatch(made, recordCount, first);
        *record = outcome.record();
        // The texts stay until the next batch; what the host gets are views of them.
        object.batchTexts().clear();
        for (ColumnValues& column : values) {
            column.giveBack(first, outcome.record());
            object.batchTexts().push_back(std::move(column.texts()));
        }
        return tell(outcome);
    });
}
