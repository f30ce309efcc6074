#pragma once

#include <memory>
#include <unordered_map>

#include "fnd/String.h"
#include "scr/FctDescr.h"
#include "scr/HostFunction.h"

namespace SCR::Host {

/// The names of the types of objects, by what stands for their classes.
using ObjectTypes = std::unordered_map<const void*, FND::String>;

/// The descriptor of the function `name` of a host. `fields` is not owned and must outlive it.
/// `types` has all kinds of the description.
std::unique_ptr<FctDescr> makeDescriptor(const FND::String& name, Description description,
                                         const Fields& fields, const ObjectTypes& types);

}  // namespace SCR::Host
