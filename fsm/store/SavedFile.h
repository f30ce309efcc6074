#pragma once

#include <cstddef>
#include <memory>
#include <new>
#include <string>
#include <string_view>

#include "fnd/String.h"
#include "fsm/store/Archive.h"

namespace FSM {

/// A file of automata: a header with a version and a checksum, then what an `Archive` wrote.
class SavedFile {
public:
    SavedFile() = default;
    ~SavedFile();
    SavedFile(const SavedFile&) = delete;
    SavedFile& operator=(const SavedFile&) = delete;

    /// Writes `content` to `path`, by a file beside it that is renamed when it is complete. `kind`
    /// tells what the content is. Gives the error, "" if there is none.
    static FND::String write(const FND::String& path, std::string_view content, char kind);
    /// Maps the file at `path` and checks header and sum. Gives the error, "" if there is none.
    FND::String map(const FND::String& path, char kind);

    /// Writes what `write(archive)` puts into an archive. Gives the error, "" if there is none.
    template <class Write>
    static FND::String save(const FND::String& path, char kind, Write write) {
        try {
            std::string content;
            Archive archive(content);
            write(archive);
            return SavedFile::write(path, content, kind);
        } catch (const std::bad_alloc&) {
            return "no memory available for saving";
        }
    }
    /// Maps a file, which `read(archive)` takes all from; false if it is not sound. Gives the
    /// error,
    /// "" if there is none.
    template <class Read>
    static FND::String load(const FND::String& path, char kind, std::unique_ptr<SavedFile>& file,
                            Read read) {
        try {
            file = std::make_unique<SavedFile>();
            const FND::String error = file->map(path, kind);
            if (!error.empty()) return error;
            Archive archive(file->content());
            return read(archive) && archive.isAtEnd() ? "" : path + ": damaged";
        } catch (const std::bad_alloc&) {
            return "no memory available for loading";
        }
    }

    /// What was written; aligned to 16 bytes, and there as long as this object.
    std::string_view content() const;

private:
    void* memory_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace FSM
