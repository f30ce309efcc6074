#include "records/read/RecordReader.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <poll.h>
#include <unistd.h>

namespace Records {
namespace {

constexpr std::size_t blockSizeS = std::size_t{1} << 18;
constexpr std::string_view markS = "\xEF\xBB\xBF";  // the byte order mark in UTF-8

enum class Quotes { Closed, Open, Wrong };

// Whether every field of `text` from `at` on that begins with a quote ends with one. `isOpen`: the
// text before left a quote open.
Quotes checkQuotes(std::string_view text, std::size_t at, bool isOpen, char delimiter) {
    while (at < text.size()) {
        if (!isOpen) {
            at = text.find('"', at);
            if (at == std::string_view::npos) break;
            const bool isFirst = at == 0 || text[at - 1] == delimiter;
            ++at;
            if (!isFirst) continue;
        }
        isOpen = false;
        for (;; at += 2) {
            at = text.find('"', at);
            if (at == std::string_view::npos) return Quotes::Open;
            if (at + 1 == text.size()) return Quotes::Closed;
            if (text[at + 1] != '"') break;
        }
        if (text[++at] != delimiter) return Quotes::Wrong;
        ++at;
    }
    return isOpen ? Quotes::Open : Quotes::Closed;
}

}  // namespace

RecordReader::RecordReader(int descriptor, const Layout& layout, const StopSignal& stop,
                           std::size_t maxRecord)
    : descriptor_(descriptor),
      layout_(layout),
      stop_(stop),
      maxRecord_(maxRecord),
      buffer_(blockSizeS) {}

RecordReader::State RecordReader::fill() {
    if (begin_ != 0) {
        std::memmove(buffer_.data(), buffer_.data() + begin_, end_ - begin_);
        end_ -= begin_;
        quote_ -= std::min(quote_, begin_);
        lines_ = 0;
        begin_ = 0;
    }
    if (end_ == buffer_.size()) {
        // Lines in quotes, one more line of the greatest length, and some bytes that are too many.
        const std::size_t besides = blockSizeS + std::min(maxRecord_, ~maxRecord_ - blockSizeS);
        const std::size_t most = maxRecord_ + std::min(besides, ~maxRecord_);
        buffer_.resize(std::max(std::min(2 * buffer_.size(), most), end_ + 1));
    }
    std::size_t count = 0;
    const State state =
        decoder_ ? decode(count) : readBytes(buffer_.data() + end_, buffer_.size() - end_, count);
    end_ += count;
    isAtEnd_ = state == State::Record && count == 0;
    return state;
}

RecordReader::State RecordReader::readBytes(char* to, std::size_t size, std::size_t& count) {
    while (!stop_.isRaised()) {
        pollfd input{descriptor_, POLLIN, 0};
        const int ready = poll(&input, 1, 0);
        // Otherwise the read would not check the signal again.
        if (ready == 0 || (ready < 0 && errno == EINTR)) return State::Waiting;
        const ssize_t given = read(descriptor_, to, size);
        if (given >= 0) {
            count = static_cast<std::size_t>(given);
            return State::Record;
        }
        if (errno == EAGAIN) return State::Waiting;
        if (errno != EINTR) return State::Failed;
    }
    return State::Interrupted;
}

RecordReader::State RecordReader::fail(const std::string& error) {
    error_ = error;
    return State::Failed;
}

RecordReader::State RecordReader::decode(std::size_t& count) {
    for (;;) {
        count = decoder_->decode(buffer_.data() + end_, buffer_.size() - end_);
        if (count != 0) return State::Record;
        if (decoder_->isDamaged()) return fail("the compressed data is damaged");
        std::string bytes(blockSizeS, '\0');
        std::size_t given = 0;
        const State state = readBytes(bytes.data(), bytes.size(), given);
        if (state != State::Record) return state;
        if (given == 0) {
            return decoder_->isComplete() ? State::Record
                                          : fail("the compressed data ends too early");
        }
        bytes.resize(given);
        decoder_->take(bytes);
    }
}

RecordReader::State RecordReader::recognise() {
    const auto bytes = [this] { return std::string_view(buffer_.data(), end_); };
    while (!isAtEnd_ && end_ < Decoder::markCM && Decoder::mayBeBinary(bytes())) {
        if (const State state = fill(); state != State::Record) return state;
    }
    decoder_ = Decoder::of(bytes());
    if (const char* const what = decoder_ ? nullptr : Decoder::foreign(bytes())) {
        return fail(std::string("it is ") + what + ", not lines of text");
    }
    if (decoder_) {
        decoder_->take(bytes());
        end_ = 0;
        isAtEnd_ = false;
    }
    isRecognised_ = true;
    return State::Record;
}

RecordReader::State RecordReader::skipMark() {
    if (!isRecognised_) {
        if (const State state = recognise(); state != State::Record) return state;
    }
    const auto bytes = [this] { return std::string_view(buffer_.data(), end_); };
    while (!isAtEnd_ && end_ < markS.size() && markS.starts_with(bytes())) {
        if (const State state = fill(); state != State::Record) return state;
    }
    isBegun_ = true;
    if (bytes().starts_with(markS)) {
        begin_ = markS.size();
        nextOffset_ = static_cast<std::int64_t>(markS.size());
    }
    return State::Record;
}

RecordReader::State RecordReader::failForSize() {
    line_ = nextLine_;
    errno = EMSGSIZE;
    return State::Failed;
}

bool RecordReader::goesOn(State& state) {
    auto& [scanned, openFrom, firstEnd, firstEndSize] = scan_;
    const bool isOpenBefore = openFrom != 0;
    const Quotes quotes = checkQuotes(text_, isOpenBefore ? openFrom : quote_ - begin_,
                                      isOpenBefore, layout_.delimiter);
    if (quotes == Quotes::Closed) return false;
    const bool isOpen = quotes == Quotes::Open;
    const std::size_t lineEnd = text_.size() + lineEnd_.size();
    // An earlier line has shown that a quote is open until after this line.
    const bool isKnown = isOpen && !lineEnd_.empty() &&
                         nextOffset_ + static_cast<std::int64_t>(lineEnd) <= openUntil_;
    if (isOpen && !lineEnd_.empty() && text_.size() < maxRecord_ && !isKnown) return true;
    if (!isKnown) {
        reason_ = isOpen ? "a quote is not closed" : "text follows a closing quote";
        openUntil_ = nextOffset_ + static_cast<std::int64_t>(isOpen ? lineEnd : openFrom);
    }
    openFrom = 0;
    state = State::Malformed;
    text_ = std::string_view(text_.data(), firstEnd);
    lineEnd_ = text_.substr(firstEnd - firstEndSize);
    text_.remove_suffix(firstEndSize);
    return false;
}

bool RecordReader::hasQuote(std::size_t size) {
    if (begin_ + size <= quote_) return false;
    const std::size_t from = std::max(begin_, quote_);
    const void* const found = std::memchr(buffer_.data() + from, '"', end_ - from);
    quote_ = found == nullptr
                 ? end_
                 : static_cast<std::size_t>(static_cast<const char*>(found) - buffer_.data());
    return quote_ < begin_ + size;
}

void RecordReader::findLines() {
    const bool hasQuotes = layout_.isQuoted && !layout_.isWhole;
    if (hasQuotes) hasQuote(end_ - begin_);
    const std::size_t end = hasQuotes ? std::max(quote_, begin_) : end_;
    const void* const last = memrchr(buffer_.data() + begin_, '\n', end - begin_);
    lines_ = last == nullptr
                 ? begin_
                 : static_cast<std::size_t>(static_cast<const char*>(last) - buffer_.data()) + 1;
}

RecordReader::State RecordReader::next() {
    if (stop_.isRaised()) return State::Interrupted;
    State state = isBegun_ ? State::Record : skipMark();
    if (state != State::Record) return state;
    for (;;) {
        auto& [scanned, openFrom, firstEnd, firstEndSize] = scan_;
        const char* const begin = buffer_.data() + begin_;
        const void* const found = begin_ + scanned < end_
                                      ? std::memchr(begin + scanned, '\n', end_ - begin_ - scanned)
                                      : nullptr;
        if (found == nullptr) {
            scanned = end_ - begin_;
            if (!isAtEnd_) {
                // What follows may be a line end of two bytes.
                if (scanned - openFrom > maxRecord_ + std::min<std::size_t>(1, ~maxRecord_)) {
                    return failForSize();
                }
                if (state = fill(); state != State::Record) return state;
                continue;
            }
            if (begin_ == end_) return State::End;
        }
        std::size_t size = end_ - begin_;
        std::size_t endSize = 0;
        const char* const start = buffer_.data() + begin_;
        if (found != nullptr) {
            size = static_cast<std::size_t>(static_cast<const char*>(found) - start);
            endSize = 1;
            if (size != 0 && start[size - 1] == '\r') {
                --size;
                ++endSize;
            }
        }
        if (openFrom == 0) {
            firstEnd = size + endSize;
            firstEndSize = endSize;
        }
        line_ = nextLine_;
        text_ = std::string_view(start, size);
        lineEnd_ = std::string_view(start + size, endSize);
        const bool isQuoted =
            layout_.isQuoted && !layout_.isWhole && size != 0 && (openFrom != 0 || hasQuote(size));
        if (isQuoted && goesOn(state)) {
            scanned = openFrom = size + endSize;
            continue;
        }
        if (text_.size() > maxRecord_) return failForSize();
        begin_ += text_.size() + lineEnd_.size();
        offset_ = nextOffset_;
        nextOffset_ += static_cast<std::int64_t>(text_.size() + lineEnd_.size());
        ++nextLine_;
        if (openFrom != 0) nextLine_ += std::count(text_.begin(), text_.end(), '\n');
        scan_ = {};
        if (!isQuoted && begin_ >= lines_) findLines();  // else the next one may be, too
        return state;
    }
}

}  // namespace Records
