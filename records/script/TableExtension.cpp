#include "records/script/TableExtension.h"

#include <algorithm>
#include <array>
#include <memory>
#include <string>
#include <utility>

#include "records/script/Arguments.h"
#include "scr/Constant.h"
#include "scr/Extension.h"
#include "scr/FctDescr.h"
#include "scr/Interpreter.h"
#include "scr/Variable.h"
#include "scr/message/Quote.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"
#include "scr/run/RunControl.h"

namespace Records {
namespace {

using Place = TableRows::Place;

// One part of a key, as the script gives it.
class KeyPart {
public:
    virtual ~KeyPart() = default;
    virtual void append(std::string& key) = 0;
};

template <class Type>
class TypedKeyPart final : public KeyPart {
public:
    explicit TypedKeyPart(std::unique_ptr<SCR::Node> node)
        : node_(static_cast<typename Type::Node*>(node.release())) {}
    void append(std::string& key) override { Table::appendKey(node_->result(), key); }

private:
    const std::unique_ptr<typename Type::Node> node_;
};

// Goes to the first row with a key.
class FindNode final : public SCR::BoolNode {
public:
    FindNode(Place& place, std::vector<std::unique_ptr<KeyPart>> parts)
        : place_(place), parts_(std::move(parts)) {}
    bool result() override {
        key_.clear();
        for (const auto& part : parts_) part->append(key_);
        place_.row = place_.table->find(key_);
        return place_.row != Table::noneCM;
    }

private:
    Place& place_;
    const std::vector<std::unique_ptr<KeyPart>> parts_;
    std::string key_;
};

// Goes to the next row with the same key.
class NextNode final : public SCR::BoolNode {
public:
    explicit NextNode(Place& place) : place_(place) {}
    bool result() override {
        if (place_.row != Table::noneCM) place_.row = place_.table->next(place_.row);
        return place_.row != Table::noneCM;
    }

private:
    Place& place_;
};

// A cell of the current row.
template <class Type>
class CellNode final : public Type::Node {
public:
    CellNode(const Place& place, std::size_t column) : place_(place), column_(column) {}
    decltype(std::declval<typename Type::Node>().result()) result() override {
        const std::string_view cell = place_.row == Table::noneCM
                                          ? std::string_view()
                                          : place_.table->cell(place_.row, column_);
        if constexpr (std::is_same_v<Type, SCR::StringType>) {
            value_ = cell;
        } else if constexpr (std::is_same_v<Type, SCR::DecimalType>) {
            value_ = Table::value(cell, FND::Decimal::invalid());
        } else {
            value_ = Table::value(cell, typename Type::Value());
        }
        if constexpr (std::is_same_v<Type, SCR::DateType>) {
            SCR::RunControl* const control = SCR::RunControl::current();
            if (!value_.isValid() && control != nullptr) control->invalidDates().areRead = true;
        }
        return value_;
    }

private:
    const Place& place_;
    const std::size_t column_;
    typename Type::Value value_{};
};

constexpr const char* findS = "tableFind";
constexpr const char* nextS = "tableNext";
constexpr const char* fieldS = "tableField";

bool complain(const char* function, const std::string& what) {
    return SCR_YaccError(std::string(function) + ": " + what);
}

int typeCodeOf(Table::Type type) {
    constexpr std::array<int, 4> codes{SCR::TypeCode::String, SCR::TypeCode::Long,
                                       SCR::TypeCode::Decimal, SCR::TypeCode::Date};
    return codes[static_cast<std::size_t>(type)];
}

// The name or constant text that the node of a first argument is; null for any other expression.
const FND::String* nameOf(SCR::Node* node) {
    auto* const text = dynamic_cast<SCR::StringConstant*>(node);
    return text == nullptr ? nullptr : &text->result();
}

// A function whose first argument names a table or a column.
class TableFunction : public SCR::FctDescr {
public:
    TableFunction(const char* name, int result, int fewest, int most, Factory make, TableRows& rows)
        : FctDescr(name, result, fewest, anyNumber, make, SCR::TypeCode::EdrAlias),
          rows_(rows),
          most_(most) {}
    SCR::Variable* clone() const override { return new TableFunction(*this); }

protected:
    // The place of the table `name`; null after a report.
    Place* place(const std::string& name) const {
        for (Place& place : rows_.all()) {
            if (place.table->name() == name) return &place;
        }
        complain(this->name().c_str(), "there is no table " + SCR::quotedValue(name) +
                                           "; --table " + name + "=FILE names one");
        return nullptr;
    }
    const FctDescr* variantFor(const SCR::ParserStack& stack, int count) const override {
        if (count <= most_) return check(stack, count);
        complain(name().c_str(), "too many arguments");
        return nullptr;
    }
    virtual const FctDescr* check(const SCR::ParserStack& stack, int count) const {
        const auto fromTop = static_cast<std::size_t>(count - 1);
        const FND::String* const named = nameOf(stack.data(fromTop));
        if (named == nullptr) complain(name().c_str(), "the first argument must be a name");
        return named != nullptr && place(*named) != nullptr ? this : nullptr;
    }

    TableRows& rows_;

private:
    const int most_;
};

class FindFunction final : public TableFunction {
public:
    explicit FindFunction(TableRows& rows)
        : TableFunction(findS, SCR::TypeCode::Bool, 2, 1 + mostKeysCM, make, rows) {}
    SCR::Variable* clone() const override { return new FindFunction(*this); }

private:
    static constexpr int mostKeysCM = 8;
    static SCR::Node* make(SCR::Interpreter& /*interpreter*/, SCR::ParserStack& stack,
                           const FctDescr& descriptor) {
        return static_cast<const FindFunction&>(descriptor).makeNode(popArguments(stack));
    }
    SCR::Node* makeNode(std::vector<Argument> arguments) const;
};

SCR::Node* FindFunction::makeNode(std::vector<Argument> arguments) const {
    Place* const found = place(*nameOf(arguments[0].node.get()));
    const Table& table = *found->table;
    if (table.keys().size() + 1 != arguments.size()) {
        complain(findS, "the key of the table " + table.name() + " has " +
                            std::to_string(table.keys().size()) + " columns");
        return nullptr;
    }
    std::vector<std::unique_ptr<KeyPart>> parts;
    for (std::size_t i = 0; i < table.keys().size(); ++i) {
        const Table::Column& column = table.columns()[table.keys()[i]];
        Argument& argument = arguments[i + 1];
        const int wanted = typeCodeOf(column.type);
        const int given = SCR::Node::baseType(argument.type);
        if (given != wanted && SCR::Node::SuperType(given, wanted) == wanted) {
            argument.node.reset(argument.node->promote(wanted));
            if (!argument.node) return nullptr;
        } else if (given != wanted) {
            complain(findS, "the key column " + column.name + " of the table " + table.name() +
                                " is a " + SCR::Node::datatypeAsString(wanted) + ", not a " +
                                SCR::Node::datatypeAsString(given));
            return nullptr;
        }
        switch (column.type) {
            case Table::Type::String:
                parts.push_back(
                    std::make_unique<TypedKeyPart<SCR::StringType>>(std::move(argument.node)));
                break;
            case Table::Type::Long:
                parts.push_back(
                    std::make_unique<TypedKeyPart<SCR::LongType>>(std::move(argument.node)));
                break;
            case Table::Type::Decimal:
                parts.push_back(
                    std::make_unique<TypedKeyPart<SCR::DecimalType>>(std::move(argument.node)));
                break;
            case Table::Type::Date:
                parts.push_back(
                    std::make_unique<TypedKeyPart<SCR::DateType>>(std::move(argument.node)));
                break;
        }
    }
    return new FindNode(*found, std::move(parts));
}

class NextFunction final : public TableFunction {
public:
    explicit NextFunction(TableRows& rows)
        : TableFunction(nextS, SCR::TypeCode::Bool, 1, 1, make, rows) {}
    SCR::Variable* clone() const override { return new NextFunction(*this); }

private:
    static SCR::Node* make(SCR::Interpreter& /*interpreter*/, SCR::ParserStack& stack,
                           const FctDescr& descriptor) {
        const std::vector<Argument> arguments = popArguments(stack);
        const auto& function = static_cast<const NextFunction&>(descriptor);
        return new NextNode(*function.place(*nameOf(arguments[0].node.get())));
    }
};

// `tableField`, for columns of one type.
class FieldFunction final : public TableFunction {
public:
    FieldFunction(TableRows& rows, Table::Type type, const std::array<FieldFunction*, 4>& all)
        : TableFunction(fieldS, typeCodeOf(type), 1, 1, make, rows), all_(all) {}
    SCR::Variable* clone() const override { return new FieldFunction(*this); }

private:
    struct Cell {
        Place* place = nullptr;
        std::size_t column = 0;
        Table::Type type() const { return place->table->columns()[column].type; }
    };
    // The column that `name` stands for; without a place after a report.
    Cell cell(const std::string& name) const;
    const FctDescr* check(const SCR::ParserStack& stack, int /*count*/) const override {
        const FND::String* const named = nameOf(stack.data());
        if (named == nullptr) {
            complain(fieldS, "the argument must be a name");
            return nullptr;
        }
        const Cell found = cell(*named);
        return found.place != nullptr ? all_[static_cast<std::size_t>(found.type())] : nullptr;
    }
    static SCR::Node* make(SCR::Interpreter& /*interpreter*/, SCR::ParserStack& stack,
                           const FctDescr& descriptor);

    const std::array<FieldFunction*, 4>& all_;  // by type
};

FieldFunction::Cell FieldFunction::cell(const std::string& name) const {
    std::vector<Cell> found;
    for (Place& place : rows_.all()) {
        const std::string& table = place.table->name();
        if (!name.starts_with(table) || name.size() < table.size() + 2 ||
            name[table.size()] != '.') {
            continue;
        }
        const std::size_t column = place.table->column(name.substr(table.size() + 1));
        if (column != Table::noneCM) return {&place, column};
    }
    for (Place& place : rows_.all()) {
        const std::size_t column = place.table->column(name);
        if (column != Table::noneCM) found.push_back({&place, column});
    }
    if (found.size() == 1) return found.front();
    if (found.empty()) {
        complain(fieldS, "no table has a column " + SCR::quotedValue(name));
    } else {
        complain(fieldS, "several tables have a column " + SCR::quotedValue(name) + "; say " +
                             found.front().place->table->name() + "." + name);
    }
    return {};
}

SCR::Node* FieldFunction::make(SCR::Interpreter& /*interpreter*/, SCR::ParserStack& stack,
                               const FctDescr& descriptor) {
    const std::vector<Argument> arguments = popArguments(stack);
    const Cell cell =
        static_cast<const FieldFunction&>(descriptor).cell(*nameOf(arguments[0].node.get()));
    switch (cell.type()) {
        case Table::Type::Long:
            return new CellNode<SCR::LongType>(*cell.place, cell.column);
        case Table::Type::Decimal:
            return new CellNode<SCR::DecimalType>(*cell.place, cell.column);
        case Table::Type::Date:
            return new CellNode<SCR::DateType>(*cell.place, cell.column);
        case Table::Type::String:
            break;
    }
    return new CellNode<SCR::StringType>(*cell.place, cell.column);
}

class TableExtension final : public SCR::Extension {
public:
    explicit TableExtension(TableRows& rows)
        : find_(rows),
          next_(rows),
          texts_(rows, Table::Type::String, fields_),
          longs_(rows, Table::Type::Long, fields_),
          decimals_(rows, Table::Type::Decimal, fields_),
          dates_(rows, Table::Type::Date, fields_) {}

    FND::String extensionName() const override { return "table"; }
    SCR::Variable* variable(const FND::String& name) override {
        for (SCR::FctDescr* const function : all()) {
            if (name == function->name()) return function;
        }
        return nullptr;
    }
    void visitNames(const std::function<void(const FND::String& name)>& visit) const override {
        for (const char* const name : {findS, nextS, fieldS}) visit(name);
    }

private:
    std::array<SCR::FctDescr*, 3> all() { return {&find_, &next_, &texts_}; }

    const std::array<FieldFunction*, 4> fields_{&texts_, &longs_, &decimals_, &dates_};
    FindFunction find_;
    NextFunction next_;
    FieldFunction texts_;
    FieldFunction longs_;
    FieldFunction decimals_;
    FieldFunction dates_;
};

}  // namespace

void addTableFunctions(SCR::Interpreter& interpreter, TableRows& rows) {
    auto extension = std::make_unique<TableExtension>(rows);
    if (interpreter.insertExtension(extension.get())) extension.release();
}

}  // namespace Records
