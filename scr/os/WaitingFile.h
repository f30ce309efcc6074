#pragma once

#include <cstddef>
#include <cstdio>

#include <sys/stat.h>
#include <sys/types.h>

#include "fnd/String.h"

namespace SCR {

class FileAccess;
class RunControl;

/// An open file, closed by the destructor. Where the file makes its user wait, as a pipe or a
/// terminal does, an operation fails with EINTR once the script has to stop. Failures set errno.
class WaitingFile {
public:
    /// `control` is that of the script that waits; not owned, must outlive this object. After the
    /// script has ended, while its variables are destroyed, waits may take five seconds, or no time
    /// if the script was stopped. Null allows waits without end.
    explicit WaitingFile(const RunControl* control) : control_(control) {}
    WaitingFile(const WaitingFile&) = delete;
    WaitingFile& operator=(const WaitingFile&) = delete;
    ~WaitingFile() { close(); }

    /// A C stream on the file `name` of `files`, opened with the C stream mode `mode`, whose
    /// operations wait like those of this class; null on failure. Closing the stream frees
    /// everything.
    static std::FILE* openStream(const FileAccess& files, const FND::String& name, const char* mode,
                                 const RunControl* control);
    /// The flags of the system's call that a C stream mode stands for.
    static int flagsOf(const char* mode);

    /// Opens `name` of `files` with the flags of the system's call, once. A named pipe is opened
    /// for reading without waiting for a writer, as reading waits; for writing it waits for a
    /// reader.
    bool open(const FileAccess& files, const FND::String& name, int flags);
    /// Reads at most `size` bytes; 0 at the end of the file, -1 on failure.
    ssize_t read(char* buffer, std::size_t size) const;
    /// Writes `size` bytes; true when all were written. A pipe without a reader is a failure.
    bool write(const char* bytes, std::size_t size) const;
    /// Closes the file if it is open; false when closing reports that something was not written.
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
