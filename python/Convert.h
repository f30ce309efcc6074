#pragma once

#include <pybind11/pybind11.h>

#include "scr/Interpreter.h"
#include "scr/Variable.h"

namespace PyApi {

namespace py = pybind11;

/// The types of Python that values become, looked up once.
struct Types {
    py::object decimal;   ///< decimal.Decimal
    py::object datetime;  ///< datetime.datetime
    py::object delta;     ///< datetime.timedelta
    py::object epoch;     ///< 1970-01-01 00:00:00 UTC

    static const Types& get();
};

// The GIL is held in all of these. They throw what Python raises, or py::error_already_set.

/// The value of the base type `typeCode` at `stored`.
py::object load(int typeCode, const void* stored);
/// Stores `value`, which must be of the type of Python that stands for `typeCode`.
void store(int typeCode, void* stored, py::handle value);

/// The value of any variable: lists of arrays, dicts of hashes.
py::object load(SCR::Variable& variable);
void store(SCR::Variable& variable, py::handle value, SCR::Interpreter& interpreter);

/// Bytes as a text; those that are no UTF-8 survive.
py::str text(std::string_view bytes);
/// A text, or bytes as they are.
FND::String bytes(py::handle text);

}  // namespace PyApi
