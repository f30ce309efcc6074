#include "scr/check/Change.h"

#include "scr/FctDescr.h"
#include "scr/Node.h"

namespace SCR {

Change changeOf(const FctDescr& function, int index) {
    const FND::String& name = function.name();
    const int type = function.argType(index);
    if (index == 0 && (name.ends_with("=") && Node::isLeft(type))) return Change::Whole;
    if (index == 0 &&
        (name == "arrayClear" || name == "hashClear" || name == "strSplit" || name == "fileOpen")) {
        return Change::Whole;
    }
    if (index == 1 && name == "hashKeys") return Change::Whole;
    if (name == "hashRemove" && index == 0) return Change::Part;
    if (Node::isLeft(type)) return Change::Part;
    return Node::baseType(type) == TypeCode::File ? Change::Part : Change::None;
}

}  // namespace SCR
