#pragma once

namespace SCR {
class Interpreter;
}  // namespace SCR

namespace Records {

class CurrentRecord;

/// Adds the functions that count from record to record to `interpreter`. They work on the totals of
/// `current`, which is not owned and must outlive the interpreter.
void addTotalFunctions(SCR::Interpreter& interpreter, CurrentRecord& current);

}  // namespace Records
