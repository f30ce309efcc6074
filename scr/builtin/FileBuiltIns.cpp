#include <algorithm>
#include <charconv>
#include <cstdio>
#include <optional>
#include <string_view>

#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/BuiltInNode.h"
#include "scr/os/FileAccess.h"
#include "scr/os/FileCopy.h"
#include "scr/run/MemoryCharge.h"
#include "scr/run/RunControl.h"
#include "scr/value/Leaves.h"

namespace SCR {

namespace {

// Gives `isDone`. A failed operation may have waited in vain until the script had to stop; the
// script stops here then.
bool orStop(Interpreter& interpreter, const Node* place, bool isDone) {
    if (!isDone) interpreter.runControl().ask(place);
    return isDone;
}

// Gives what a call of the system gave, which may have taken as long as thousands of turns.
template <class Result>
Result thenAsk(Interpreter& interpreter, const Node* place, Result result) {
    interpreter.runControl().ask(place);
    return result;
}

// A function that takes the names of files. It may use the files that the script was allowed to use
// when it was compiled.
template <class Derived, class Signature>
class NamedFileFunction : public BuiltInNode<Derived, Signature> {
public:
    static Node* factory(Interpreter& interpreter, ParserStack& stack,
                         const FctDescr& /*descriptor*/) {
        auto node = NamedFileFunction::build(interpreter, stack);
        node->files_ = interpreter.files();
        return node.release();
    }

protected:
    const FileAccess& files() const { return *files_; }

private:
    std::shared_ptr<const FileAccess> files_;
};

struct FileOpen final : NamedFileFunction<FileOpen, BoolType(FileType, StringType, StringType)> {
    bool value(Interpreter& interpreter, FileData& file, const FND::String& name,
               const FND::String& mode) {
        return thenAsk(interpreter, this,
                       file.open(name, mode, &interpreter.openFiles(), &files()));
    }
};

struct FileClose final : BuiltInNode<FileClose, VoidType(FileType)> {
    void value(Interpreter& interpreter, FileData& file) {
        file.close();
        interpreter.runControl().ask(this);
    }
};

struct FileWriteString final : BuiltInNode<FileWriteString, BoolType(FileType, StringType)> {
    bool value(Interpreter& interpreter, FileData& file, const FND::String& text) {
        return orStop(interpreter, this, file.writeString(text));
    }
};

class FileWriteLong final
    : public BuiltInNode<FileWriteLong, BoolType(FileType, LongType, Optional<LongType>,
                                                 Optional<BoolType>, Optional<StringType>)> {
public:
    bool value(Interpreter& interpreter, FileData& file, long number, std::optional<long> width,
               std::optional<bool> left, const FND::String* fill) {
        char bytes[24];
        const std::string_view digits(
            bytes, static_cast<std::size_t>(std::to_chars(bytes, bytes + sizeof bytes, number).ptr -
                                            bytes));
        const long rest = std::max<long>(width.value_or(0), 0) - static_cast<long>(digits.size());
        const bool isFilled = left && fill != nullptr && !fill->empty();
        const char filling = isFilled ? fill->front() : ' ';
        const bool isLeft = left.value_or(false);
        if (rest > longestPaddingCM) {
            return isLeft
                       ? write(interpreter, file, digits) && pad(interpreter, file, filling, rest)
                       : pad(interpreter, file, filling, rest) && write(interpreter, file, digits);
        }
        text_ = digits;
        if (rest > 0) {
            text_.insert(isLeft ? text_.size() : 0, static_cast<std::size_t>(rest), filling);
        }
        return orStop(interpreter, this, file.writeString(text_));
    }

private:
    static constexpr long longestPaddingCM = 4096;

    bool write(Interpreter& interpreter, FileData& file, std::string_view text) {
        text_ = text;
        return orStop(interpreter, this, file.writeString(text_));
    }

    // In pieces: `count` may be any number.
    bool pad(Interpreter& interpreter, FileData& file, char filling, long count) {
        while (count > 0) {
            const long length = std::min(count, longestPaddingCM);
            text_.assign(static_cast<std::size_t>(length), filling);
            const bool isWritten = file.writeString(text_);
            interpreter.runControl().ask(this);
            if (!isWritten) return false;
            count -= length;
        }
        return true;
    }

    FND::String text_;  // the last one written; keeps its memory
};

struct FileReadLine final
    : BuiltInNode<FileReadLine, BoolType(FileType, Out<StringType>, LongType)> {
    bool value(Interpreter& interpreter, FileData& file, StringDataNode& out, long maxLength) {
        if (maxLength <= 0) return false;
        // One byte more than allowed shows that a line is too long.
        const long granted = interpreter.limits().string;
        if (maxLength > granted) maxLength = granted + 1;
        const auto most = static_cast<unsigned long>(maxLength);
        if (StringVariable* const variable = variableOf<StringType>(out)) {
            const std::string_view line = file.nextInBuffer(most);
            if (!line.empty()) {
                interpreter.runControl().checkString(this, line.size());
                chargeGrowth(variable->value(), line.size());
                variable->value().assign(line);
                return true;
            }
        }
        const FND::String* const line = file.nextLine(most);
        if (!orStop(interpreter, this, line != nullptr)) return false;
        interpreter.runControl().checkString(this, line->size());
        return out.set(*line);
    }
};

struct FileEof final : BuiltInNode<FileEof, BoolType(FileType)> {
    static bool value(Interpreter& /*interpreter*/, FileData& file) {
        return file.isOpen() && file.eof();
    }
};

struct FileIsOpen final : BuiltInNode<FileIsOpen, BoolType(FileType)> {
    static bool value(Interpreter& /*interpreter*/, FileData& file) { return file.isOpen(); }
};

struct FileDelete final : NamedFileFunction<FileDelete, BoolType(StringType)> {
    bool value(Interpreter& interpreter, const FND::String& name) const {
        return thenAsk(interpreter, this, files().unlink(name));
    }
};

struct FileFlush final : BuiltInNode<FileFlush, BoolType(FileType)> {
    bool value(Interpreter& interpreter, FileData& file) {
        return thenAsk(interpreter, this, file.flush());
    }
};

struct FileRename final : NamedFileFunction<FileRename, BoolType(StringType, StringType)> {
    bool value(Interpreter& interpreter, const FND::String& from, const FND::String& to) const {
        return thenAsk(interpreter, this, files().rename(from, to));
    }
};

struct FileCopy final : NamedFileFunction<FileCopy, BoolType(StringType, StringType)> {
    bool value(Interpreter& interpreter, const FND::String& source, const FND::String& target) {
        return thenAsk(interpreter, this,
                       copyFile(files(), source, target, interpreter.runControl()));
    }
};

struct FileTell final : BuiltInNode<FileTell, LongType(FileType)> {
    long value(Interpreter& interpreter, FileData& file) {
        return thenAsk(interpreter, this, file.tell());
    }
};

struct FileSeek final : BuiltInNode<FileSeek, BoolType(FileType, LongType)> {
    bool value(Interpreter& interpreter, FileData& file, long position) {
        return thenAsk(interpreter, this, file.seek(position));
    }
};

constexpr BuiltIn fileBuiltInsS[] = {
    {.number = 96,
     .signature = "Bool fileOpen(File file, String name, String mode)",
     .factory = FileOpen::factory,
     .effects = Effect::ReadsFiles | Effect::WritesFiles,
     .facts = {.replaces = 0},
     .manual =
         "Closes `file` if it is open, then opens the file `name`; true when that succeeds. "
         "`mode` is \"r\" to read, \"w\" to write a new or emptied file, \"a\" to append, \"r+\" "
         "to read and write, or any other mode that C's fopen takes; it converts no bytes and "
         "maps no file whatever the mode says. A file stays open until it is closed, the script's "
         "variable goes, its element of a container is removed, or the host ends the script. Both "
         "texts end at their first NUL. A named pipe is waited for: as it is opened for writing "
         "until it is opened for reading, and as it is read. False also when the process can have "
         "no more files open. An open file counts as 34 KiB of memory.",
     .example = R"(File f; fileOpen(f, "lines.txt", "w") and fileWriteStr(f, "one\n"))"},
    {.number = 97,
     .signature = "Void fileClose(File file)",
     .factory = FileClose::factory,
     .effects = Effect::WritesFiles,
     .manual =
         "Writes out what is buffered and closes `file`; does nothing when it is not open. When "
         "not everything written to it arrived, the host learns of it, and the command ends with "
         "status 74.",
     .example = "File f; fileClose(f); fileIsOpen(f) == false"},
    {.number = 98,
     .signature = "Bool fileWriteStr(File file, String text)",
     .factory = FileWriteString::factory,
     .effects = Effect::WritesFiles,
     .manual =
         "Writes the bytes of `text`. True when they were taken; a failure may also show later, "
         "at a further write or at `fileFlush`, or to the host as the file is closed. False when "
         "`text` is empty and when `file` is not open for writing.",
     .example = R"(File f; fileOpen(f, "a.txt", "w"); fileWriteStr(f, "") == false)"},
    {.number = 99,
     .signature =
         "Bool fileWriteLong(File file, Long number, [Long width, Bool left, String fill])",
     .factory = FileWriteLong::factory,
     .effects = Effect::WritesFiles,
     .manual =
         "Writes `number` in decimal, as `fileWriteStr` does. Filled up to `width` bytes: with "
         "blanks before it, or when `left` is given with the first byte of `fill` (a blank when "
         "`fill` is empty or left out), after the number if `left` is true and before it if it is "
         "false. A number that is longer than `width` is written in full.",
     .example = R"(File f; fileOpen(f, "a.txt", "w+"); fileWriteLong(f, 42, 5, false, "0");
fileSeek(f, 0); String s; fileReadLine(f, s, 80) and s == "00042")"},
    {.number = 100,
     .signature = "Bool fileReadLine(File file, out String line, Long max)",
     .factory = FileReadLine::factory,
     .effects = Effect::ReadsFiles,
     .manual =
         "Reads up to and including a line end, but at most `max` bytes, into `line`: a longer "
         "line comes in pieces, by one call each. The line end stays in `line`; what follows a NUL "
         "in the line is dropped. False, with `line` as it was, at the end of the file, on an "
         "error, when `max` is 0 or negative and when `file` is not open.",
     .example = R"(File f; fileOpen(f, "a.txt", "w+"); fileWriteStr(f, "abcdef\n"); fileSeek(f, 0);
String s; fileReadLine(f, s, 3); fileReadLine(f, s, 80) and s == "def\n")"},
    {.number = 101,
     .signature = "Bool fileEof(File file)",
     .factory = FileEof::factory,
     .effects = Effect::ReadsFiles,
     .manual = "Whether a read has met the end of `file`; before that it is false even if nothing "
               "is left to read. False when `file` is not open.",
     .example = "File f; fileEof(f) == false"},
    {.number = 102,
     .signature = "Bool fileIsOpen(File file)",
     .factory = FileIsOpen::factory,
     .effects = Effect::ReadsFiles,
     .manual = "Whether `file` is open.",
     .example = "File f; fileIsOpen(f) == false"},
    {.number = 103,
     .signature = "Bool fileDelete(String name)",
     .factory = FileDelete::factory,
     .effects = Effect::WritesFiles,
     .manual = "Deletes the file `name`; true when that succeeds. A directory is not deleted.",
     .example = R"(fileDelete("no such file") == false)"},
    {.number = 104,
     .signature = "Bool fileFlush(File file)",
     .factory = FileFlush::factory,
     .effects = Effect::WritesFiles,
     .manual = "Writes out what is buffered; true when that succeeds, false also when `file` is "
               "not open.",
     .example = R"(File f; fileOpen(f, "a.txt", "w"); fileFlush(f))"},
    {.number = 105,
     .signature = "Bool fileRename(String from, String to)",
     .factory = FileRename::factory,
     .effects = Effect::WritesFiles,
     .manual = "Renames the file `from` to `to`, replacing a file of that name; true when that "
               "succeeds. Both must be on one file system.",
     .example = R"(fileRename("no such file", "a.txt") == false)"},
    {.number = 106,
     .signature = "Bool fileCopy(String source, String target)",
     .factory = FileCopy::factory,
     .effects = Effect::ReadsFiles | Effect::WritesFiles,
     .manual =
         "Copies the bytes of the file `source` to the file `target`, which is made, or emptied if "
         "it exists. False when `source` cannot be read, when `target` cannot be written wholly "
         "(what was written by then stays), and when both are one file, which is left alone.",
     .example = R"(File f; fileOpen(f, "a.txt", "w"); fileClose(f); fileCopy("a.txt", "b.txt"))"},
    {.number = 107,
     .signature = "Long fileTell(File file)",
     .factory = FileTell::factory,
     .effects = Effect::ReadsFiles,
     .manual = "The position in `file` in bytes from its start; -1 when it is not open or has no "
               "position, as a pipe.",
     .example = R"(File f; fileOpen(f, "a.txt", "w"); fileWriteStr(f, "abc"); fileTell(f) == 3)"},
    {.number = 108,
     .signature = "Bool fileSeek(File file, Long position)",
     .factory = FileSeek::factory,
     .effects = Effect::ReadsFiles | Effect::WritesFiles,
     .manual =
         "Moves to `position` bytes from the start of `file`; true when that succeeds. False, "
         "without moving, when `position` is negative and when `file` is not open.",
     .example = R"(File f; fileOpen(f, "a.txt", "w"); fileSeek(f, 10) and fileTell(f) == 10)"},
};

}  // namespace

std::span<const BuiltIn> fileBuiltIns() { return fileBuiltInsS; }

}  // namespace SCR
