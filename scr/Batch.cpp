#include "scr/Batch.h"

#include <vector>

#include "scr/Extension.h"
#include "scr/Function.h"
#include "scr/Interpreter.h"
#include "scr/run/Entry.h"
#include "scr/run/Link.h"
#include "scr/run/ScriptMutexes.h"
#include "scr/tree/StatementParts.h"
#include "scr/value/TypeVisitor.h"

namespace SCR {

namespace {

// A column, and the storage of its variable.
class BoundColumn {
public:
    // `variable` has the column's type.
    BoundColumn(const Column& column, Variable& variable)
        : type_(column.type()), isView_(column.isView()), values_(column.values()) {
        withType(HostTypes(), column.type(), [&]<class Type>(Type) {
            stored_ = &static_cast<typename Type::Variable&>(variable).value();
            return true;
        });
    }

    // Copies the value of record `index` to the variable.
    void read(std::size_t index) const {
        visit([&]<class T>(T* stored) {
            if constexpr (std::is_same_v<T, FND::String>) {
                if (isView_) {
                    stored->assign(static_cast<const std::string_view*>(values_)[index]);
                    return;
                }
            }
            *stored = static_cast<const T*>(values_)[index];
        });
    }
    void write(std::size_t index) const {
        visit([&]<class T>(T* stored) { static_cast<T*>(values_)[index] = *stored; });
    }

private:
    template <class Action>
    void visit(const Action& action) const {
        withType(HostTypes(), type_, [&]<class Type>(Type) {
            action(static_cast<typename Type::Value*>(stored_));
            return true;
        });
    }

    int type_;
    bool isView_;
    void* values_;
    void* stored_ = nullptr;
};

// Most columns have Longs, which are copied without asking for their type.
struct LongColumn {
    long* values;
    long* stored;
};

struct BoundColumns {
    std::vector<LongColumn> longInputs;
    std::vector<LongColumn> longOutputs;
    std::vector<BoundColumn> inputs;
    std::vector<BoundColumn> outputs;

    void read(std::size_t record) const {
        for (const LongColumn& column : longInputs) *column.stored = column.values[record];
        for (const BoundColumn& column : inputs) column.read(record);
    }
    void write(std::size_t record) const {
        for (const LongColumn& column : longOutputs) column.values[record] = *column.stored;
        for (const BoundColumn& column : outputs) column.write(record);
    }

    // Why that is not possible; empty when it is done.
    FND::String bind(Interpreter& interpreter, std::span<const Column> columns, std::size_t count) {
        for (const Column& column : columns) {
            Variable* const variable = interpreter.getVariable({}, column.name());
            const bool isInput = column.use() == Column::Use::Input;
            const FND::String about = "column `" + column.name() + "': ";
            if (variable == nullptr) return about + "there is no such variable";
            if (Node::baseType(variable->dataType()) != column.type()) {
                return about + "the variable is " + Node::datatypeAsString(variable->dataType()) +
                       ", not " + Node::datatypeAsString(column.type());
            }
            if (isInput && !Node::isLeft(variable->dataType())) return about + "it is a constant";
            if (column.size() < count) {
                return about + "it has " + std::to_string(column.size()) + " of " +
                       std::to_string(count) + " values";
            }
            if (column.type() == TypeCode::Long) {
                (isInput ? longInputs : longOutputs)
                    .push_back({static_cast<long*>(column.values()),
                                &static_cast<LongVariable&>(*variable).value()});
            } else {
                (isInput ? inputs : outputs).emplace_back(column, *variable);
            }
        }
        return {};
    }
};

}  // namespace

BatchOutcome Interpreter::executeBatch(std::span<const Column> columns, std::size_t count,
                                       std::size_t first) {
    std::size_t record = first;
    FND::String problem;
    BoundColumns bound;
    const auto execute = [&] {
        if (!link().isReady) {
            problem = "no script is compiled";
        } else if (!contain(*this, [&] {
                       problem = bound.bind(*this, columns, count);
                       return true;
                   })) {
            return Outcome::Kind::Failed;
        }
        if (!problem.empty()) return Outcome::Kind::Finished;
        StatementList::Parts& main = mainFunction().parts();
        RunControl& control = runControl();
        const bool isDone = enterRun(*this, [&] {
            while (record < count) {
                bound.read(record);
                if (main.runBody() != Node::goOn) [[unlikely]]
                    mainExtension().mutexes().giveUp();
                bound.write(record);
                ++record;
                control.nextExecution();
            }
            return true;
        });
        if (isDone) return Outcome::Kind::Finished;
        mainExtension().mutexes().giveUp();
        return Outcome::Kind::Failed;
    };
    Outcome outcome = watch(std::ref(execute));
    if (outcome && !problem.empty()) outcome = Outcome::refused(problem);
    return {std::move(outcome), record};
}

}  // namespace SCR
