#pragma once

#include <cstdint>
#include <string_view>

#include "fnd/Export.h"
#include "scr/Node.h"

namespace SCR {

class FileAccess;
class FileVariable;
class OpenFiles;
class ElementTrail;

/// Links a file function to the File variable that it works on; the variable is not owned. It has
/// no value. The node of a named variable is never executed.
class FileData : public Node {
public:
    explicit FileData(FileVariable* variable) : variable_(variable) {}

    /// Finds the variable that the operations work on until the next call. An element of a
    /// container may be gone before the node is. Does nothing for a named variable.
    void find() {
        if (isElement_) findElement();
    }
    /// The same in two steps, between which script code may run: evaluates indices and keys and
    /// adds them to `trail`, then finds the variable by them.
    virtual void note(ElementTrail& trail);
    virtual void follow(ElementTrail& trail);

    /// Closes the stream held, then opens `name` with the C stream mode `mode`; see
    /// `FileVariable::open`, also for `openFiles` and `files`. True when a stream is open now.
    /// errno is cleared first and tells the cause after a failure.
    bool open(const FND::String& name, const FND::String& mode, OpenFiles* openFiles = nullptr,
              const FileAccess* files = nullptr);
    /// Closes the stream if one is open.
    void close();
    bool isOpen() const;
    /// Writes the bytes of `text`; true only if all of them were written. False for an empty text
    /// and without a stream.
    bool writeString(const FND::String& text);
    /// Reads at most `maxLength` bytes up to and including a line end into `target`, up to the
    /// first NUL. False, with `target` unchanged, without a stream, when nothing can be read
    /// because of the end of the file or an error, and when `maxLength` is 0. Memory grows with the
    /// line, whatever `maxLength` is; a line as long as earlier ones needs none.
    bool readLine(StringDataNode* target, unsigned long maxLength);
    /// Like `readLine`, but gives the line, which is valid until the next one is read; null means
    /// false.
    const FND::String* nextLine(unsigned long maxLength);
    /// Like `nextLine` where all of the line was read from the system before; otherwise empty,
    /// which tells nothing. Valid until the file is used again.
    std::string_view nextInBuffer(unsigned long maxLength);
    /// True when no stream is held or its end-of-file indicator is set.
    bool eof() const;
    /// True when the stream was flushed; false without one.
    bool flush();
    /// The position in bytes from the start; -1 without a stream.
    std::int64_t tell() const;
    /// Moves to `offset` bytes from the start. False, without moving, when `offset` is negative,
    /// without a stream and on failure.
    bool seek(long offset);

protected:
    /// For elements of containers.
    FileData() : variable_(nullptr), isElement_(true) {}
    virtual void findElement() {}

    /// Null when there is no variable, such as an element that cannot be made; all operations then
    /// fail as on a closed file.
    FileVariable* variable_;

private:
    const bool isElement_ = false;
    FND::String line_;  // the last line; keeps its memory
};

}  // namespace SCR
