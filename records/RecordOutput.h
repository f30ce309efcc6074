#pragma once

#include <string>
#include <string_view>

namespace Records {

/// An output file that appears complete or not at all. It is written next to its final place, under
/// a hidden temporary name, ".NAME." and six letters, and `finish` renames it. It gets the
/// permissions of the file that it replaces. The temporary file is locked as long as its writer
/// lives. Links are followed. "-" is standard output; a device, a pipe or a file that is open, such
/// as /dev/stdout, is written directly. One thread at a time.
class RecordOutput {
public:
    RecordOutput() = default;
    RecordOutput(const RecordOutput&) = delete;
    RecordOutput& operator=(const RecordOutput&) = delete;
    /// Removes the file if it was not finished.
    ~RecordOutput();

    // The following give false on failure, with the reason in `error`.

    /// `isAlone`: removes leftovers for `path` first, and `finish` syncs the directory. Otherwise
    /// the caller does so for several files at once.
    bool open(const std::string& path, bool isAlone = true);
    /// Removes temporary files of `path` whose writers are gone.
    static void removeLeftovers(const std::string& path);
    /// The same for all files of a directory.
    static void removeAllLeftovers(const std::string& directory);
    /// Makes the names in the directory of `path` durable. False, with errno set, when that fails;
    /// a file system that cannot sync a directory is no failure.
    static bool syncDirectory(const std::string& path);
    /// The bytes of the next flush; append whole records.
    std::string& buffer() { return buffer_; }
    /// Writes out the buffer when it has grown large.
    bool settle() { return buffer_.size() < flushSizeCM || flush(); }
    /// Takes whole records; many records are written at once.
    bool write(std::string_view records);
    bool flush();
    /// After a flush: lets the system write the file to the disk, so that `finish` need not wait as
    /// long.
    void startSync();
    /// Flushes and, for a file, syncs it, renames it and, if it is alone, syncs the directory.
    bool finish();
    bool isOpen() const { return descriptor_ >= 0; }
    /// Whether the bytes written stay even if `finish` is not called.
    bool isDirect() const { return isOpen() && temporary_.empty(); }
    /// Whether the last failure was that nobody reads the output any more.
    bool isClosed() const { return isClosed_; }
    const std::string& error() const { return error_; }
    /// The errno of the last failure.
    int errorNumber() const { return errorNumber_; }

private:
    static constexpr std::size_t flushSizeCM = std::size_t{1} << 16;
    bool fail();
    bool openTemporary();
    bool writeOut(std::string_view text);
    bool writeTo(std::string_view text);

    int descriptor_ = -1;
    std::string path_;
    std::string target_;     // where the path leads
    std::string temporary_;  // empty when written directly
    std::string buffer_;
    std::string error_;
    int errorNumber_ = 0;
    bool isClosed_ = false;
    bool isAlone_ = true;
};

}  // namespace Records
