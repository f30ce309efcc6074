#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "records/read/Decoder.h"
#include "records/read/Record.h"
#include "records/read/StopSignal.h"

namespace Records {

/// Cuts the bytes of a file descriptor into records: at line ends, except those in quotes. The
/// memory needed is that of the largest record. One thread at a time.
class RecordReader {
public:
    enum class State { Record, Malformed, Waiting, End, Interrupted, Failed };

    /// What a record may have, in bytes, if nothing else is said.
    static constexpr std::size_t maxRecordCM = std::size_t{64} << 20;

    /// `descriptor` is not owned; what it gives may be compressed. `stop` ends the reading between
    /// two records; not owned. At a record of more than `maxRecord` bytes, its line end not
    /// counted, the reading fails; a quote that is not closed within so many bytes counts as one
    /// that never is.
    RecordReader(int descriptor, const Layout& layout, const StopSignal& stop,
                 std::size_t maxRecord = maxRecordCM);

    /// Reads the next record. `Malformed`: its quotes are wrong; `text` is its first line then, and
    /// the next record begins after that. `Waiting`: no whole record has arrived yet. `Failed`:
    /// errno tells why, EMSGSIZE for a record that is too long; `line` tells where.
    State next();
    /// Reads records as `next` would, as long as they are lines without quotes that were read
    /// already, at most `most` of them, and only those that begin within the next `bytes` bytes.
    /// Calls visit(text, size of its line end, line) for each; gives how many there were. They and
    /// their line ends lie one after the other in memory and stay there until `next` is called.
    template <class Visit>
    std::size_t lines(std::size_t most, std::size_t bytes, const Visit& visit);
    /// Why the reading failed, if errno does not tell; otherwise "".
    const std::string& error() const { return error_; }
    bool isCompressed() const { return decoder_ != nullptr; }
    /// Waits until there is more to read, or until the reading should end.
    void wait() const { stop_.waitForInput(descriptor_); }
    /// The record without its line end; valid until `next`.
    std::string_view text() const { return text_; }
    /// "\n", "\r\n", or nothing at the end of the file.
    std::string_view lineEnd() const { return lineEnd_; }
    /// The line, 1-based, in which the record begins.
    std::int64_t line() const { return line_; }
    /// The position in the input, in bytes, where the record begins. A byte order mark at the start
    /// of the input belongs to no record.
    std::int64_t offset() const { return offset_; }
    /// The position where it ends, after its line end.
    std::int64_t end() const { return nextOffset_; }
    /// Why a record is malformed.
    const char* reason() const { return reason_; }

private:
    // How much of the record that begins at begin_ has been looked at.
    struct Scan {
        std::size_t scanned = 0;       // bytes without a line end that still matters
        std::size_t openFrom = 0;      // where the line with a quote still open begins
        std::size_t firstEnd = 0;      // the first line with its line end; 0: not found yet
        std::size_t firstEndSize = 0;  // its line end
    };

    // Reads more bytes, unless none are there now; `Record` when it did or the input ended.
    State fill();
    State failForSize();
    // Skips a byte order mark at the start of the input; result as above.
    State skipMark();
    // Whether a quote is open, so that the record in text_ goes on in the next line. When its
    // quotes are wrong, the record is its first line and `state` is `Malformed`.
    bool goesOn(State& state);

    // Whether a quote lies in the `size` bytes from begin_ on.
    bool hasQuote(std::size_t size);
    // Looks how far whole lines without quotes go.
    void findLines();
    // Reads bytes to the end of the buffer as they are; `count` of them.
    State readBytes(char* to, std::size_t size, std::size_t& count);
    // The same, decompressed.
    State decode(std::size_t& count);
    State fail(const std::string& error);
    State recognise();

    const int descriptor_;
    const Layout layout_;
    const StopSignal& stop_;
    const std::size_t maxRecord_;
    std::vector<char> buffer_;
    std::size_t begin_ = 0;
    std::size_t end_ = 0;
    std::size_t quote_ = 0;  // from begin_ up to here no quote lies in the buffer
    std::size_t lines_ = 0;  // from begin_ up to here lie whole lines without quotes
    bool isAtEnd_ = false;
    std::unique_ptr<Decoder> decoder_;  // null: the bytes are not compressed
    std::string error_;
    bool isRecognised_ = false;  // what it reads
    bool isBegun_ = false;       // after a byte order mark
    Scan scan_;
    // A record that was given up has shown: a quote open at the end of a line before this place in
    // the input is open here too. So no byte is looked at again and again.
    std::int64_t openUntil_ = -1;
    std::string_view text_;
    std::string_view lineEnd_;
    std::int64_t line_ = 0;
    std::int64_t offset_ = 0;
    std::int64_t nextOffset_ = 0;
    std::int64_t nextLine_ = 1;
    const char* reason_ = "";
};

template <class Visit>
std::size_t RecordReader::lines(std::size_t most, std::size_t bytes, const Visit& visit) {
    const char* const data = buffer_.data();
    const std::size_t end = lines_;
    const std::size_t stop = std::min(end, begin_ + std::min(bytes, end));
    std::size_t begin = begin_;
    std::size_t last = begin;
    std::size_t count = 0;
    for (; begin < stop && count < most; ++count) {
        const char* const start = data + begin;
        const auto size = static_cast<std::size_t>(
            static_cast<const char*>(std::memchr(start, '\n', end - begin)) - start);
        const std::size_t endSize = size != 0 && start[size - 1] == '\r' ? 2 : 1;
        if (size > maxRecord_) [[unlikely]]
            break;  // `next` tells
        last = begin;
        begin += size + 1;
        visit(std::string_view(start, size + 1 - endSize), endSize,
              nextLine_ + static_cast<std::int64_t>(count));
    }
    if (count == 0) return 0;
    offset_ = nextOffset_ + static_cast<std::int64_t>(last - begin_);
    nextOffset_ += static_cast<std::int64_t>(begin - begin_);
    nextLine_ += static_cast<std::int64_t>(count);
    begin_ = begin;
    return count;
}

}  // namespace Records
