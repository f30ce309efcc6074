#pragma once

#include <cstddef>
#include <cstdio>

#include <sys/stat.h>
#include <sys/types.h>

#include "fnd/String.h"

namespace SCR {

class FileAccess;
class RunControl;

/// An open file, closed at the end of its scope. Where the file keeps its user waiting, as a pipe
/// or a terminal does, an operation fails with EINTR once the script has to stop. Failures set
/// errno.
class WaitingFile {
public:
    /// `control` is that of the script that waits; not owned, outlives this object. After the
    /// script has ended, as its variables go, five seconds are granted, and none if it was stopped.
    /// Null grants waits without end.
    explicit WaitingFile(const RunControl* control) : control_(control) {}
    WaitingFile(const WaitingFile&) = delete;
    WaitingFile& operator=(const WaitingFile&) = delete;
    ~WaitingFile() { close(); }

    /// A C stream on the file `name` of `files`, opened with the C stream mode `mode`, whose
    /// operations wait as those of this class do; null on failure. Closing the stream frees all
    /// there is.
    static std::FILE* openStream(const FileAccess& files, const FND::String& name, const char* mode,
                                 const RunControl* control);
    /// The flags of the system's call that a C stream mode stands for.
    static int flagsOf(const char* mode);

    /// Opens `name` of `files` with the flags of the system's call, once. A named pipe without a
    /// writer is opened for reading at once, as reading waits; one without a reader is waited for.
    bool open(const FileAccess& files, const FND::String& name, int flags);
    /// Reads at most `size` bytes; 0 at the end of the file, -1 on failure.
    ssize_t read(char* buffer, std::size_t size) const;
    /// Writes `size` bytes; true when all were written. A pipe without a reader is a failure.
    bool write(const char* bytes, std::size_t size) const;
    /// Closes the file if it is open; false when that says that something was not written.
    bool close();

    bool isOpen() const { return handle_ >= 0; }
    int handle() const { return handle_; }
    /// What the system says of the file as it was opened.
    const struct stat& status() const { return status_; }

private:
    bool waitFor(short events) const;
    bool mayWait(int& steps) const;

    const RunControl* const control_;
    int handle_ = -1;
    struct stat status_ {};
};

}  // namespace SCR
