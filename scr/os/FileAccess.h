#pragma once

#include <atomic>
#include <memory>
#include <string_view>
#include <vector>

#include <sys/stat.h>

#include "fnd/String.h"

namespace SCR {

struct Capabilities;

/// The files that a script may use, and the only way to them: every file that a script names is
/// opened, renamed and deleted here. Either all that the process may use, or what lies below the
/// directories granted.
///
/// Where a file lies is decided once all symbolic links are followed, and by directories that are
/// held open meanwhile: nobody who renames or links files at the same time leads a script out.
/// Directories granted stay the ones that they were when this was made, whatever their names stand
/// for later. The file systems by which the kernel shows itself (/proc, /sys and /dev, wherever
/// they are mounted) and devices are not below a directory outside of them, but for the devices
/// null and full.
///
/// Immutable: any number of threads may use one. Failures set errno, EACCES for what is not
/// granted. Throws std::bad_alloc only.
class FileAccess {
public:
    struct Grant {
        FND::String directory;
        bool mayWrite;
    };

    /// All that the process may use.
    static const std::shared_ptr<const FileAccess>& any();
    /// What lies below the directories of `grants`. One that cannot be opened grants nothing, and
    /// `error` tells of it.
    static std::shared_ptr<const FileAccess> below(const std::vector<Grant>& grants,
                                                   FND::String& error);
    /// What the file functions of scripts may use, and what include lines may.
    static std::shared_ptr<const FileAccess> ofFiles(const Capabilities& capabilities,
                                                     FND::String& error);
    static std::shared_ptr<const FileAccess> ofIncludes(const Capabilities& capabilities,
                                                        FND::String& error);

    FileAccess(const FileAccess&) = delete;
    FileAccess& operator=(const FileAccess&) = delete;
    ~FileAccess();

    /// Whether it is all that the process may use.
    bool isAny() const { return isAny_; }
    /// Whether it is restricted to some directories.
    bool isByDirectories() const;

    /// As the system's calls of these names. Unless all is granted, opening neither waits nor makes
    /// a terminal the process's, and what is opened is not inherited.
    int open(const FND::String& path, int flags) const;
    bool status(const FND::String& path, struct stat& status) const;
    bool unlink(const FND::String& path) const;
    bool rename(const FND::String& from, const FND::String& to) const;

    /// Whether the kernel follows paths below a directory itself; else that is done here, name by
    /// name, as it is for paths that lead through several directories granted. Found out at the
    /// first use.
    static std::atomic<bool> hasOpenat2CM;

private:
    class Walk;
    struct Root;
    struct Place;
    enum class Reach { Found, Failed, Unknown };

    FileAccess();

    // Finds where `path` leads, so that its last name is that of no symbolic link, if `follows`.
    bool find(const FND::String& path, unsigned rights, bool follows, Place& place) const;
    // The same by the kernel, for the paths that lie below one directory by their text.
    Reach reach(std::string_view path, unsigned rights, bool follows, Place& place) const;

    bool isAny_ = false;
    std::vector<Root> roots_;                 // those granted
    std::vector<struct stat> systemFolders_;  // in which the kernel shows itself
};

}  // namespace SCR
