#include "scr/Variable.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <new>
#include <string_view>
#include <utility>

#include <iconv.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <unistd.h>

#include "scr/os/FileAccess.h"
#include "scr/os/OpenFiles.h"
#include "scr/os/WaitingFile.h"
#include "scr/run/MemoryCharge.h"

namespace SCR {

namespace {

// Larger than the C library's own buffers: reading lines takes a sixth less time this way.
constexpr std::size_t bufferSizeS = 32 * 1024;

// The memory of an open stream: its buffer and the C library's own part.
constexpr std::size_t streamBytesS = bufferSizeS + 2048;

// Whether the C library converts between `first` and `second`.
bool isConverted(const char* first, const char* second) {
    const iconv_t converter = iconv_open(first, second);
    // NOLINTNEXTLINE(performance-no-int-to-ptr): that is how a failure is told
    return converter != reinterpret_cast<iconv_t>(-1) && iconv_close(converter) == 0;
}

// Whether the C library knows the coding that a mode names after ",ccs=". To open a stream with it
// would tell as well, but leaks memory.
bool isKnownCoding(std::string_view coding) {
    coding = coding.substr(0, coding.find(','));
    while (coding.ends_with('/')) coding.remove_suffix(1);
    if (coding.empty() || coding.find('/') != std::string_view::npos) return false;
    const FND::String name(coding);
    return isConverted("WCHAR_T", name.c_str()) && isConverted(name.c_str(), "WCHAR_T");
}

std::FILE* openStream(const FileAccess& files, const FND::String& name, const char* mode) {
    const int handle = files.open(name, WaitingFile::flagsOf(mode));
    if (handle < 0) return nullptr;
    std::FILE* const stream = fdopen(handle, mode);
    if (stream == nullptr) ::close(handle);
    return stream;
}

// The shortest mode with the same meaning: one of "r", "w" and "a" and then "+", "x" and "e". Of
// the letters after the first the C library reads six and ignores those that mean nothing to it.
// Two features are left out: a stream with conversions takes no bytes, and a mapped file ends the
// process when it shrinks. False for a mode that the C library does not take.
bool readMode(const FND::String& mode, FND::String& read) {
    constexpr std::size_t most = 7;
    constexpr std::size_t longest = 1024;  // no name of a coding comes after this length
    const std::string_view given(mode.c_str(), strnlen(mode.c_str(), longest));
    if (given.empty() || std::string_view("rwa").find(given.front()) == std::string_view::npos) {
        return false;
    }
    const std::string_view letters = given.substr(1, most - 1);
    read = given.front();
    if (letters.find('+') != std::string_view::npos) read += '+';
    if (letters.find('x') != std::string_view::npos) read += 'x';
    read += 'e';
    constexpr std::string_view mark = ",ccs=";
    const std::size_t coding = given.find(mark, 1);
    return coding == std::string_view::npos || isKnownCoding(given.substr(coding + mark.size()));
}

}  // namespace

Variable::~Variable() = default;

Variable* AdtVariable::clone() const { return new AdtVariable(*this); }

FileVariable::~FileVariable() { close(); }

Variable* FileVariable::clone() const { return new FileVariable; }

std::size_t FileVariable::heapBytes() const { return streamBytesS + SCR::heapBytes(name_); }

bool FileVariable::open(const FND::String& name, const FND::String& mode, OpenFiles* openFiles,
                        const FileAccess* files) {
    if (files == nullptr) files = FileAccess::any().get();
    close();
    errno = 0;
    FND::String read;
    if (!readMode(mode, read)) {
        errno = EINVAL;
        return false;
    }
    if (strnlen(name.c_str(), PATH_MAX) == PATH_MAX) {
        errno = ENAMETOOLONG;
        return false;
    }
    struct stat status {};
    const bool mayWait =
        files->status(name, status) && (S_ISFIFO(status.st_mode) || S_ISCHR(status.st_mode));
    name_ = name.c_str();
    chargeMemory(heapBytes());
    if (!mayWait) buffer_.reset(new (std::nothrow) char[bufferSizeS]);
    errno = 0;
    if (mayWait) {
        const RunControl* const control = openFiles != nullptr ? &openFiles->control() : nullptr;
        stream_ = WaitingFile::openStream(*files, name, read.c_str(), control);
    } else if (files->isAny()) {
        stream_ = std::fopen(name.c_str(), read.c_str());
    } else {
        stream_ = openStream(*files, name, read.c_str());
    }
    if (stream_ == nullptr) {
        buffer_.reset();
        return false;
    }
    // Only this variable uses the stream.
    __fsetlocking(stream_, FSETLOCKING_BYCALLER);
    if (buffer_) std::setvbuf(stream_, buffer_.get(), _IOFBF, bufferSizeS);
    openFiles_ = openFiles;
    if (openFiles_ != nullptr) openFiles_->add(*this);
    return true;
}

void FileVariable::close() noexcept {
    if (stream_ == nullptr) return;
    if (std::fclose(stream_) != 0) noteFailure(errno);
    stream_ = nullptr;
    buffer_.reset();
    const int error = std::exchange(error_, 0);
    OpenFiles* const openFiles = std::exchange(openFiles_, nullptr);
    if (openFiles == nullptr) return;
    openFiles->remove(*this);
    if (error != 0) openFiles->failures().add(name_, error);
}

}  // namespace SCR
