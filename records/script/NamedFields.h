#pragma once

namespace SCR {
class HostExtension;
class Interpreter;
}  // namespace SCR

namespace Records {

/// Inserts a host's extension for the functions of records, in which scripts may name fields by
/// constant texts as well, as in `edrString("2nd name")`: for names that are no identifiers. Null
/// when it cannot be inserted; `interpreter` owns it.
SCR::HostExtension* insertRecordExtension(SCR::Interpreter& interpreter);

}  // namespace Records
