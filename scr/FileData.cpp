#include "scr/FileData.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "scr/Memory.h"
#include "scr/RunControl.h"
#include "scr/Variable.h"

namespace SCR {

bool FileData::open(const FND::String& name, const FND::String& mode, const RunControl* control,
                    const FileAccess* files) {
    return variable_->open(name, mode, control, files);
}

void FileData::close() { variable_->close(); }

bool FileData::isOpen() const { return variable_->stream() != nullptr; }

bool FileData::writeString(const FND::String& text) {
    return isOpen() && std::fwrite(text.data(), text.size(), 1, variable_->stream()) == 1;
}

bool FileData::readLine(StringDataNode* target, unsigned long maxLength) {
    const FND::String* const line = nextLine(maxLength);
    return line != nullptr && target->set(*line);
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
    bool isCut = false;  // by a NUL: what follows it in the line is read and dropped
    bool goesOn = true;
    RunControl* const control = RunControl::current();
    for (unsigned pieces = 1; goesOn && maxLength > 0; ++pieces) {
        if (control != nullptr && pieces % askInterval == 0) control->ask(nullptr);
        const std::size_t wanted = std::min<unsigned long>(maxLength, pieceLength);
        // Overwritten only by the NUL that ends a full piece, whatever bytes the piece holds.
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
    return isRead ? &line_ : nullptr;
}

bool FileData::eof() const { return !isOpen() || std::feof(variable_->stream()) != 0; }

bool FileData::flush() { return isOpen() && std::fflush(variable_->stream()) == 0; }

std::int64_t FileData::tell() const { return isOpen() ? ftello(variable_->stream()) : -1; }

bool FileData::seek(long offset) {
    return offset >= 0 && isOpen() && fseeko(variable_->stream(), offset, SEEK_SET) == 0;
}

}  // namespace SCR
