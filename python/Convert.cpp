#include "python/Convert.h"

#include <string_view>

#include "fnd/DateTime.h"
#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/HostContainers.h"
#include "scr/Variable.h"

namespace PyApi {

namespace {

using SCR::Node;
namespace TypeCode = SCR::TypeCode;

py::object decimalOf(const FND::Decimal& decimal) {
    if (!decimal.isValid()) return py::none();
    return Types::get().decimal(decimal.toPlainString());
}

FND::Decimal decimalOf(py::handle value) {
    if (value.is_none()) return FND::Decimal::invalid();
    if (PyLong_Check(value.ptr())) return FND::Decimal(value.cast<std::int64_t>());
    if (!py::isinstance(value, Types::get().decimal)) {
        throw py::type_error(
            "a Decimal is a decimal.Decimal or an int; say Decimal(str(x)) for a float");
    }
    const auto digits = value.attr("__format__")("f").cast<std::string>();
    const FND::Decimal decimal = FND::Decimal::fromString(digits);
    if (!decimal.isValid() || !decimalOf(decimal).equal(value)) {
        throw py::value_error(digits + " has more digits than a Decimal holds");
    }
    return decimal;
}

py::object dateOf(const FND::DateTime& date) {
    if (!date.isValid()) return py::none();
    return Types::get().epoch + Types::get().delta(0, date.secs());
}

FND::DateTime dateOf(py::handle value) {
    if (value.is_none()) return {};
    if (!py::isinstance(value, Types::get().datetime)) {
        throw py::type_error("a Date is a datetime.datetime");
    }
    if (value.attr("tzinfo").is_none()) {
        throw py::value_error("a datetime without a zone is no instant; say replace(tzinfo=...)");
    }
    const py::object since = py::reinterpret_borrow<py::object>(value) - Types::get().epoch;
    if (since.attr("microseconds").cast<long>() != 0) {
        throw py::value_error("a Date has no fractions of a second");
    }
    constexpr std::int64_t day = 86400;
    return FND::DateTime(since.attr("days").cast<std::int64_t>() * day +
                         since.attr("seconds").cast<std::int64_t>());
}

FND::Identifier nexidOf(py::handle value) {
    if (value.is_none()) return {};
    const auto fields = value.cast<py::tuple>();
    if (fields.size() != 4) throw py::value_error("a Nexid is (db, type, id, rev)");
    return {fields[0].cast<std::int64_t>(), bytes(fields[1]), fields[2].cast<std::int64_t>(),
            fields[3].cast<std::int32_t>()};
}

py::object nexidOf(const FND::Identifier& nexid) {
    return py::make_tuple(nexid.db(), text(nexid.type()), nexid.id(), nexid.rev());
}

// Calls use.operator()<T>() with the C++ type of elements of the base type `code`.
template <class Use>
auto withElement(int code, const Use& use) {
    switch (Node::baseType(code)) {
        case TypeCode::Long:
            return use.template operator()<long>();
        case TypeCode::Bool:
            return use.template operator()<bool>();
        case TypeCode::Decimal:
            return use.template operator()<FND::Decimal>();
        case TypeCode::Date:
            return use.template operator()<FND::DateTime>();
        case TypeCode::Nexid:
            return use.template operator()<FND::Identifier>();
        case TypeCode::Array:
            return use.template operator()<SCR::Array>();
        case TypeCode::Hash:
            return use.template operator()<SCR::Hash>();
        case TypeCode::String:
            return use.template operator()<FND::String>();
        default:
            throw py::type_error("values of this type do not leave a script");
    }
}

template <class T>
py::object loadElement(int code, const T& element) {
    if constexpr (std::is_base_of_v<SCR::Variable, T>) {
        return load(const_cast<T&>(element));
    } else {
        return load(code, &element);
    }
}

template <class T>
void storeElement(int code, T* element, py::handle value, SCR::Interpreter& interpreter) {
    if (element == nullptr) throw py::value_error("there is no room for the elements");
    if constexpr (std::is_base_of_v<SCR::Variable, T>) {
        store(*element, value, interpreter);
    } else {
        store(code, element, value);
    }
}

}  // namespace

const Types& Types::get() {
    static const Types* const types = [] {
        const py::module_ module = py::module_::import("datetime");
        auto* const made = new Types;  // for ever, as Python may end before the library
        made->decimal = py::module_::import("decimal").attr("Decimal");
        made->datetime = module.attr("datetime");
        made->delta = module.attr("timedelta");
        made->epoch = made->datetime(1970, 1, 1, 0, 0, 0, 0, module.attr("timezone").attr("utc"));
        return made;
    }();
    return *types;
}

py::str text(std::string_view bytes) {
    PyObject* const made = PyUnicode_DecodeUTF8(bytes.data(), static_cast<Py_ssize_t>(bytes.size()),
                                                "surrogateescape");
    if (made == nullptr) throw py::error_already_set();
    return py::reinterpret_steal<py::str>(made);
}

FND::String bytes(py::handle value) {
    if (PyBytes_Check(value.ptr())) return value.cast<std::string>();
    if (!PyUnicode_Check(value.ptr())) throw py::type_error("a String is a str or bytes");
    Py_ssize_t size = 0;
    if (const char* const data = PyUnicode_AsUTF8AndSize(value.ptr(), &size)) {
        return FND::String(data, static_cast<std::size_t>(size));
    }
    PyErr_Clear();
    const auto encoded = py::reinterpret_steal<py::object>(
        PyUnicode_AsEncodedString(value.ptr(), "utf-8", "surrogateescape"));
    if (!encoded) throw py::error_already_set();
    return encoded.cast<std::string>();
}

py::object load(int typeCode, const void* stored) {
    switch (Node::baseType(typeCode)) {
        case TypeCode::Long:
            return py::int_(*static_cast<const long*>(stored));
        case TypeCode::Bool:
            return py::bool_(*static_cast<const bool*>(stored));
        case TypeCode::String:
            return text(*static_cast<const FND::String*>(stored));
        case TypeCode::Decimal:
            return decimalOf(*static_cast<const FND::Decimal*>(stored));
        case TypeCode::Date:
            return dateOf(*static_cast<const FND::DateTime*>(stored));
        case TypeCode::Nexid:
            return nexidOf(*static_cast<const FND::Identifier*>(stored));
        default:
            throw py::type_error("values of this type do not leave a script");
    }
}

void store(int typeCode, void* stored, py::handle value) {
    switch (Node::baseType(typeCode)) {
        case TypeCode::Long: {
            if (!PyLong_Check(value.ptr()) || PyBool_Check(value.ptr())) {
                throw py::type_error("a Long is an int");
            }
            const long number = PyLong_AsLong(value.ptr());
            if (number == -1 && PyErr_Occurred() != nullptr) throw py::error_already_set();
            *static_cast<long*>(stored) = number;
            return;
        }
        case TypeCode::Bool:
            if (!PyBool_Check(value.ptr())) throw py::type_error("a Bool is a bool");
            *static_cast<bool*>(stored) = value.ptr() == Py_True;
            return;
        case TypeCode::String:
            *static_cast<FND::String*>(stored) = bytes(value);
            return;
        case TypeCode::Decimal:
            *static_cast<FND::Decimal*>(stored) = decimalOf(value);
            return;
        case TypeCode::Date:
            *static_cast<FND::DateTime*>(stored) = dateOf(value);
            return;
        case TypeCode::Nexid:
            *static_cast<FND::Identifier*>(stored) = nexidOf(value);
            return;
        default:
            throw py::type_error("values of this type do not enter a script");
    }
}

py::object load(SCR::Variable& variable) {
    const int type = Node::baseType(variable.dataType());
    if (type == TypeCode::Array) {
        auto& array = static_cast<SCR::Array&>(variable);
        const int code = array.containerType();
        return withElement(code, [&]<class T>() -> py::object {
            const SCR::ArrayView<T> view(array);
            py::list list(view.size());
            for (unsigned long i = 0; i < view.size(); ++i) list[i] = loadElement<T>(code, view[i]);
            return list;
        });
    }
    if (type == TypeCode::Hash) {
        auto& hash = static_cast<SCR::Hash&>(variable);
        const int code = hash.containerType();
        return withElement(code, [&]<class T>() -> py::object {
            py::dict dict;
            SCR::HashView<T>(hash).forEach([&](const FND::String& key, const T& element) {
                dict[text(key)] = loadElement<T>(code, element);
            });
            return dict;
        });
    }
    return withElement(type, [&]<class T>() -> py::object {
        if constexpr (std::is_base_of_v<SCR::Variable, T>) {
            return py::none();
        } else {
            using V = typename SCR::Host::ElementOf<T>::Variable;
            return load(type, &static_cast<V&>(variable).value());
        }
    });
}

void store(SCR::Variable& variable, py::handle value, SCR::Interpreter& interpreter) {
    const int type = Node::baseType(variable.dataType());
    if (type == TypeCode::Array) {
        auto& array = static_cast<SCR::Array&>(variable);
        const int code = array.containerType();
        const auto list = value.cast<py::sequence>();
        withElement(code, [&]<class T>() {
            const SCR::ArrayRef<T> to(array, &interpreter);
            if (!to.resize(list.size())) throw py::value_error("there is no room for the elements");
            for (std::size_t i = 0; i < list.size(); ++i) {
                storeElement<T>(code, to.at(i), py::object(list[i]), interpreter);
            }
        });
        return;
    }
    if (type == TypeCode::Hash) {
        auto& hash = static_cast<SCR::Hash&>(variable);
        const int code = hash.containerType();
        const auto dict = value.cast<py::dict>();
        withElement(code, [&]<class T>() {
            const SCR::HashRef<T> to(hash, &interpreter);
            to.clear();
            for (const auto& [key, element] : dict) {
                storeElement<T>(code, to.at(bytes(key)), element, interpreter);
            }
        });
        return;
    }
    if (!Node::isLeft(variable.dataType())) throw py::type_error("it is a constant");
    withElement(type, [&]<class T>() {
        if constexpr (!std::is_base_of_v<SCR::Variable, T>) {
            using V = typename SCR::Host::ElementOf<T>::Variable;
            store(type, &static_cast<V&>(variable).value(), value);
        }
    });
}

}  // namespace PyApi
