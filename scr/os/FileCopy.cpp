#include "scr/os/FileCopy.h"

#include <memory>
#include <new>

#include <fcntl.h>
#include <unistd.h>

#include "scr/os/WaitingFile.h"
#include "scr/run/RunControl.h"

namespace SCR {

bool copyFile(const FileAccess& files, const FND::String& source, const FND::String& target,
              const RunControl& control) {
    constexpr std::size_t pieceSize = 128 * 1024;
    WaitingFile from(&control);
    if (!from.open(files, source, O_RDONLY) || S_ISDIR(from.status().st_mode)) return false;
    WaitingFile to(&control);
    if (!to.open(files, target, O_WRONLY | O_CREAT)) return false;
    if (from.status().st_dev == to.status().st_dev && from.status().st_ino == to.status().st_ino) {
        return false;
    }
    if (S_ISREG(to.status().st_mode) && ftruncate(to.handle(), 0) != 0) return false;

    const std::unique_ptr<char[]> piece(new (std::nothrow) char[pieceSize]);
    if (!piece) return false;
    ssize_t length = 0;
    while ((length = from.read(piece.get(), pieceSize)) > 0) {
        if (!to.write(piece.get(), static_cast<std::size_t>(length))) return false;
        if (control.mustStop()) return false;
    }
    return length == 0 && to.close();
}

}  // namespace SCR
