#pragma once

#include <cstddef>
#include <memory>
#include <set>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/Status.h"
#include "fnd/String.h"

namespace SCR {

class FileAccess;
class Log;
struct Capabilities;

/// One file on its way through the preprocessor, read line by line. Lines are separated by line
/// feeds: a text with n line feeds has n + 1 lines. So a text that ends in a line feed has an empty
/// last line, and so has the empty text.
class KESTREL_API PreProFileData {
public:
    /// `name` is the include name as written, empty for the main text. A `content` in the scrambled
    /// form is converted to its plain text first; any other is used without the byte order mark
    /// that may precede it.
    PreProFileData(FND::String name, FND::String content);
    /// The main text, which is not copied and must outlive this object if it is not scrambled.
    static PreProFileData mainText(const FND::String& content);

    /// The name given to the constructor.
    const FND::String& name() const { return name_; }

    /// Whether `lines`, which were handed out, are the whole of a text that was not copied.
    bool isBorrowed(std::string_view lines) const {
        return borrowed_ != nullptr && lines.size() == borrowed_->size();
    }

    /// The number of bytes of the plain text.
    std::size_t size() const { return text().size(); }

    /// The number of lines that have been handed out: the 0-based index of the next one.
    unsigned lineIndex();

    /// Stores the next line, without its line feed, in `line`. False, with `line` unchanged, when
    /// no line is left.
    bool nextLine(FND::String& line);

    /// Hands out all lines before the next include line, or before the end, at once: `lines` shows
    /// them in this object's text, with the line feeds between them but without the one after the
    /// last. False when there are none.
    bool nextOrdinaryLines(std::string_view& lines);

private:
    PreProFileData() = default;

    std::string_view text() const { return borrowed_ != nullptr ? *borrowed_ : text_; }

    FND::String name_;
    FND::String text_;
    const FND::String* borrowed_ = nullptr;  // not owned; the text if it is set
    std::size_t next_ = 0;     // where the next line begins; past text_.size() when none is left
    std::size_t counted_ = 0;  // lines before this place are counted in lineIndex_
    unsigned lineIndex_ = 0;
};

/// A text with its include lines expanded, in three consecutive parts.
struct ExpandedText {
    FND::String head;
    std::string_view body;  ///< in `storage` or, when it has no include lines, the text given
    std::string_view tail;
    FND::String storage;
    bool wasScrambled = false;
};

/// What a host grants to the include lines of a script.
struct PreprocessorOptions {
    /// Directories that are searched, in this order, before those of KESTREL_INCLUDE.
    std::vector<FND::String> searchPath;
    /// Directories that are searched after those.
    std::vector<FND::String> lastSearchPath;
    /// The most bytes that the expanded text may have, 0 for no limit. Checked before memory is
    /// taken: the text of a file counts as soon as it is included. A scrambled file may take twice
    /// as much while it is read.
    std::size_t maxBytes = std::size_t{256} << 20;
    /// The most includes that may be nested, 0 for no limit.
    unsigned maxDepth = 200;
    /// False refuses every include line.
    bool includesAllowed = true;
    /// The files that may be included, null for any. Others are treated as if they did not exist.
    std::shared_ptr<const FileAccess> files;

    /// Sets the options to what `capabilities` grant. False when a directory cannot be opened,
    /// which grants nothing then.
    KESTREL_API bool allow(const Capabilities& capabilities);
};

/// Expands the include lines of a script into one text with "#line" lines, from which the lexer
/// knows the file and the line of what it reads. An include line matches `^[ \t]*include[ \t]*".*"[
/// \t]*;[ \t\r]*`; it is recognised anywhere, even in a comment, and replaced whole.
///
/// Every failure is one message in the log with severity 4 and without a line prefix. Thread rule:
/// one thread at a time. Only the constructors read the environment. Throws nothing except
/// `std::bad_alloc`, and leaves no file open then.
class KESTREL_API Preprocessor {
public:
    /// `log` receives the messages; it is not owned and must outlive the preprocessor. Include
    /// names are looked up in the directories of the environment variable KESTREL_INCLUDE, which
    /// are separated by ";" (an empty piece stands for the root directory); "." when it is not set.
    explicit Preprocessor(Log* log);

    /// As above, with `options`.
    Preprocessor(Log* log, PreprocessorOptions options);

    /// Stores `text` with its include lines expanded in `output`. `text` and every included file
    /// may be in the scrambled form. A line `#line 1 "name"` precedes each file (the main text has
    /// an empty name). A "#line" line with the number of its first line also precedes the rest of a
    /// file after each include line. Every line ends in a line feed then, even if it had none at
    /// the end of its file. False, with `output` unchanged, when an include failed or a limit was
    /// passed; the log says why. `text` and `output` may be the same object.
    bool preprocess(const FND::String& text, FND::String& output);

    /// Gives the same text in parts. A text without include lines is not copied and must outlive
    /// `output`.
    bool expand(const FND::String& text, ExpandedText& output);

    /// True when `line` (without line feed) is an include line; `name` is then the text between its
    /// first and its last double quote.
    bool isIncludeLine(std::string_view line, FND::String& name) const;

    /// Opens the file of an include line and makes it the innermost file. A `name` that begins with
    /// "/" is a path; any other name is looked up in the search path, and the first entry that
    /// contains it wins. Including a name again in the same run (compared as written) only causes a
    /// warning. False, with a message, when the file does not exist, is not a regular file, cannot
    /// be read, is not allowed or passes a limit.
    bool include(const FND::String& name);

    /// True when the last `preprocess` failed because of a limit of the options.
    bool limitExceeded() const { return limitExceeded_; }

private:
    bool push(PreProFileData file);
    bool appendLineMark(FND::String& output, unsigned line, const FND::String& name);
    bool charge(std::size_t bytes);
    bool failForSize();
    bool fail(const FND::String& message);
    // Logs a message about the include line that was handed out last. The notes tell where files
    // are looked for if they were.
    void report(const FND::String& message, FND::Status::Severity severity);

    Log* log_;  // not owned
    PreprocessorOptions options_;
    std::set<FND::String> includedNames_;
    std::vector<PreProFileData> fileStack_;  // the innermost file last
    std::size_t chargedBytes_ = 0;           // written text and text waiting in the file stack
    bool limitExceeded_ = false;
    FND::String line_;  // the include line being replaced
    bool hasSearched_ = false;
};

}  // namespace SCR
