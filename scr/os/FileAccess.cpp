#include "scr/os/FileAccess.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <utility>

#include <fcntl.h>
#include <linux/magic.h>
#include <linux/openat2.h>
#include <sys/syscall.h>
#include <sys/sysmacros.h>
#include <sys/vfs.h>
#include <unistd.h>

#include "scr/Capabilities.h"

namespace SCR {

namespace {

constexpr unsigned readS = 1;
constexpr unsigned writeS = 2;

constexpr int directoryFlagsS = O_PATH | O_DIRECTORY | O_CLOEXEC;

// A handle of the system, closed by the destructor.
class Handle {
public:
    Handle() = default;
    explicit Handle(int number) : number_(number) {}
    Handle(Handle&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Handle& operator=(Handle&& other) noexcept {
        std::swap(number_, other.number_);
        return *this;
    }
    ~Handle() {
        const int error = errno;
        if (number_ >= 0) ::close(number_);
        errno = error;
    }

    bool isOpen() const { return number_ >= 0; }
    int number() const { return number_; }
    int release() { return std::exchange(number_, -1); }

private:
    int number_ = -1;
};

bool fail(int error) {
    errno = error;
    return false;
}

bool isSame(const struct stat& a, const struct stat& b) {
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino;
}

// Whether a file belongs to a file system in which the kernel shows itself.
bool isOfSystem(int handle) {
    constexpr std::array<unsigned long, 14> systemsS{
        PROC_SUPER_MAGIC,   SYSFS_MAGIC,         DEVPTS_SUPER_MAGIC, DEBUGFS_MAGIC,
        TRACEFS_MAGIC,      SECURITYFS_MAGIC,    SELINUX_MAGIC,      SMACK_MAGIC,
        CGROUP_SUPER_MAGIC, CGROUP2_SUPER_MAGIC, BPF_FS_MAGIC,       EFIVARFS_MAGIC,
        PSTOREFS_MAGIC,     BINFMTFS_MAGIC};
    struct statfs status {};
    // When in doubt, assumes the worse.
    return fstatfs(handle, &status) != 0 ||
           std::find(systemsS.begin(), systemsS.end(), static_cast<unsigned long>(status.f_type)) !=
               systemsS.end();
}

bool isDevice(const struct stat& status) {
    return S_ISCHR(status.st_mode) || S_ISBLK(status.st_mode);
}

// Harmless devices.
bool isNullOrFull(const struct stat& status) {
    constexpr unsigned memoryDevices = 1;
    return S_ISCHR(status.st_mode) && (status.st_rdev == makedev(memoryDevices, 3) ||
                                       status.st_rdev == makedev(memoryDevices, 7));
}

int openBeneath(int directory, const char* path) {
    open_how how{};
    how.flags = directoryFlagsS;
    how.resolve = RESOLVE_BENEATH | RESOLVE_NO_MAGICLINKS;
    return static_cast<int>(syscall(SYS_openat2, directory, path, &how, sizeof how));
}

// `path` as seen from the root; false when the working directory is not below it.
bool makeAbsolute(const FND::String& path, FND::String& text) {
    const std::size_t length = strnlen(path.c_str(), PATH_MAX);
    if (length == 0) return fail(ENOENT);
    if (length == PATH_MAX) return fail(ENAMETOOLONG);
    text.assign(path, 0, length);
    if (text.front() == '/') return true;
    std::array<char, PATH_MAX> folder;
    if (getcwd(folder.data(), folder.size()) == nullptr) return false;
    if (folder[0] != '/') return fail(ENOENT);
    text.insert(0, 1, '/').insert(0, folder.data());
    return true;
}

unsigned rightsFor(int flags) {
    if ((flags & O_PATH) != 0) return readS;
    const int mode = flags & O_ACCMODE;
    unsigned rights = mode != O_WRONLY ? readS : 0;
    if (mode != O_RDONLY || (flags & (O_CREAT | O_TRUNC)) != 0) rights |= writeS;
    return rights;
}

}  // namespace

std::atomic<bool> FileAccess::hasOpenat2CM{true};

struct FileAccess::Root {
    Handle handle;
    struct stat status;
    FND::String path;  // without links and without a final slash: "" for the root of all
    unsigned rights;
    bool isSystem;  // it lies in a file system in which the kernel shows itself
};

/// Where a path leads: a name in an open directory.
struct FileAccess::Place {
    bool mayUse(unsigned wanted) const { return (wanted & ~rights) == 0; }
    /// The same for a file that exists.
    bool mayUse(unsigned wanted, const struct stat& status) const {
        if (!isDevice(status)) return mayUse(wanted);
        return isNullOrFull(status) ? (wanted & ~deviceRights) == 0 : isSystem && mayUse(wanted);
    }

    Handle folder;
    FND::String name;
    bool isFolder = false;  // the path ends in a slash
    unsigned rights = 0;
    unsigned deviceRights = 0;  // to null and full
    bool isSystem = false;
};

/// Follows a path name by name.
class FileAccess::Walk {
public:
    explicit Walk(const FileAccess& access) : access_(access) {}

    bool find(FND::String path, bool follows, Place& place) {
        if (!restart()) return false;
        for (std::size_t at = 0;;) {
            at = std::min(path.find_first_not_of('/', at), path.size());
            const std::size_t end = std::min(path.find('/', at), path.size());
            const bool isLast = path.find_first_not_of('/', end) == FND::String::npos;
            const FND::String name = path.substr(at, end - at);
            at = end;
            if (name.empty() || name == "." || name == "..") {
                if (name == ".." && levels_.size() > 1) levels_.pop_back();
                if (!isLast) continue;
                return take(".", false, place);
            }
            FND::String target;
            const Step step = isLast ? look(name, follows, target) : enter(name, target);
            if (step == Step::Failed) return false;
            if (step == Step::Link) {
                // Links in which the kernel shows itself give a name that is not what they lead to.
                const Level& level = levels_.back();
                if (level.isSystem && level.rights == 0) return fail(EACCES);
                if (++links_ > mostLinksCM) return fail(ELOOP);
                if (target.empty()) return fail(ENOENT);
                if (target.front() == '/' && !restart()) return false;
                path.replace(0, end, target);
                at = 0;
            } else if (isLast) {
                return take(name, end < path.size(), place);
            }
        }
    }

private:
    static constexpr int mostLinksCM = 40;            // as the kernel's
    static constexpr std::size_t mostLevelsCM = 256;  // each has an open handle of the process

    enum class Step { Done, Link, Failed };
    struct Level {
        Handle handle;
        dev_t device = 0;
        unsigned rights = 0;
        unsigned deviceRights = 0;
        bool isSystem = false;
    };

    bool restart() {
        levels_.clear();
        return push(Handle(::open("/", directoryFlagsS)));
    }

    bool push(Handle handle) {
        struct stat status {};
        if (!handle.isOpen() || fstat(handle.number(), &status) != 0) return false;
        if (levels_.size() == mostLevelsCM) return fail(ENAMETOOLONG);
        Level level;
        bool isMounted = true;
        if (!levels_.empty()) {
            const Level& outer = levels_.back();
            level.rights = outer.rights;
            level.deviceRights = outer.deviceRights;
            level.isSystem = outer.isSystem;
            isMounted = status.st_dev != outer.device;
        }
        const auto isThis = [&](const struct stat& folder) { return isSame(folder, status); };
        const auto& folders = access_.systemFolders_;
        if (!level.isSystem && (std::any_of(folders.begin(), folders.end(), isThis) ||
                                (isMounted && isOfSystem(handle.number())))) {
            level.isSystem = true;
            level.rights = 0;
        }
        for (const Root& root : access_.roots_) {
            if (isThis(root.status)) level.rights |= root.rights;
        }
        level.deviceRights |= level.rights;
        level.device = status.st_dev;
        level.handle = std::move(handle);
        levels_.push_back(std::move(level));
        return true;
    }

    // Enters the directory `name`. A link is only read.
    Step enter(const FND::String& name, FND::String& target) {
        const int top = levels_.back().handle.number();
        Handle handle(openat(top, name.c_str(), directoryFlagsS | O_NOFOLLOW));
        if (!handle.isOpen()) {
            if (errno != ENOTDIR && errno != ELOOP) return Step::Failed;
            if (readLink(name, target)) return Step::Link;
            errno = ENOTDIR;
            return Step::Failed;
        }
        return push(std::move(handle)) ? Step::Done : Step::Failed;
    }

    // Reads the link that the last name of a path stands for, if it is one to be followed.
    Step look(const FND::String& name, bool follows, FND::String& target) {
        return follows && readLink(name, target) ? Step::Link : Step::Done;
    }

    bool readLink(const FND::String& name, FND::String& target) {
        std::array<char, PATH_MAX> text;
        const ssize_t length =
            readlinkat(levels_.back().handle.number(), name.c_str(), text.data(), text.size());
        if (length < 0) return false;
        target.assign(text.data(), static_cast<std::size_t>(length));
        return true;
    }

    bool take(FND::String name, bool isFolder, Place& place) {
        Level& level = levels_.back();
        place = {std::move(level.handle), std::move(name), isFolder, level.rights,
                 level.deviceRights,      level.isSystem};
        return true;
    }

    friend class FileAccess;

    const FileAccess& access_;
    std::vector<Level> levels_;  // from the root on
    int links_ = 0;
};

FileAccess::FileAccess() = default;
FileAccess::~FileAccess() = default;

const std::shared_ptr<const FileAccess>& FileAccess::any() {
    static const std::shared_ptr<const FileAccess> anyS = [] {
        std::shared_ptr<FileAccess> access(new FileAccess);
        access->isAny_ = true;
        return access;
    }();
    return anyS;
}

std::shared_ptr<const FileAccess> FileAccess::below(const std::vector<Grant>& grants,
                                                    FND::String& error) {
    std::shared_ptr<FileAccess> access(new FileAccess);
    for (const char* const folder : {"/proc", "/sys", "/dev"}) {
        struct stat status {};
        if (::stat(folder, &status) == 0) access->systemFolders_.push_back(status);
    }
    for (const Grant& grant : grants) {
        Root root{Handle(::open(grant.directory.c_str(), directoryFlagsS)),
                  {},
                  {},
                  readS | (grant.mayWrite ? writeS : 0),
                  false};
        const std::unique_ptr<char, decltype(&std::free)> path(
            realpath(grant.directory.c_str(), nullptr), std::free);
        Place place;
        if (!root.handle.isOpen() || fstat(root.handle.number(), &root.status) != 0 || !path ||
            !Walk(*access).find(FND::String(path.get()) + "/.", true, place)) {
            error = "can not open the directory `" + grant.directory + "': " + std::strerror(errno);
            continue;
        }
        root.isSystem = place.isSystem;
        if (FND::String(path.get()) != "/") root.path = path.get();
        access->roots_.push_back(std::move(root));
    }
    return access;
}

std::shared_ptr<const FileAccess> FileAccess::ofFiles(const Capabilities& capabilities,
                                                      FND::String& error) {
    if (capabilities.isAll()) return any();
    std::vector<Grant> grants;
    for (const FND::String& name : capabilities.fileDirectories) grants.push_back({name, true});
    for (const FND::String& name : capabilities.readOnlyDirectories)
        grants.push_back({name, false});
    if (grants.empty()) grants.push_back({"/", true});
    if (!capabilities.files) grants.clear();
    return below(grants, error);
}

std::shared_ptr<const FileAccess> FileAccess::ofIncludes(const Capabilities& capabilities,
                                                         FND::String& error) {
    if (capabilities.isAll()) return any();
    std::vector<Grant> grants;
    for (const FND::String& name : capabilities.includeDirectories) grants.push_back({name, false});
    if (grants.empty()) grants.push_back({"/", false});
    if (!capabilities.include) grants.clear();
    return below(grants, error);
}

bool FileAccess::isByDirectories() const {
    return !isAny_ && std::none_of(roots_.begin(), roots_.end(),
                                   [](const Root& root) { return root.path.empty(); });
}

FileAccess::Reach FileAccess::reach(std::string_view path, unsigned rights, bool follows,
                                    Place& place) const {
    if (!hasOpenat2CM.load(std::memory_order_relaxed)) return Reach::Unknown;
    const auto isBelow = [&](const Root& root) {
        return !root.path.empty() && (rights & ~root.rights) == 0 && path.starts_with(root.path) &&
               path.size() > root.path.size() && path[root.path.size()] == '/';
    };
    const auto root = std::find_if(roots_.begin(), roots_.end(), isBelow);
    if (root == roots_.end()) return Reach::Unknown;

    FND::String folder(path.substr(root->path.size() + 1));
    const std::size_t last = folder.find_last_not_of('/');
    const bool isFolder = last + 1 < folder.size();
    folder.resize(last + 1);
    folder.erase(0, std::min(folder.find_first_not_of('/'), folder.size()));
    const std::size_t slash = folder.rfind('/');
    FND::String name = folder.substr(slash + 1);
    if (name.empty() || name == "." || name == "..") return Reach::Unknown;
    folder = slash == FND::String::npos ? "." : folder.substr(0, slash);

    Handle handle(openBeneath(root->handle.number(), folder.c_str()));
    if (!handle.isOpen()) {
        if (errno == ENOSYS) hasOpenat2CM.store(false, std::memory_order_relaxed);
        // Only these errors mean that the path leads nowhere. A filter of system calls gives EPERM
        // for unknown calls; a link out of the directory may lead into another one granted.
        const bool isSure = errno == ENOENT || errno == ENOTDIR || errno == EACCES ||
                            errno == ENAMETOOLONG || errno == EMFILE || errno == ENFILE;
        return isSure ? Reach::Failed : Reach::Unknown;
    }
    struct stat status {};
    const bool isLink = follows &&
                        fstatat(handle.number(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0 &&
                        S_ISLNK(status.st_mode);
    if (isLink || (!root->isSystem && isOfSystem(handle.number()))) return Reach::Unknown;
    place = {std::move(handle), std::move(name), isFolder,
             root->rights,      root->rights,    root->isSystem};
    return Reach::Found;
}

bool FileAccess::find(const FND::String& path, unsigned rights, bool follows, Place& place) const {
    FND::String text;
    if (!makeAbsolute(path, text)) return false;
    const Reach reached = reach(text, rights, follows, place);
    if (reached != Reach::Unknown) return reached == Reach::Found;
    return Walk(*this).find(std::move(text), follows, place);
}

int FileAccess::open(const FND::String& path, int flags) const {
    constexpr mode_t mode = 0666;
    if (isAny_) return ::open(path.c_str(), flags, mode);
    const unsigned rights = rightsFor(flags);
    Place place;
    if (!find(path, rights, (flags & O_EXCL) == 0, place)) return -1;
    if (place.isFolder) {
        if ((flags & O_CREAT) != 0) {
            errno = EISDIR;
            return -1;
        }
        flags |= O_DIRECTORY;
    }
    // Looks at the file first, so that no device is opened in vain. The decision depends on the
    // file that was opened, and the file is not emptied before that.
    const int folder = place.folder.number();
    struct stat status {};
    const bool exists = fstatat(folder, place.name.c_str(), &status, AT_SYMLINK_NOFOLLOW) == 0;
    if (exists ? !place.mayUse(rights, status) : !place.mayUse(rights)) {
        errno = EACCES;
        return -1;
    }
    const int added = O_NOFOLLOW | O_CLOEXEC | O_NOCTTY | O_NONBLOCK;
    Handle file(openat(folder, place.name.c_str(), (flags & ~O_TRUNC) | added, mode));
    if (!file.isOpen() || fstat(file.number(), &status) != 0) return -1;
    const bool isLink = S_ISLNK(status.st_mode);  // made in the meantime
    const bool mayUse = place.mayUse(rights, status) &&
                        (place.isSystem || isNullOrFull(status) || !isOfSystem(file.number()));
    if (isLink || !mayUse) {
        errno = isLink ? ELOOP : EACCES;
        return -1;
    }
    if ((flags & O_TRUNC) != 0 && S_ISREG(status.st_mode) && ftruncate(file.number(), 0) != 0) {
        return -1;
    }
    return file.release();
}

bool FileAccess::status(const FND::String& path, struct stat& status) const {
    if (isAny_) return ::stat(path.c_str(), &status) == 0;
    const Handle file(open(path, O_PATH));
    return file.isOpen() && fstat(file.number(), &status) == 0;
}

bool FileAccess::unlink(const FND::String& path) const {
    if (isAny_) return ::unlink(path.c_str()) == 0;
    Place place;
    if (!find(path, writeS, false, place)) return false;
    if (!place.mayUse(writeS)) return fail(EACCES);
    if (place.isFolder) return fail(ENOTDIR);
    return unlinkat(place.folder.number(), place.name.c_str(), 0) == 0;
}

bool FileAccess::makeFolder(const FND::String& path) const {
    constexpr mode_t mode = 0777;
    if (isAny_) return mkdir(path.c_str(), mode) == 0;
    Place place;
    if (!find(path, writeS, false, place)) return false;
    if (!place.mayUse(writeS)) return fail(EACCES);
    return mkdirat(place.folder.number(), place.name.c_str(), mode) == 0;
}

bool FileAccess::removeFolder(const FND::String& path) const {
    if (isAny_) return rmdir(path.c_str()) == 0;
    Place place;
    if (!find(path, writeS, false, place)) return false;
    if (!place.mayUse(writeS)) return fail(EACCES);
    return unlinkat(place.folder.number(), place.name.c_str(), AT_REMOVEDIR) == 0;
}

bool FileAccess::rename(const FND::String& from, const FND::String& to) const {
    if (isAny_) return std::rename(from.c_str(), to.c_str()) == 0;
    Place source;
    Place target;
    if (!find(from, writeS, false, source) || !find(to, writeS, false, target)) return false;
    if (!source.mayUse(writeS) || !target.mayUse(writeS)) return fail(EACCES);
    for (Place* const place : {&source, &target}) {
        if (place->isFolder) place->name += '/';
    }
    return renameat(source.folder.number(), source.name.c_str(), target.folder.number(),
                    target.name.c_str()) == 0;
}

}  // namespace SCR
