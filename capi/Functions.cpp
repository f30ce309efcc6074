#include <array>
#include <memory>
#include <stdexcept>

#include "capi/Convert.h"
#include "capi/Objects.h"
#include "scr/FctDescr.h"
#include "scr/value/ObjectTable.h"
#include "scr/value/TypeVisitor.h"

namespace CApi {

namespace {

constexpr std::size_t mostArgumentsS = 9;

// One call under way.
struct Frame {
    SCR::Host::Call* call;
    std::size_t given = 0;
    std::array<kestrel_value, mostArgumentsS + 1> values{};
    std::array<void*, mostArgumentsS + 1> places{};  // of arguments that may be assigned
    std::array<long, mostArgumentsS> handles{};      // of arguments that are objects
    std::array<std::shared_ptr<void>, mostArgumentsS> shares{};
    bool hasResult = false;
    void* room = nullptr;  // of the result
    FND::String failure;
    Frame* outer = nullptr;
};

// A function of the host, and the object that its calls' handle names. Calls of one function nest,
// and the handle stands for the innermost one.
class Function final : public Object {
public:
    static constexpr Kind kindCM = Kind::Call;

    Function(kestrel_function reads, kestrel_function writes, void* userData,
             kestrel_release releases)
        : Object(kindCM), read(reads), write(writes), data(userData), release(releases) {}
    ~Function() override {
        if (release != nullptr) release(data);
    }

    const kestrel_function read;
    const kestrel_function write;
    void* const data;
    kestrel_release release;
    std::array<int, mostArgumentsS> arguments{};
    std::size_t maximum = 0;
    int result = 0;
    std::array<std::shared_ptr<const ObjectType>, mostArgumentsS + 1> types;  // as in descriptions
    std::array<bool, mostArgumentsS> mayBeNull{};
    Frame* frame = nullptr;

    kestrel_call* handle() const { return static_cast<kestrel_call*>(entry_.get()); }

private:
    const Handle entry_{*this};
};

// Opens a call for as long as it lives.
class OpenFrame {
public:
    OpenFrame(Function& function, SCR::Host::Call& call) : function_(function) {
        frame.call = &call;
        frame.outer = function.frame;
        for (std::size_t i = 0; i < function.maximum && call.isGiven(i); ++i) {
            void* const place = call.evaluate(i);
            const int type = function.arguments[i];
            if (type == SCR::TypeCode::EdrAlias) {
                const auto& field = *static_cast<const SCR::FieldAlias*>(place);
                frame.values[i].type = KESTREL_FIELD;
                frame.values[i].as.field = {{field.name().data(), field.name().size()}, field.id()};
            } else if (type == SCR::TypeCode::Adt) {
                frame.handles[i] = *static_cast<const long*>(place);
            } else {
                show(type, place, frame.values[i]);
            }
            if (SCR::Node::isLeft(type)) frame.places[i] = place;
            ++frame.given;
        }
    }
    OpenFrame(const OpenFrame&) = delete;
    OpenFrame& operator=(const OpenFrame&) = delete;
    ~OpenFrame() { function_.frame = frame.outer; }

    // Finds the objects among the arguments; false when the call fails for one of them.
    bool findObjects() {
        for (std::size_t i = 0; i < frame.given && i < mostArgumentsS; ++i) {
            const ObjectType* const type = function_.types[i + 1].get();
            if (type == nullptr) continue;
            const SCR::Host::Place* const found =
                SCR::Host::objectOf(frame.call->interpreter(), type, frame.handles[i]);
            if (found == nullptr && !function_.mayBeNull[i]) {
                return frame.call->refuseHandle(i, frame.handles[i]);
            }
            frame.values[i] = kestrel_object(found != nullptr ? found->object : nullptr);
            if (found != nullptr) frame.shares[i] = found->share;
        }
        return true;
    }

    // Calls the host; throws when it fails.
    void run(kestrel_function callable) {
        function_.frame = &frame;
        if (callable(function_.handle(), function_.data) != 0) {
            throw std::runtime_error(frame.failure.empty() ? "failed" : frame.failure);
        }
    }

    Frame frame;

private:
    Function& function_;
};

const void* readBy(void* callable, SCR::Host::Call& call, void* room) {
    Function& function = *static_cast<Function*>(callable);
    OpenFrame open(function, call);
    if (!call.begin() || !open.findObjects()) return nullptr;
    open.frame.room = room;
    open.run(function.read);
    if (function.result == SCR::TypeCode::Void) return &call;
    if (!open.frame.hasResult && function.result == SCR::TypeCode::Adt) {
        return &(*static_cast<long*>(room) = 0);
    }
    if (!open.frame.hasResult) {
        return SCR::withType(SCR::HostTypes(), function.result,
                             [&]<class Type>(Type) -> const void* {
                                 using Value = typename Type::Value;
                                 return &(*static_cast<Value*>(room) = Type::null());
                             });
    }
    return room;
}

bool writeBy(void* callable, SCR::Host::Call& call, const void* value) {
    Function& function = *static_cast<Function*>(callable);
    OpenFrame open(function, call);
    show(function.result, value, open.frame.values[open.frame.given++]);
    if (!call.begin() || !open.findObjects()) return false;
    open.run(function.write);
    return true;
}

// Reads "Type name(Type name, Type&, [Type])"; gives what is wrong with it, or "".
class SignatureReader {
public:
    using Types = std::vector<std::shared_ptr<const ObjectType>>;

    /// `function` gets what the description does not have.
    SignatureReader(std::string_view text, const Types& types) : rest_(text), types_(types) {}

    FND::String read(FND::String& name, SCR::Host::Description& made, Function& function) {
        made.result = typeOfWord(word(), function.types[0]);
        if (made.result < 0) return problem("a type of a result");
        name = word();
        if (name.empty() || !take('(')) return problem("a name and `('");
        if (take(')')) return end();
        do {
            const bool isOptional = take('[');
            const auto at = static_cast<std::size_t>(made.maximum);
            if (at == mostArgumentsS) return "at most nine arguments";
            const int type = typeOfWord(word(), function.types[at + 1]);
            if (type <= 0 || type == SCR::TypeCode::Void) {
                return problem("a type of an argument");
            }
            const bool isVariable = take('&');
            const bool isObject = type == SCR::TypeCode::Adt;
            if (isVariable && isObject) return "an object cannot be assigned by a function";
            function.mayBeNull[at] = isObject && take('?');
            word();
            if (isOptional && !take(']')) return problem("`]'");
            if (!isOptional && made.minimum < made.maximum) {
                return "the arguments that may be left out come last";
            }
            if (isOptional && isVariable) return "a variable cannot be left out";
            made.arguments[at] = type | (isVariable ? SCR::TypeCode::LeftFlag : 0);
            ++made.maximum;
            if (!isOptional) made.minimum = made.maximum;
        } while (take(','));
        return take(')') ? end() : problem("`,' or `)'");
    }

private:
    static bool isLetter(char c) {
        return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
               c == '_';
    }
    void skip() {
        while (!rest_.empty() && rest_.front() == ' ') rest_.remove_prefix(1);
    }
    FND::String word() {
        skip();
        std::size_t length = 0;
        while (length < rest_.size() && isLetter(rest_[length])) ++length;
        FND::String found(rest_.substr(0, length));
        rest_.remove_prefix(length);
        return found;
    }
    bool take(char sign) {
        skip();
        if (rest_.empty() || rest_.front() != sign) return false;
        rest_.remove_prefix(1);
        return true;
    }
    FND::String problem(const char* expected) const {
        return FND::String("expected ") + expected + " at `" + FND::String(rest_.substr(0, 20)) +
               "'";
    }
    FND::String end() {
        skip();
        return rest_.empty() ? FND::String() : problem("the end");
    }
    // Negative for none.
    int typeOfWord(const FND::String& word, std::shared_ptr<const ObjectType>& object) const {
        for (const auto& type : types_) {
            if (type->name != word) continue;
            object = type;
            return SCR::TypeCode::Adt;
        }
        if (word == "Void") return SCR::TypeCode::Void;
        if (word == "Field") return SCR::TypeCode::EdrAlias;
        const int code = SCR::Node::typeIdForName(word);
        return typeCodeOf(typeOf(code)) != 0 ? code : -1;
    }

    std::string_view rest_;
    const Types& types_;
};

kestrel_status add(kestrel_interpreter* interpreter, const char* signature, kestrel_function read,
                   kestrel_function write, bool isField, void* data, kestrel_release release) {
    if (signature == nullptr || read == nullptr || (isField && write == nullptr)) {
        return refuse("a signature or a function is null");
    }
    return with(interpreter, [&](InterpreterObject& object) {
        FND::String name;
        SCR::Host::Description made;
        const auto function = std::make_shared<Function>(read, write, data, nullptr);
        if (function->handle() == nullptr) return tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
        const FND::String problem =
            SignatureReader(signature, object.types()).read(name, made, *function);
        if (!problem.empty()) return refuse(FND::String("`") + signature + "': " + problem);
        const bool isObject = made.result == SCR::TypeCode::Adt;
        if (made.result == SCR::TypeCode::EdrAlias ||
            (isField && (isObject || made.result == SCR::TypeCode::Void))) {
            return refuse(FND::String("`") + signature + "': not a type of a result");
        }
        SCR::HostExtension* const host = object.host();
        if (host == nullptr) return refuse("there is another extension called host");
        for (std::size_t i = 0; i < made.kinds.size(); ++i)
            made.kinds[i] = function->types[i].get();
        function->arguments = made.arguments;
        function->maximum = static_cast<std::size_t>(made.maximum);
        function->result = made.result;
        made.callable = function;
        made.read = readBy;
        made.takesInterpreter = true;
        if (isField) {
            made.result |= SCR::TypeCode::LeftFlag;
            made.writer = function;
            made.write = writeBy;
        }
        if (host->insert(name, std::move(made)) == nullptr) {
            return refuse("the name `" + name + "' is refused");
        }
        function->release = release;  // from now on the data belong to the function
        return KESTREL_FINISHED;
    });
}

// Calls use(function, frame) for a call that is under way.
template <class Use>
kestrel_status withFrame(kestrel_call* call, const Use& use) noexcept {
    auto* const function = get<Function>(call);
    if (function == nullptr || function->frame == nullptr) return refuseHandle("call under way");
    try {
        return use(*function, *function->frame);
    } catch (...) {
        return tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
    }
}

// Makes an object the result of a call.
kestrel_status giveObject(const ObjectType& type, void* object, Frame& frame) {
    SCR::Interpreter& interpreter = frame.call->interpreter();
    SCR::Host::Place place{object, {}};
    if (const SCR::Host::Place* const known = interpreter.objects().known(&type, object)) {
        place = *known;
    } else if (object != nullptr && type.release != nullptr) {
        place.share = std::shared_ptr<void>(object, type.release);
    }
    if (!SCR::Host::handleOf(interpreter, &type, place, *static_cast<long*>(frame.room))) {
        return tell(SCR::Outcome(SCR::Outcome::Kind::Failed));
    }
    frame.hasResult = true;
    return KESTREL_FINISHED;
}

}  // namespace

}  // namespace CApi

using namespace CApi;

kestrel_status kestrel_add_function(kestrel_interpreter* interpreter, const char* signature,
                                    kestrel_function function, void* data,
                                    kestrel_release release) {
    return add(interpreter, signature, function, nullptr, false, data, release);
}

kestrel_status kestrel_add_field(kestrel_interpreter* interpreter, const char* signature,
                                 kestrel_function read, kestrel_function write, void* data,
                                 kestrel_release release) {
    return add(interpreter, signature, read, write, true, data, release);
}

kestrel_status kestrel_add_type(kestrel_interpreter* interpreter, const char* name,
                                kestrel_release release) {
    return with(interpreter, [&](InterpreterObject& object) {
        SCR::HostExtension* const host = object.host();
        if (host == nullptr || name == nullptr) return refuse("the name is null");
        const auto type = std::make_shared<const ObjectType>(ObjectType{name, release});
        object.types().push_back(type);
        if (!host->declareType(type.get(), name)) {
            object.types().pop_back();
            return refuse(FND::String("the name `") + name + "' is refused");
        }
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_forget(kestrel_interpreter* interpreter, const char* type, void* object) {
    return with(interpreter, [&](InterpreterObject& owner) {
        SCR::HostExtension* const host = owner.host();
        if (host == nullptr || type == nullptr) return refuse("the name of the type is null");
        const void* const kind = owner.interpreter().objects().kindOf(type);
        if (kind == nullptr || !host->forgetObject(kind, object)) {
            return refuse("scripts have no handle of the object");
        }
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_field_ids(kestrel_interpreter* interpreter, kestrel_field_id ids,
                                 void* data) {
    return with(interpreter, [&](InterpreterObject& object) {
        SCR::HostExtension* const host = object.host();
        if (host == nullptr || ids == nullptr) return refuse("the function is null");
        host->fieldIds([ids, data](const FND::String& name) {
            return static_cast<long>(ids(data, name.data(), name.size()));
        });
        return KESTREL_FINISHED;
    });
}

size_t kestrel_call_count(kestrel_call* call) {
    const auto* const function = get<Function>(call);
    return function != nullptr && function->frame != nullptr ? function->frame->given : 0;
}

kestrel_status kestrel_call_get(kestrel_call* call, size_t index, kestrel_value* value) {
    return withFrame(call, [&](Function& /*function*/, Frame& frame) {
        if (value == nullptr || index >= frame.given) return refuse("there is no such argument");
        *value = frame.values[index];
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_call_set(kestrel_call* call, size_t index, const kestrel_value* value) {
    return withFrame(call, [&](Function& function, Frame& frame) {
        if (value == nullptr || index >= frame.given || frame.places[index] == nullptr) {
            return refuse("there is no such argument that can be assigned");
        }
        const int type = function.arguments[index];
        if (!store(type, frame.places[index], *value)) return refuse("the value has another type");
        show(type, frame.places[index], frame.values[index]);
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_call_result(kestrel_call* call, const kestrel_value* value) {
    return withFrame(call, [&](Function& function, Frame& frame) {
        if (value == nullptr || frame.room == nullptr) return refuse("there is no result");
        if (function.types[0] != nullptr && value->type == KESTREL_OBJECT) {
            return giveObject(*function.types[0], value->as.object, frame);
        }
        if (!store(function.result, frame.room, *value)) {
            return refuse("the value has another type");
        }
        frame.hasResult = true;
        return KESTREL_FINISHED;
    });
}

kestrel_status kestrel_call_fail(kestrel_call* call, const char* message) {
    return withFrame(call, [&](Function& /*function*/, Frame& frame) {
        frame.failure = textOf(message, KESTREL_NUL);
        return KESTREL_FINISHED;
    });
}

kestrel_interpreter* kestrel_call_interpreter(kestrel_call* call) {
    const auto* const function = get<Function>(call);
    if (function == nullptr || function->frame == nullptr) return nullptr;
    return InterpreterObject::handleOf(function->frame->call->interpreter());
}

kestrel_status kestrel_describe(kestrel_interpreter* interpreter, const char* name,
                                const char* parameters, const char* manual, const char* example) {
    return with(interpreter, [&](InterpreterObject& object) {
        if (name == nullptr || parameters == nullptr || manual == nullptr) {
            return refuse("a text is null");
        }
        SCR::HostExtension* const host = object.host();
        const bool isDone = host != nullptr && host->describe(name, parameters, manual,
                                                              example != nullptr ? example : "");
        return isDone ? KESTREL_FINISHED
                      : refuse("there is no such function, or it has other parameters");
    });
}

kestrel_status kestrel_functions_json(kestrel_interpreter* interpreter, kestrel_text* json) {
    return with(interpreter, [&](InterpreterObject& object) {
        if (json == nullptr) return refuse("the place for the text is null");
        SCR::HostExtension* const host = object.host();
        if (host == nullptr) return refuse("there is no room for functions");
        object.functions() = host->functionsAsJson();
        *json = {object.functions().data(), object.functions().size()};
        return KESTREL_FINISHED;
    });
}
