#pragma once

namespace SCR {

class FctDescr;

/// What a built-in function, or one of a host, does to a variable that is an argument of it.
enum class Change { None, Whole, Part };

/// What `function` does to its argument `index`, 0-based. Reading a file moves in it, which is a
/// change.
Change changeOf(const FctDescr& function, int index);

}  // namespace SCR
