// The module kestrel._kestrel: what the package in python/kestrel is made of.

#include <pybind11/functional.h>
#include <pybind11/pybind11.h>
#include <pybind11/stl.h>

#include <algorithm>
#include <memory>
#include <optional>
#include <stdexcept>
#include <vector>

#include "fsm/EngineGroup.h"
#include "python/Convert.h"
#include "python/RecordBatch.h"
#include "scr/Function.h"
#include "scr/HostExtension.h"
#include "scr/Program.h"
#include "scr/ScriptHandle.h"
#include "scr/Version.h"

namespace PyApi {

namespace {

// A handle of a variable of any type, or of a function of any signature.
class AnyHandle : public SCR::ScriptHandle {};

py::dict describe(const SCR::Diagnostic& diagnostic) {
    py::dict made;
    made["severity"] = static_cast<int>(diagnostic.severity);
    made["code"] = text(diagnostic.code);
    made["text"] = text(diagnostic.text);
    made["explanation"] = text(diagnostic.explanation);
    made["cure"] = text(diagnostic.cure);
    made["file"] = text(diagnostic.place.file);
    made["line"] = diagnostic.place.line;
    made["column"] = diagnostic.place.column;
    made["length"] = diagnostic.place.length;
    return made;
}

py::list describe(const std::vector<SCR::Diagnostic>& diagnostics) {
    py::list all;
    for (const SCR::Diagnostic& diagnostic : diagnostics) all.append(describe(diagnostic));
    return all;
}

// Raises the exception of the package that stands for an outcome; `cause`, if it is an exception of
// Python, is its cause.
void check(const SCR::Outcome& outcome, std::optional<py::error_already_set> cause = {}) {
    if (outcome) return;
    const char* const names[] = {"", "", "Stopped", "Failed", "Invalid", "Refused"};
    const py::object type =
        py::module_::import("kestrel").attr(names[static_cast<int>(outcome.kind())]);
    const py::object error = type(text(outcome.diagnostic().text), describe(outcome.diagnostic()),
                                  text(outcome.limit()), text(outcome.function()));
    if (cause) {
        error.attr("__cause__") = cause->value();
        if (cause->trace()) error.attr("__cause__").attr("__traceback__") = cause->trace();
    }
    PyErr_SetObject(type.ptr(), error.ptr());
    throw py::error_already_set();
}

// Passes messages to a function of Python. What it raises is dropped, with the message.
class PythonLog final : public SCR::Log {
public:
    explicit PythonLog(py::object function) : function_(std::move(function)) {}
    void diagnose(const SCR::Diagnostic& message) override {
        const py::gil_scoped_acquire lock;
        if (function_.is_none()) return;
        try {
            function_(describe(message));
        } catch (py::error_already_set& error) {
            error.discard_as_unraisable("kestrel log");
        }
    }

private:
    const py::object function_;
};

// What a function of Python raised during a run, for the exception that the run ends with.
struct Raised {
    std::optional<py::error_already_set> error;
};

// A function of Python that scripts call.
struct PythonFunction {
    py::object callable;
    std::vector<int> arguments;
    int result;
    std::shared_ptr<Raised> raised;

    ~PythonFunction() {
        const py::gil_scoped_acquire lock;
        callable = py::object();
    }
};

// The first line of what an exception says. Formatting its traceback as well would need more of
// the stack than is left when the calls are nested too deeply.
std::string wordsOf(const py::error_already_set& error) {
    std::string words = reinterpret_cast<PyTypeObject*>(error.type().ptr())->tp_name;
    const auto text = py::reinterpret_steal<py::object>(
        error.value() ? PyObject_Str(error.value().ptr()) : nullptr);
    const char* const told = text ? PyUnicode_AsUTF8(text.ptr()) : nullptr;
    if (told == nullptr) {
        PyErr_Clear();
    } else if (*told != '\0') {
        words += std::string(": ") + told;
    }
    return words.substr(0, words.find('\n'));
}

const void* readBy(void* callable, SCR::Host::Call& call, void* room) {
    PythonFunction& function = *static_cast<PythonFunction*>(callable);
    std::vector<void*> places;
    for (std::size_t i = 0; i < function.arguments.size() && call.isGiven(i); ++i) {
        places.push_back(call.evaluate(i));
    }
    if (!call.begin()) return nullptr;
    const py::gil_scoped_acquire lock;
    try {
        py::tuple arguments(places.size());
        for (std::size_t i = 0; i < places.size(); ++i) {
            arguments[i] = load(function.arguments[i], places[i]);
        }
        const py::object result = function.callable(*arguments);
        if (function.result != SCR::TypeCode::Void) {
            store(function.result, room, result);
            return room;
        }
        return &call;
    } catch (py::error_already_set& error) {
        const std::string what = wordsOf(error);
        function.raised->error = std::move(error);
        throw std::runtime_error(what);
    } catch (const py::builtin_exception& error) {
        error.set_error();
        function.raised->error.emplace();
        throw std::runtime_error(error.what());
    }
}

int typeOfName(const std::string& name) {
    if (name == "Void") return SCR::TypeCode::Void;
    const int code = SCR::Node::typeIdForName(name);
    if (code == 0) throw py::value_error("there is no type " + name);
    return code;
}

class PyProgram {
public:
    PyProgram(py::handle source, py::object setup) {
        const FND::String script = bytes(source);
        // The setup may be called, and dropped, by any thread.
        const std::shared_ptr<py::object> kept(new py::object(std::move(setup)),
                                               [](py::object* object) {
                                                   const py::gil_scoped_acquire lock;
                                                   delete object;
                                               });
        setup_ = kept;
        const py::gil_scoped_release unlock;
        program_ = SCR::Program(script, prepare(kept));
    }

    const SCR::Program& program() const { return program_; }
    const py::object& setup() const { return *setup_; }

private:
    static SCR::Program::Setup prepare(const std::shared_ptr<py::object>& setup);

    std::shared_ptr<py::object> setup_;
    SCR::Program program_;
};

class PyInterpreter {
public:
    explicit PyInterpreter(py::object log)
        : log_(std::move(log)), owned_(std::make_unique<SCR::Interpreter>(&log_)) {
        interpreter_ = owned_.get();
    }
    // One that somebody else has, for a setup.
    explicit PyInterpreter(SCR::Interpreter& borrowed)
        : log_(py::none()), interpreter_(&borrowed) {}
    PyInterpreter(const PyInterpreter&) = delete;
    PyInterpreter& operator=(const PyInterpreter&) = delete;
    ~PyInterpreter() {
        const py::gil_scoped_release unlock;  // "END" runs
        owned_.reset();
    }

    void compile(py::handle source) {
        const FND::String script = bytes(source);
        run([&] { return own().tryCompile(script); });
    }
    void compileProgram(const PyProgram& program) {
        if (!program.setup().is_none()) program.setup()(py::cast(this));
        run([&] { return own().tryCompile(program.program()); });
    }
    void check(py::handle source) {
        const FND::String script = bytes(source);
        run([&] { return own().tryCheck(script); });
    }
    void execute() {
        run([&] { return own().tryExecute(); });
    }
    void finish() {
        run([&] { return own().tryFinish(); });
    }
    bool query(py::handle source) {
        const FND::String text = bytes(source);
        run([&] { return own().tryCompileQuery(text); });
        bool value = false;
        run([&] {
            const SCR::Result<bool> result = own().tryQuery();
            value = *result;
            return result.outcome();
        });
        return value;
    }
    bool interrupt() { return own().interrupt(); }
    py::list diagnostics() { return describe(own().diagnostics()); }

    void limits(const py::kwargs& limits) {
        SCR::Limits now = own().limits();
        for (const auto& [name, value] : limits) {
            const auto member = SCR::limitOfName(bytes(name));
            if (member == nullptr) throw py::type_error("there is no limit " + bytes(name));
            now.*member = value.is_none() ? SCR::Limits::none : value.cast<std::int64_t>();
        }
        own().limits(now);
    }
    void capabilities(const std::vector<std::string>& names) {
        SCR::Capabilities granted = SCR::Capabilities::none();
        for (const std::string& name : names) {
            if (!granted.allow(name)) throw py::value_error("there is no capability " + name);
        }
        if (!own().capabilities(granted)) throw py::value_error("a directory cannot be opened");
    }
    void timeZone(const std::string& name) {
        if (!own().timeZone(name)) throw py::value_error("unknown time zone " + name);
    }
    void includePath(const std::vector<std::string>& directories) {
        own().includePath(directories);
    }

    void addFunction(const std::string& name, const std::string& result,
                     const std::vector<std::string>& arguments, int minimum, py::object callable) {
        if (arguments.size() > 9) throw py::value_error("a function takes at most nine arguments");
        const auto function = std::make_shared<PythonFunction>();
        SCR::Host::Description made;
        function->callable = std::move(callable);
        function->raised = raised_;
        function->result = made.result = typeOfName(result);
        for (const std::string& argument : arguments) {
            const int type = typeOfName(argument);
            made.arguments[function->arguments.size()] = type;
            function->arguments.push_back(type);
        }
        made.minimum = minimum;
        made.maximum = static_cast<int>(arguments.size());
        made.callable = function;
        made.read = readBy;
        made.takesInterpreter = true;
        if (host().insert(name, std::move(made)) == nullptr) {
            throw py::value_error("the name " + name + " is refused");
        }
    }
    void declare(const std::string& name, const std::string& type, py::handle value,
                 bool isConstant) {
        const int code = typeOfName(type);
        const auto with = [&]<class T>(T initial) {
            store(code, &initial, value);
            return isConstant ? host().declareConstant(name, code, &initial)
                              : host().declare(name, code, &initial).isDeclared;
        };
        bool isDone = false;
        switch (code) {
            case SCR::TypeCode::Long:
                isDone = with(0L);
                break;
            case SCR::TypeCode::Bool:
                isDone = with(false);
                break;
            case SCR::TypeCode::Decimal:
                isDone = with(FND::Decimal());
                break;
            case SCR::TypeCode::Date:
                isDone = with(FND::DateTime());
                break;
            case SCR::TypeCode::Nexid:
                isDone = with(FND::Identifier());
                break;
            default:
                isDone = with(FND::String());
        }
        if (!isDone) throw py::value_error("the name " + name + " is refused");
    }

    py::object get(const std::string& name) {
        return withVariable(name, [](SCR::Variable& variable) { return load(variable); });
    }
    void set(const std::string& name, py::handle value) {
        withVariable(name, [&](SCR::Variable& variable) {
            store(variable, value, own());
            return py::none();
        });
    }
    py::object call(const std::string& name, const py::args& arguments) {
        AnyHandle function;
        own().bindFunction(function, name, {});
        const SCR::FunctionUse use(function);
        if (!use) PyApi::check(use.refusal());
        if (use.parameterCount() != arguments.size()) {
            throw py::type_error(name + " takes " + std::to_string(use.parameterCount()) +
                                 " arguments, not " + std::to_string(arguments.size()));
        }
        for (std::size_t i = 0; i < arguments.size(); ++i) {
            store(use.parameter(i), arguments[i], own());
        }
        bool hasResult = false;
        run([&] { return use.run(hasResult); });
        SCR::Variable* const result = use.resultVariable();
        return result != nullptr && hasResult ? load(*result) : py::none();
    }

    // Executes the script for each of the dicts, whose fields are assigned to the variables
    // `inputs` and get the values of `outputs`. The first one that fails is raised, and is left as
    // it is.
    void executeRecords(const py::list& records, const std::vector<std::string>& inputs,
                        const std::vector<std::string>& outputs) {
        struct Bound {
            py::str key;
            SCR::Variable* variable;
        };
        std::vector<Bound> in;
        std::vector<Bound> out;
        const auto bind = [&](const std::vector<std::string>& names, std::vector<Bound>& bound) {
            for (const std::string& name : names) {
                withVariable(name, [&](SCR::Variable& variable) {
                    bound.push_back({text(name), &variable});
                    return py::none();
                });
            }
        };
        bind(inputs, in);
        bind(outputs, out);
        const auto canHold = [](const Bound& bound) {
            return PyApi::RecordBatch::canHold(bound.variable->dataType());
        };
        if (std::all_of(in.begin(), in.end(), canHold) &&
            std::all_of(out.begin(), out.end(), canHold)) {
            PyApi::RecordBatch batch;
            using Use = SCR::Column::Use;
            for (std::size_t i = 0; i < in.size(); ++i) {
                batch.add(inputs[i], in[i].variable->dataType(), Use::Input);
            }
            for (std::size_t i = 0; i < out.size(); ++i) {
                batch.add(outputs[i], out[i].variable->dataType(), Use::Output);
            }
            return executeBatches(records, batch);
        }
        const std::uint64_t generation = own().generation();
        for (const py::handle each : records) {
            // What runs may take it out of the list.
            const auto record = py::reinterpret_borrow<py::object>(each);
            if (own().generation() != generation) throw py::value_error("the script was replaced");
            for (const Bound& field : in) {
                PyObject* const value = PyDict_GetItemWithError(record.ptr(), field.key.ptr());
                if (value == nullptr) {
                    if (PyErr_Occurred() != nullptr) throw py::error_already_set();
                    throw py::key_error(bytes(field.key));
                }
                store(*field.variable, value, own());
            }
            run([&] { return own().tryExecute(); });
            for (const Bound& field : out) {
                const py::object value = load(*field.variable);
                if (PyDict_SetItem(record.ptr(), field.key.ptr(), value.ptr()) != 0) {
                    throw py::error_already_set();
                }
            }
        }
    }

private:
    SCR::Interpreter& own() const {
        if (interpreter_ == nullptr) throw py::value_error("the interpreter is prepared already");
        return *interpreter_;
    }
    friend class PyProgram;

    SCR::HostExtension& host() {
        SCR::Extension* found = own().extension("host");
        if (found == nullptr) found = SCR::HostExtension::insert(own(), "host");
        if (found == nullptr) throw py::value_error("there is no memory for an extension");
        return static_cast<SCR::HostExtension&>(*found);
    }

    template <class Use>
    py::object withVariable(const std::string& name, const Use& action) {
        AnyHandle handle;
        own().bindVariable(handle, name, {});
        const SCR::HandleUse use(handle);
        if (!use) PyApi::check(use.refusal());
        return action(*static_cast<SCR::Variable*>(use.target()));
    }

    void executeBatches(const py::list& records, PyApi::RecordBatch& batch) {
        for (std::size_t first = 0; first < records.size();) {
            const std::size_t count = batch.take(records, first);
            std::size_t done = 0;
            const auto give = [&] { batch.give(done); };
            try {
                run([&] {
                    SCR::BatchOutcome outcome = own().executeBatch(batch.columns(), count);
                    done = outcome.record();
                    return outcome;
                });
            } catch (...) {
                give();
                throw;
            }
            give();
            batch.raise();
            first += count;
        }
    }

    // Calls action() without the lock of Python, and raises what it comes to.
    template <class Action>
    void run(const Action& action) {
        SCR::Interpreter& interpreter = own();
        static_cast<void>(interpreter);
        SCR::Outcome outcome;
        {
            const py::gil_scoped_release unlock;
            outcome = action();
        }
        if (outcome) {
            raised_->error.reset();
            return;
        }
        PyApi::check(outcome, std::exchange(raised_->error, std::nullopt));
    }

    PythonLog log_;
    const std::shared_ptr<Raised> raised_ = std::make_shared<Raised>();
    std::unique_ptr<SCR::Interpreter> owned_;
    SCR::Interpreter* interpreter_ = nullptr;
};

SCR::Program::Setup PyProgram::prepare(const std::shared_ptr<py::object>& setup) {
    return [setup](SCR::Interpreter& interpreter) {
        const py::gil_scoped_acquire lock;
        if (setup->is_none()) return;
        PyInterpreter* const borrowed = new PyInterpreter(interpreter);
        const py::object handle = py::cast(borrowed, py::return_value_policy::take_ownership);
        try {
            (*setup)(handle);
        } catch (...) {
            borrowed->interpreter_ = nullptr;
            throw;
        }
        borrowed->interpreter_ = nullptr;
    };
}

class Patterns {
public:
    explicit Patterns(const std::vector<py::object>& patterns) {
        for (const py::object& pattern : patterns) {
            if (!engine_.insertPattern(bytes(pattern))) throw py::value_error(engine_.error());
        }
        if (!engine_.finalSetup()) throw py::value_error(engine_.error());
    }
    std::optional<int> match(py::handle subject) const {
        const std::int32_t path = engine_.firstPath(bytes(subject));
        return path >= 0 ? std::optional<int>(path) : std::nullopt;
    }

private:
    FSM::EngineGroup engine_;
};

}  // namespace

}  // namespace PyApi

PYBIND11_MODULE(_kestrel, module) {
    using namespace PyApi;
    module.doc() = "What the package kestrel is made of.";
    module.attr("version") = SCR::version();
    py::class_<PyProgram>(module, "Program")
        .def(py::init([](py::handle text, py::object setup) {
                 return std::make_unique<PyProgram>(text, std::move(setup));
             }),
             py::arg("text"), py::arg("setup") = py::none())
        .def("raise_for_errors", [](const PyProgram& self) { check(self.program().outcome()); })
        .def_property_readonly("diagnostics", [](const PyProgram& self) {
            return describe(self.program().diagnostics());
        });
    py::class_<PyInterpreter>(module, "Interpreter", py::dynamic_attr())
        .def(py::init<py::object>(), py::arg("log") = py::none())
        .def("compile", &PyInterpreter::compile)
        .def("compile_program", &PyInterpreter::compileProgram)
        .def("check", &PyInterpreter::check)
        .def("execute", &PyInterpreter::execute)
        .def("finish", &PyInterpreter::finish)
        .def("query", &PyInterpreter::query)
        .def("interrupt", &PyInterpreter::interrupt)
        .def("limits", &PyInterpreter::limits)
        .def("capabilities", &PyInterpreter::capabilities)
        .def("time_zone", &PyInterpreter::timeZone)
        .def("include_path", &PyInterpreter::includePath)
        .def("call", &PyInterpreter::call)
        .def("execute_records", &PyInterpreter::executeRecords)
        .def("_add_function", &PyInterpreter::addFunction)
        .def("_declare", &PyInterpreter::declare)
        .def("__getitem__", &PyInterpreter::get)
        .def("__setitem__", &PyInterpreter::set)
        .def_property_readonly("diagnostics", &PyInterpreter::diagnostics);
    py::class_<Patterns>(module, "Patterns")
        .def(py::init<const std::vector<py::object>&>())
        .def("match", &Patterns::match);
}
