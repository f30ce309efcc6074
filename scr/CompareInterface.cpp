#include "scr/CompareInterface.h"

namespace SCR {

CompareInterface::~CompareInterface() = default;

}  // namespace SCR
