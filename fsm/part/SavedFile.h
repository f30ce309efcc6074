#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "fnd/String.h"

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

    /// What was written; aligned to 16 bytes, and there as long as this object.
    std::string_view content() const;

private:
    void* memory_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace FSM
