#pragma once

#include <type_traits>
#include <utility>

#include "scr/Node.h"
#include "scr/code/Operation.h"
#include "scr/run/RunControl.h"

namespace SCR::Code {

/// Makes a function that may throw into a helper's.
template <auto function>
long guarded(RunControl& control, long a, long b, long c) noexcept {
    try {
        return function(control, a, b, c);
    } catch (...) {
        control.noteFailure();
        return 0;
    }
}

/// The object at an address that an operand holds.
template <class Object>
Object& at(long address) {
    return *reinterpret_cast<Object*>(address);
}

template <class NodeClass>
long resultOf(RunControl& /*control*/, long node, long /*b*/, long /*c*/) {
    using Value = decltype(std::declval<NodeClass&>().result());
    if constexpr (std::is_void_v<Value>) {
        at<NodeClass>(node).result();
        return 0;
    } else if constexpr (std::is_reference_v<Value>) {
        return reinterpret_cast<long>(&at<NodeClass>(node).result());
    } else if constexpr (std::is_pointer_v<Value>) {
        return reinterpret_cast<long>(at<NodeClass>(node).result());
    } else {
        return static_cast<long>(at<NodeClass>(node).result());
    }
}

/// Evaluates the expression whose address, as a `NodeClass`, is its operand.
template <class NodeClass>
inline constexpr Helper resultS{guarded<resultOf<NodeClass>>};

/// Executes the statement whose address is its operand; gives the control-flow code.
extern const Helper executeS;
/// Counts bytes of work.
extern const Helper workS;

/// Looks whether the script has to stop, when no turn is left to `place`; notes a failure then.
void look(RunControl& control, const Node* place) noexcept;
/// Opens a call and stops the script when it may not be opened; notes a failure then.
void enterCall(RunControl& control, const Node* place) noexcept;
/// Notes the failure of a call that was counted and may not be open, made by the node `place`.
void checkCall(RunControl& control, const Node* place) noexcept;

}  // namespace SCR::Code
