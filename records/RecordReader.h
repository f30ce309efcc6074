#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "records/Record.h"

namespace Records {

/// Cuts the bytes of a file descriptor into records: at line ends, but not at those in quotes.
/// Memory is that of the largest record. One thread.
class RecordReader {
public:
    enum class State { Record, Malformed, End, Interrupted, Failed };

    /// A quoted record longer than this, in bytes, counts as one whose quotes are not closed.
    static constexpr std::size_t maxQuotedCM = std::size_t{16} << 20;

    /// `descriptor` is not owned. `stop` ends the reading between two records; not owned.
    RecordReader(int descriptor, const Layout& layout, const std::atomic<bool>& stop);

    /// Reads the next record. `Malformed`: its quotes are wrong; `text` is its first line then, and
    /// the next record begins behind that.
    State next();
    /// The record without its line end; valid until `next`.
    std::string_view text() const { return text_; }
    /// "\n", "\r\n", or nothing at the end of the file.
    std::string_view lineEnd() const { return lineEnd_; }
    /// The line, 1-based, in which the record begins.
    std::int64_t line() const { return line_; }
    /// Where in the input the record begins, in bytes.
    std::int64_t offset() const { return offset_; }
    /// Why a record is malformed.
    const char* reason() const { return reason_; }
    /// Whether the bytes at hand do not hold another line and no more are there yet, so that `next`
    /// may have to wait.
    bool mayWait() const;

private:
    bool fill(State& state);

    const int descriptor_;
    const Layout layout_;
    const std::atomic<bool>& stop_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    bool isAtEnd_ = false;
    std::string_view text_;
    std::string_view lineEnd_;
    std::int64_t line_ = 0;
    std::int64_t offset_ = 0;
    std::int64_t nextOffset_ = 0;
    std::int64_t nextLine_ = 1;
    const char* reason_ = "";
};

}  // namespace Records
