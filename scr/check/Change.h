#pragma once

namespace SCR {

class FctDescr;

/// What a built-in function, or a host's function, does to a variable that is its argument.
enum class Change { None, Whole, Part };

/// What `function` does to its argument `index`, 0-based. Reading a file changes its position, so
/// it is a change.
Change changeOf(const FctDescr& function, int index);

}  // namespace SCR
