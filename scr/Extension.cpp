#include "scr/Extension.h"

namespace SCR {

Extension::~Extension() = default;

Variable* Extension::variable(const FND::String& /*name*/) { return nullptr; }

}  // namespace SCR
