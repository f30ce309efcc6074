#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "records/Record.h"
#include "records/StopSignal.h"

namespace Records {

/// Cuts the bytes of a file descriptor into records: at line ends, but not at those in quotes.
/// Memory is that of the largest record. One thread at a time.
class RecordReader {
public:
    enum class State { Record, Malformed, Waiting, End, Interrupted, Failed };

    /// A quoted record longer than this, in bytes, counts as one whose quotes are not closed.
    static constexpr std::size_t maxQuotedCM = std::size_t{16} << 20;

    /// A record longer than this, in bytes, fails.
    static constexpr std::size_t maxRecordCM = std::size_t{1} << 30;

    /// `descriptor` is not owned. `stop` ends the reading between two records; not owned.
    RecordReader(int descriptor, const Layout& layout, const StopSignal& stop);

    /// Reads the next record. `Malformed`: its quotes are wrong; `text` is its first line then, and
    /// the next record begins behind that. `Waiting`: there is no whole one yet. `Failed`: errno
    /// tells why.
    State next();
    /// Waits until there is more to read, or the reading is to end.
    void wait() const { stop_.waitForInput(descriptor_); }
    /// The record without its line end; valid until `next`.
    std::string_view text() const { return text_; }
    /// "\n", "\r\n", or nothing at the end of the file.
    std::string_view lineEnd() const { return lineEnd_; }
    /// The line, 1-based, in which the record begins.
    std::int64_t line() const { return line_; }
    /// Where in the input the record begins, in bytes. A byte order mark at the start of the input
    /// belongs to no record.
    std::int64_t offset() const { return offset_; }
    /// Where it ends, its line end included.
    std::int64_t end() const { return nextOffset_; }
    /// Why a record is malformed.
    const char* reason() const { return reason_; }

private:
    // How far the record that begins at begin_ was looked through.
    struct Scan {
        std::size_t scanned = 0;       // bytes of it that hold no line end still to be looked at
        std::size_t openFrom = 0;      // where the line begins on which a quote is still open
        std::size_t firstEnd = 0;      // the first line with its line end; 0: not found yet
        std::size_t firstEndSize = 0;  // its line end
    };

    // Reads more bytes, unless there are none now; `Record` when it did or the input ended.
    State fill();
    // Passes over a byte order mark at the start of the input; the same.
    State skipMark();
    // Whether the record in text_ goes on in the next line, as a quote is open. Where its quotes
    // are wrong it is its first line, and `state` is `Malformed`.
    bool goesOn(State& state);

    const int descriptor_;
    const Layout layout_;
    const StopSignal& stop_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool isAtEnd_ = false;
    bool isBegun_ = false;  // behind a byte order mark
    Scan scan_;
    // A quote that is open at the end of a line before this place in the input is open there too,
    // as a record that was given up has shown. So no byte is looked through again and again.
    std::int64_t openUntil_ = -1;
    std::string_view text_;
    std::string_view lineEnd_;
    std::int64_t line_ = 0;
    std::int64_t offset_ = 0;
    std::int64_t nextOffset_ = 0;
    std::int64_t nextLine_ = 1;
    const char* reason_ = "";
};

}  // namespace Records
