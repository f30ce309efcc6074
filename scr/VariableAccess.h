#pragma once

#include "fnd/Export.h"
#include "scr/Variable.h"

namespace SCR {

/// Reads and writes a named variable, which it does not own.
template <class Type>
class VariableAccess : public Type::DataNode {
public:
    explicit VariableAccess(typename Type::Variable* variable) : variable_(variable) {}
    typename Type::Argument result() override { return variable_->value(); }
    bool set(typename Type::Argument value) override {
        variable_->value() = value;
        return true;
    }
    /// The variable behind the access; not owned.
    typename Type::Variable* variable() const { return variable_; }

protected:
    typename Type::Variable* const variable_;
};

class KESTREL_API LongVariableAccess final : public VariableAccess<LongType> {
public:
    using VariableAccess::VariableAccess;
};

class KESTREL_API DecimalVariableAccess final : public VariableAccess<DecimalType> {
public:
    using VariableAccess::VariableAccess;
};

class KESTREL_API StringVariableAccess final : public VariableAccess<StringType> {
public:
    using VariableAccess::VariableAccess;
    /// Charges the script with the room that the text takes.
    bool set(const FND::String& value) override;
};

class KESTREL_API DateVariableAccess final : public VariableAccess<DateType> {
public:
    using VariableAccess::VariableAccess;
};

class KESTREL_API BoolVariableAccess final : public VariableAccess<BoolType> {
public:
    using VariableAccess::VariableAccess;
};

class KESTREL_API NexidVariableAccess final : public VariableAccess<NexidType> {
public:
    using VariableAccess::VariableAccess;
};

class KESTREL_API AdtVariableAccess final : public VariableAccess<AdtType> {
public:
    using VariableAccess::VariableAccess;
    const FND::String& subType() const override { return variable_->subType(); }
    void setSubType(const FND::String& name) { variable_->subType(name); }
};

}  // namespace SCR
