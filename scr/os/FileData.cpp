#include "scr/os/FileData.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <string_view>

#include <stdio_ext.h>

#include "scr/Variable.h"
#include "scr/run/CountedWork.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/RunControl.h"

namespace SCR {

namespace {

// What a call counts at least: one in some hundreds calls the system.
constexpr std::size_t workOfCallS = 128;

}  // namespace

void FileData::note(ElementTrail& /*trail*/) {}

void FileData::follow(ElementTrail& /*trail*/) {}

bool FileData::open(const FND::String& name, const FND::String& mode, OpenFiles* openFiles,
                    const FileAccess* files) {
    return variable_ != nullptr && variable_->open(name, mode, openFiles, files);
}

void FileData::close() {
    if (variable_ != nullptr) variable_->close();
}

bool FileData::isOpen() const { return variable_ != nullptr && variable_->stream() != nullptr; }

bool FileData::writeString(const FND::String& text) {
    if (!isOpen()) return false;
    // Short texts as well add up to writes of the buffer.
    countWork(text.size() + workOfCallS);
    bool isWritten = false;
    inPieces(text.size(), [&](std::size_t begin, std::size_t end) {
        if (begin > 0 && !isWritten) return;
        isWritten = std::fwrite(text.data() + begin, end - begin, 1, variable_->stream()) == 1;
    });
    // A file that is not open for writing has not lost anything.
    if (!isWritten && !text.empty() && __fwritable(variable_->stream()) != 0) {
        variable_->noteFailure(errno);
    }
    return isWritten;
}

bool FileData::readLine(StringDataNode* target, unsigned long maxLength) {
    const FND::String* const line = nextLine(maxLength);
    return line != nullptr && target->set(*line);
}

std::string_view FileData::nextInBuffer([[maybe_unused]] unsigned long maxLength) {
#ifdef __GLIBC__
    if (!isOpen()) return {};
    // What the macro `getc_unlocked` of this library does, for many bytes at once.
    std::FILE* const stream = variable_->stream();
    const char* const begin = stream->_IO_read_ptr;
    const auto held = static_cast<std::size_t>(stream->_IO_read_end - begin);
    if (held == 0) return {};
    const void* const end = std::memchr(begin, '\n', std::min(held, maxLength));
    if (end == nullptr) return {};
    const auto size = static_cast<std::size_t>(static_cast<const char*>(end) + 1 - begin);
    if (std::memchr(begin, '\0', size) != nullptr) return {};
    stream->_IO_read_ptr += size;
    countWork(size + workOfCallS);
    return {begin, size};
#else
    return {};
#endif
}

const FND::String* FileData::nextLine(unsigned long maxLength) {
    constexpr std::size_t pieceLength = 4096;
    constexpr std::size_t keptLength = 64 * 1024;
    constexpr unsigned askInterval = 256;  // about every megabyte
    if (!isOpen()) return nullptr;
    line_.clear();
    if (line_.capacity() > keptLength) {
        giveBuffer(heapBytes(line_));
        FND::String().swap(line_);
    }
    char piece[pieceLength + 1];
    bool isRead = false;
    bool isCut = false;  // a NUL came: the rest of the line is read and dropped
    bool goesOn = true;
    RunControl* const control = RunControl::current();
    for (unsigned pieces = 1; goesOn && maxLength > 0; ++pieces) {
        if (control != nullptr && pieces % askInterval == 0) control->ask(nullptr);
        const std::size_t wanted = std::min<unsigned long>(maxLength, pieceLength);
        // Only the NUL that ends a full piece overwrites it, whatever bytes the piece holds.
        piece[wanted] = '?';
        if (std::fgets(piece, static_cast<int>(wanted + 1), variable_->stream()) == nullptr) break;
        isRead = true;
        goesOn = piece[wanted] == '\0' && piece[wanted - 1] != '\n';
        maxLength -= wanted;
        if (!isCut) {
            const std::size_t length = strnlen(piece, wanted);
            if (const std::size_t size = line_.size() + length; size > line_.capacity()) {
                chargeBuffer(growth(line_, size));
            }
            line_.append(piece, length);
            isCut = goesOn && length < wanted;
        }
    }
    countWork(line_.size() + workOfCallS);
    return isRead ? &line_ : nullptr;
}

bool FileData::eof() const { return !isOpen() || std::feof(variable_->stream()) != 0; }

bool FileData::flush() {
    if (!isOpen()) return false;
    if (std::fflush(variable_->stream()) == 0) return true;
    variable_->noteFailure(errno);
    return false;
}

std::int64_t FileData::tell() const { return isOpen() ? ftello(variable_->stream()) : -1; }

bool FileData::seek(long offset) {
    if (offset < 0 || !isOpen()) return false;
    // Moving would write out what is buffered, and could fail without saying what failed.
    if (__fpending(variable_->stream()) > 0 && !flush()) return false;
    return fseeko(variable_->stream(), offset, SEEK_SET) == 0;
}

}  // namespace SCR
