#include "python/RecordBatch.h"

#include <algorithm>

#include "scr/Node.h"

namespace PyApi {

using SCR::Node;
using SCR::TypeCode::Bool;
using SCR::TypeCode::Date;
using SCR::TypeCode::Decimal;
using SCR::TypeCode::Long;
using SCR::TypeCode::Nexid;
using SCR::TypeCode::String;

bool RecordBatch::canHold(int typeWord) {
    const int type = Node::baseType(typeWord);
    return Node::isLeft(typeWord) && (type == Long || type == Bool || type == String ||
                                      type == Decimal || type == Date || type == Nexid);
}

template <class T>
void RecordBatch::addOf(const std::string& name, int type, SCR::Column::Use use) {
    const auto values = std::make_shared<T[]>(mostCM);
    columns_.emplace_back(name, use, values.get(), mostCM);
    (use == SCR::Column::Use::Input ? inputs_ : outputs_)
        .push_back({text(name), type, std::shared_ptr<void>(values, values.get()), sizeof(T)});
}

void RecordBatch::add(const std::string& name, int typeWord, SCR::Column::Use use) {
    const int type = Node::baseType(typeWord);
    switch (type) {
        case Long:
            return addOf<long>(name, type, use);
        case Bool:
            return addOf<bool>(name, type, use);
        case Decimal:
            return addOf<FND::Decimal>(name, type, use);
        case Date:
            return addOf<FND::DateTime>(name, type, use);
        case Nexid:
            return addOf<FND::Identifier>(name, type, use);
        default:
            return addOf<FND::String>(name, type, use);
    }
}

void RecordBatch::takeOne(py::handle record, std::size_t index) {
    for (const Field& field : inputs_) {
        PyObject* const value = PyDict_GetItemWithError(record.ptr(), field.key.ptr());
        if (value == nullptr) {
            if (PyErr_Occurred() != nullptr) throw py::error_already_set();
            throw py::key_error(bytes(field.key));
        }
        // What converts it may take it out of the dict.
        const auto kept = py::reinterpret_borrow<py::object>(value);
        store(field.type, field.at(index), kept);
    }
}

std::size_t RecordBatch::take(const py::list& records, std::size_t first) {
    taken_.clear();
    for (std::size_t i = 0; i < mostCM && first + i < records.size(); ++i) {
        taken_.push_back(py::reinterpret_borrow<py::object>(
            PyList_GET_ITEM(records.ptr(), static_cast<Py_ssize_t>(first + i))));
        try {
            takeOne(taken_.back(), i);
        } catch (...) {
            taken_.pop_back();
            fault_ = std::current_exception();
            break;
        }
    }
    return taken_.size();
}

void RecordBatch::give(std::size_t count) const {
    for (std::size_t i = 0; i < std::min(count, taken_.size()); ++i) {
        PyObject* const record = taken_[i].ptr();
        for (const Field& field : outputs_) {
            const py::object value = load(field.type, field.at(i));
            if (PyDict_SetItem(record, field.key.ptr(), value.ptr()) != 0) {
                throw py::error_already_set();
            }
        }
    }
}

}  // namespace PyApi
