#include "scr/Variable.h"

#include <cerrno>
#include <new>

#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include "scr/FileAccess.h"
#include "scr/WaitingFile.h"

namespace SCR {

namespace {

// Larger than the C library's own buffers: reading lines takes a sixth less time.
constexpr std::size_t bufferSizeS = 32 * 1024;

// The mode to open with, so that the C library looks at all of it and does no more than that: it
// would also take conversions of characters, and maps that end the process as a file shrinks.
bool makeMode(const FND::String& mode, FND::String& checked) {
    constexpr std::size_t longest = 6;
    const FND::String given = mode.c_str();
    if (given.empty() || given.size() > longest) return false;
    if (given.find_first_of("rwa") != 0) return false;
    if (given.find_first_not_of("+btxce", 1) != FND::String::npos) return false;
    checked = given;
    checked.insert(1, 1, 'e');
    return true;
}

std::FILE* openStream(const FileAccess& files, const FND::String& name, const char* mode) {
    const int handle = files.open(name, WaitingFile::flagsOf(mode));
    if (handle < 0) return nullptr;
    std::FILE* const stream = fdopen(handle, mode);
    if (stream == nullptr) ::close(handle);
    return stream;
}

}  // namespace

Variable::~Variable() = default;

Variable* AdtVariable::clone() const { return new AdtVariable(*this); }

FileVariable::~FileVariable() { close(); }

Variable* FileVariable::clone() const { return new FileVariable; }

bool FileVariable::open(const FND::String& name, const FND::String& mode, const RunControl* control,
                        const FileAccess* files) {
    if (files == nullptr) files = FileAccess::any().get();
    close();
    errno = 0;
    FND::String checked;
    if (!makeMode(mode, checked)) {
        errno = EINVAL;
        return false;
    }
    struct stat status {};
    const bool mayWait =
        files->status(name, status) && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode));
    errno = 0;
    if (mayWait) {
        stream_ = WaitingFile::openStream(*files, name, checked.c_str(), control);
    } else if (files->isAny()) {
        stream_ = std::fopen(name.c_str(), checked.c_str());
    } else {
        stream_ = openStream(*files, name, checked.c_str());
    }
    if (stream_ == nullptr) return false;
    // Only this variable uses the stream.
    __fsetlocking(stream_, FSETLOCKING_BYCALLER);
    if (!mayWait) {
        if (!buffer_) buffer_.reset(new (std::nothrow) char[bufferSizeS]);
        if (buffer_) std::setvbuf(stream_, buffer_.get(), _IOFBF, bufferSizeS);
    }
    return true;
}

void FileVariable::close() {
    if (stream_ == nullptr) return;
    std::fclose(stream_);
    stream_ = nullptr;
}

}  // namespace SCR
