#include "scr/Extension.h"

namespace SCR {

Extension::~Extension() = default;

Variable* Extension::variable(const FND::String& /*name*/) { return nullptr; }

void Extension::visitNames(const std::function<void(const FND::String& name)>& /*visit*/) const {}

}  // namespace SCR
