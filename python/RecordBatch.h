#pragma once

#include <cstddef>
#include <exception>
#include <memory>
#include <vector>

#include "python/Convert.h"
#include "scr/Batch.h"

namespace PyApi {

/// The values of some variables for some records, on their way between dicts and
/// `Interpreter::executeBatch`. The GIL is held in all functions.
class RecordBatch {
public:
    /// The most records at once.
    static constexpr std::size_t mostCM = 256;

    /// Whether a batch can hold the values of a variable of this type, and a script may assign it.
    static bool canHold(int typeWord);

    /// Adds a variable, whose values are in the dicts under its name.
    void add(const std::string& name, int typeWord, SCR::Column::Use use);
    /// Takes the inputs of the records from number `first` on, and keeps these records. Gives how
    /// many it took: 0 after the last one, and fewer than there are when a value is missing or does
    /// not fit, which `raise` tells. What converts a value may change the list.
    std::size_t take(const py::list& records, std::size_t first);
    /// Stores the outputs of the first `count` of these in their dicts.
    void give(std::size_t count) const;
    /// Raises what ended `take`, if anything did.
    void raise() const {
        if (fault_) std::rethrow_exception(fault_);
    }
    const std::vector<SCR::Column>& columns() const { return columns_; }

private:
    struct Field {
        py::str key;
        int type;
        std::shared_ptr<void> values;
        std::size_t size;  // of a value

        void* at(std::size_t index) const {
            return static_cast<std::byte*>(values.get()) + index * size;
        }
    };

    template <class T>
    void addOf(const std::string& name, int type, SCR::Column::Use use);
    void takeOne(py::handle record, std::size_t index);

    std::vector<Field> inputs_;
    std::vector<Field> outputs_;
    std::vector<SCR::Column> columns_;
    std::vector<py::object> taken_;
    std::exception_ptr fault_;
};

}  // namespace PyApi
