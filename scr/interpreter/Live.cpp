#include "scr/Program.h"

#include <atomic>
#include <mutex>
#include <utility>

#include "scr/HostContainers.h"
#include "scr/Variable.h"
#include "scr/run/Entry.h"
#include "scr/run/RunControl.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

namespace {

using Elements = TypeList<LongType, StringType, DecimalType, BoolType, DateType, NexidType>;

bool copyContents(const Variable& from, Variable& to);

template <class T>
bool copyElement(const T& from, T* to) {
    if (to == nullptr) return false;
    if constexpr (std::is_base_of_v<Variable, T>) {
        return copyContents(from, *to);
    } else {
        *to = from;
        return true;
    }
}

template <class T>
bool copyAll(const Array& from, Array& to) {
    const ArrayView<T> source(from);
    const ArrayRef<T> target(to, nullptr);
    if (!target.resize(source.size())) return false;
    unsigned long index = 0;
    for (const T& element : source) {
        if (!copyElement(element, target.at(index++))) return false;
    }
    return true;
}

template <class T>
bool copyAll(const Hash& from, Hash& to) {
    const HashRef<T> target(to, nullptr);
    bool isDone = true;
    target.clear();
    HashView<T>(from).forEach([&](const FND::String& key, const T& element) {
        isDone = isDone && copyElement(element, target.at(key));
    });
    return isDone;
}

template <class Container>
bool copyContainer(const Container& from, Container& to) {
    const int type = Node::baseType(from.containerType());
    if (type != Node::baseType(to.containerType())) return false;
    if (type == TypeCode::Array) return copyAll<Array>(from, to);
    if (type == TypeCode::Hash) return copyAll<Hash>(from, to);
    return withType(Elements(), type,
                    [&]<class Type>(Type) { return copyAll<typename Type::Value>(from, to); });
}

// Copies the value of a variable to one of the same type; false when the types differ.
bool copyContents(const Variable& from, Variable& to) {
    const int type = Node::baseType(from.dataType());
    if (type != Node::baseType(to.dataType())) return false;
    if (type == TypeCode::Array) {
        return copyContainer(static_cast<const Array&>(from), static_cast<Array&>(to));
    }
    if (type == TypeCode::Hash) {
        return copyContainer(static_cast<const Hash&>(from), static_cast<Hash&>(to));
    }
    if (Node::isConst(to.dataType())) return false;
    return withType(Elements(), type, [&]<class Type>(Type) {
        using V = typename Type::Variable;
        static_cast<V&>(to).value() = static_cast<const V&>(from).value();
        return true;
    });
}

// Changes only when a program is replaced; never destroyed while somebody may look.
struct Version {
    std::uint64_t number = 0;
    Program program;
};

}  // namespace

struct Live::State {
    std::atomic<std::uint64_t> number{0};
    mutable std::mutex mutex;  // for what follows
    Version current;
    std::vector<FND::String> kept;
};

Live::Live(Program first, std::vector<FND::String> kept) : state_(std::make_unique<State>()) {
    state_->kept = std::move(kept);
    replace(std::move(first));
}

Live::~Live() = default;

Outcome Live::replace(Program next) {
    if (!next) return next.outcome();
    // The former program may be destroyed, which takes long, after the lock is given back.
    const std::lock_guard lock(state_->mutex);
    std::swap(state_->current.program, next);
    state_->number.store(++state_->current.number, std::memory_order_release);
    return {};
}

Program Live::program() const {
    const std::lock_guard lock(state_->mutex);
    return state_->current.program;
}

std::uint64_t Live::version() const { return state_->number.load(std::memory_order_acquire); }

struct LiveRunner::State {
    State(const Live& watched, Log* sink, Prepare given)
        : live(watched), log(sink), prepare(std::move(given)) {}

    Outcome take();

    const Live& live;
    Log* const log;
    const Prepare prepare;
    std::unique_ptr<Interpreter> interpreter;
    std::uint64_t tried = 0;    // the newest version that was taken or could not be
    std::uint64_t version = 0;  // of the interpreter
    int executions = 0;         // under way
};

LiveRunner::LiveRunner(const Live& live, Log* log, Prepare prepare)
    : state_(std::make_unique<State>(live, log, std::move(prepare))) {}

LiveRunner::~LiveRunner() = default;

Outcome LiveRunner::State::take() {
    Version next;
    {
        const std::lock_guard lock(live.state_->mutex);
        next = live.state_->current;
    }
    tried = next.number;
    auto made = std::make_unique<Interpreter>(log);
    contain(*made, [&] {
        if (next.program.setup()) next.program.setup()(*made);
        if (prepare) prepare(*made);
        return true;
    });
    if (Outcome outcome = made->tryCompile(next.program); !outcome) return outcome;
    if (interpreter != nullptr) {
        contain(*made, [&] {
            for (const FND::String& name : live.state_->kept) {
                const Variable* const from = interpreter->getVariable({}, name);
                Variable* const to = made->getVariable({}, name);
                if (from != nullptr && to != nullptr) copyContents(*from, *to);
            }
            return true;
        });
    }
    interpreter = std::move(made);
    version = next.number;
    return {};
}

Outcome LiveRunner::refresh() {
    if (state_->executions > 0 || state_->live.version() == state_->tried) return {};
    // The host may run the interpreter by itself, too.
    Interpreter* const now = state_->interpreter.get();
    if (now != nullptr && now->runControl().isRunning()) return {};
    return state_->take();
}

Outcome LiveRunner::execute() {
    refresh();
    if (state_->interpreter == nullptr) return Outcome::refused("there is no program to run");
    ++state_->executions;
    Outcome outcome = state_->interpreter->tryExecute();
    --state_->executions;
    return outcome;
}

Interpreter* LiveRunner::interpreter() const { return state_->interpreter.get(); }

std::uint64_t LiveRunner::version() const { return state_->version; }

}  // namespace SCR
