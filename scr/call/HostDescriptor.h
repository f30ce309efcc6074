#pragma once

#include <memory>

#include "fnd/String.h"
#include "scr/FctDescr.h"
#include "scr/HostFunction.h"

namespace SCR::Host {

/// Calls `use` with the value type of the base code of `typeWord`, one that hosts know, and returns
/// its result.
template <class Use>
auto withType(int typeWord, const Use& use) {
    switch (Node::baseType(typeWord)) {
        case TypeCode::Long:
            return use(LongType());
        case TypeCode::Bool:
            return use(BoolType());
        case TypeCode::Decimal:
            return use(DecimalType());
        case TypeCode::Date:
            return use(DateType());
        case TypeCode::Nexid:
            return use(NexidType());
        default:
            return use(StringType());
    }
}

/// The descriptor of the function `name` of a host. `ids` is not owned and must outlive it.
std::unique_ptr<FctDescr> makeDescriptor(const FND::String& name, Description description,
                                         const FieldIds& ids);

}  // namespace SCR::Host
