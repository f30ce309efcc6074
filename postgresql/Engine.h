#pragma once

#include <cstddef>
#include <cstdint>

// The scripts of one backend. This side is C++ and knows nothing of the server, the other side is
// plain data: an error of the server unwinds by longjmp, which must not pass over objects with
// destructors. Nothing here throws, calls the server or takes its memory. One thread.
namespace PgApi {

/// What a script gives for a record.
enum class Wanted : std::uint8_t {
    Numeric,    ///< `result`, a Decimal
    Text,       ///< `result`, a String
    Bool,       ///< `result`, a Bool
    Timestamp,  ///< `result`, a Date
    Json,       ///< the record as the script left it
    Rows,       ///< the records that it wrote, and that one
    Row         ///< variables that it declares
};

/// What scripts may take and do. The texts belong to the caller.
struct Settings {
    std::int64_t milliseconds;
    std::int64_t bytes;
    std::int64_t steps;        ///< negative: any number
    const char* capabilities;  ///< names as for the command's --allow, apart by ","
    const char* zone;
    std::size_t programs;  ///< at most so many are kept
};

/// Why something did not work.
struct Failure {
    enum class Kind : std::uint8_t { None, Text, Limit, Interrupted, Record, Unproven, Refused };
    Kind kind = Kind::None;
    // Never null, "" for what is not known; valid until the next call.
    const char* message = "";
    const char* place = "";
    const char* detail = "";
    const char* cure = "";
    int position = 0;  ///< of the mistake in the script, in characters from 1; 0 when not known
};

enum class Type : std::uint8_t { Long, Bool, Text, Numeric, Timestamp };

/// A value. Texts are valid until the next call. Numbers are texts, dates seconds since 1970.
struct Value {
    bool isNull;
    std::int64_t number;
    const char* data;
    std::size_t size;
};

/// What becomes of the variable of its name.
struct Column {
    const char* name;
    Type type;
};

/// The way to a field: names of members, and indices of the arrays on the way, 0-based, negative
/// ones from the end.
struct Name {
    const char* data;
    std::size_t size;
};
struct Path {
    const Name* names;
    std::size_t nameCount;
    const long* indices;
    std::size_t indexCount;
};

/// What a field holds.
struct Field {
    enum class Kind : std::uint8_t { Missing, Null, False, True, Number, Text, Array, Object };
    Kind kind = Kind::Missing;
    bool isBroken = false;  ///< The path leads through what is neither an object nor an array.
    long elements = 0;      ///< of an array
    const char* data = "";  ///< Its text; valid until the next field is looked for.
    std::size_t size = 0;
};
/// Looks for a field of the record that is worked on. Numbers and containers have a text when
/// `isSpelled`. False when the server raised an error, which is left to the caller of `run`.
using Find = bool (*)(const Path& path, bool isSpelled, Field& field) noexcept;

class Program;

/// Says who finds fields, before the first run.
void findBy(Find find) noexcept;
/// Settings for all later calls. Programs made before are gone.
void configure(const Settings& settings) noexcept;
/// The program with this text: one that is kept, or a new one. With `isProven` only one that
/// carries nothing from record to record. Null after a failure. Valid until the next call of
/// `configure` or `program`.
Program* program(const char* text, std::size_t size, Wanted wanted, bool isProven) noexcept;
/// Compiles a text with all warnings, of which there are `warningCount` then.
bool check(const char* text, std::size_t size, Wanted wanted) noexcept;
std::size_t warningCount() noexcept;
const char* warning(std::size_t index) noexcept;
/// What went wrong in the last call that failed.
const Failure& failure() noexcept;

/// The number of bytes that must be readable after the text of a record.
std::size_t padding() noexcept;
/// Runs the program on a record, whose text `json` is for `Json` and `Rows`, and which must live
/// until the next run. For the others it is the one that `Find` looks into. False after a failure.
bool run(Program& program, const char* json, std::size_t size) noexcept;
/// What the program printed in its last run.
Value printed(const Program& program) noexcept;
/// Whether the script dropped the record.
bool isDropped(const Program& program) noexcept;
/// Its result; for `Json` the record. False after a failure.
bool result(Program& program, Value& value) noexcept;
/// The number of records for `Rows`, and one of them.
std::size_t rowCount(const Program& program) noexcept;
Value row(const Program& program, std::size_t index) noexcept;
/// Frees them.
void forgetRows(Program& program) noexcept;
/// Reads the variables for `Row`. False after a failure.
bool columns(Program& program, const Column* columns, std::size_t count, Value* values) noexcept;

/// Stops what runs now, or else what runs next. A signal handler may call it.
void interrupt() noexcept;
/// From now on what runs next may run.
void forgetInterrupt() noexcept;

}  // namespace PgApi
