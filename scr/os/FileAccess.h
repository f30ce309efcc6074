#pragma once

#include <atomic>
#include <memory>
#include <string_view>
#include <vector>

#include <sys/stat.h>

#include "fnd/Export.h"
#include "fnd/String.h"

namespace SCR {

struct Capabilities;

/// The files that a script may use, and the only way to them: every file that a script names is
/// opened, renamed and deleted here. A script may use either all that the process may use, or the
/// files below the directories granted.
///
/// All symbolic links are followed before it is decided where a file lies, and the directories on
/// the way are held open meanwhile: nobody can lead a script out by renaming or linking files at
/// the same time. A directory granted stays the one that it was when this object was made, even if
/// its name later stands for another. Devices and the file systems in which the kernel shows itself
/// (/proc, /sys and /dev, wherever they are mounted) do not count as lying below a directory
/// outside of them; only the devices null and full do.
///
/// Immutable: any number of threads may use one. Failures set errno, EACCES for a file that is not
/// granted. Throws nothing but std::bad_alloc.
class KESTREL_API FileAccess {
public:
    struct Grant {
        FND::String directory;
        bool mayWrite;
    };

    /// Allows all files that the process may use.
    static const std::shared_ptr<const FileAccess>& any();
    /// Allows the files below the directories of `grants`. One that cannot be opened grants
    /// nothing, and `error` names it.
    static std::shared_ptr<const FileAccess> below(const std::vector<Grant>& grants,
                                                   FND::String& error);
    /// The files that scripts' file functions may use, and those that include lines may use.
    static std::shared_ptr<const FileAccess> ofFiles(const Capabilities& capabilities,
                                                     FND::String& error);
    static std::shared_ptr<const FileAccess> ofIncludes(const Capabilities& capabilities,
                                                        FND::String& error);

    FileAccess(const FileAccess&) = delete;
    FileAccess& operator=(const FileAccess&) = delete;
    ~FileAccess();

    /// Whether all files that the process may use are allowed.
    bool isAny() const { return isAny_; }
    /// Whether it is restricted to some directories.
    bool isByDirectories() const;

    /// Like the system calls of these names. Unless all is granted, opening neither waits nor makes
    /// a terminal the process's, and programs that the process starts do not inherit the file.
    int open(const FND::String& path, int flags) const;
    bool status(const FND::String& path, struct stat& status) const;
    bool unlink(const FND::String& path) const;
    bool makeFolder(const FND::String& path) const;
    /// Removes an empty folder.
    bool removeFolder(const FND::String& path) const;
    bool rename(const FND::String& from, const FND::String& to) const;

    /// Whether the kernel itself can follow paths below a directory. If not, and for paths that
    /// lead through several directories granted, this class follows them name by name. Found out at
    /// the first use.
    static std::atomic<bool> hasOpenat2CM;

private:
    class Walk;
    struct Root;
    struct Place;
    enum class Reach { Found, Failed, Unknown };

    FileAccess();

    // Finds where `path` leads. If `follows`, the last name is then no symbolic link.
    bool find(const FND::String& path, unsigned rights, bool follows, Place& place) const;
    // The same, done by the kernel, for paths whose text lies below one directory.
    Reach reach(std::string_view path, unsigned rights, bool follows, Place& place) const;

    bool isAny_ = false;
    std::vector<Root> roots_;                 // the directories granted
    std::vector<struct stat> systemFolders_;  // those in which the kernel shows itself
};

}  // namespace SCR
