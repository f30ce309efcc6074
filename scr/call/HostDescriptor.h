#pragma once

#include <memory>

#include "fnd/String.h"
#include "scr/FctDescr.h"
#include "scr/HostFunction.h"

namespace SCR::Host {

/// The descriptor of the function `name` of a host. `fields` is not owned and must outlive it.
std::unique_ptr<FctDescr> makeDescriptor(const FND::String& name, Description description,
                                         const Fields& fields);

}  // namespace SCR::Host
