#include "scr/parser/Preprocessor.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <limits>
#include <string>
#include <utility>

#include "scr/Capabilities.h"
#include "scr/Log.h"
#include "scr/message/Codes.h"
#include "scr/os/FileAccess.h"
#include "scr/parser/Crypt.h"
#include "scr/run/CountedWork.h"

namespace SCR {
namespace {

constexpr std::string_view keywordS = "include";
// The approximate length of the first "#line" line.
constexpr std::size_t lineMarkS = 64;

// Bytes of work between two questions whether the script has to stop.
constexpr std::size_t stretchSizeS = 128 * 1024;

bool isSpaceOrTab(char c) { return c == ' ' || c == '\t'; }

std::size_t skipBlanks(std::string_view line, std::size_t position) {
    const std::size_t begin = position;
    while (position < line.size() && isSpaceOrTab(line[position])) {
        if ((++position - begin) % stretchSizeS == 0) countWork(stretchSizeS);
    }
    return position;
}

// Where the line that `position` is in ends.
std::size_t lineEnd(std::string_view text, std::size_t position) {
    for (; text.size() - position > stretchSizeS; position += stretchSizeS) {
        const std::size_t end = text.substr(position, stretchSizeS).find('\n');
        if (end != std::string_view::npos) return position + end;
        countWork(stretchSizeS);
    }
    return std::min(text.find('\n', position), text.size());
}

/// True when `line` is an include line; `name` then shows its name. The pattern asks for any double
/// quote with a ";" after it; nevertheless the name goes up to the last double quote.
bool matchIncludeLine(std::string_view line, std::string_view& name) {
    std::size_t position = skipBlanks(line, 0);
    if (!line.substr(position).starts_with(keywordS)) return false;
    position = skipBlanks(line, position + keywordS.size());
    if (position == line.size() || line[position] != '"') return false;
    const std::size_t begin = position + 1;
    std::size_t uncounted = 0;
    for (std::size_t quote = line.find('"', begin); quote != std::string_view::npos;
         quote = line.find('"', quote + 1)) {
        const std::size_t next = skipBlanks(line, quote + 1);
        uncounted += next - quote;
        if (isLarge(uncounted)) countWork(std::exchange(uncounted, 0));
        if (next < line.size() && line[next] == ';') {
            name = line.substr(begin, line.rfind('"') - begin);
            return true;
        }
    }
    return false;
}

std::vector<FND::String> split(std::string_view text, char separator) {
    std::vector<FND::String> pieces;
    for (;;) {
        const std::size_t end = text.find(separator);
        pieces.emplace_back(text.substr(0, end));
        if (end == std::string_view::npos) return pieces;
        text.remove_prefix(end + 1);
    }
}

/// An open file, closed by the destructor.
class FileDescriptor {
public:
    FileDescriptor(const FileAccess& files, const FND::String& path) {
        // The calls must not wait, whatever the path may have become since it was looked at.
        do {
            number_ = files.open(path, O_RDONLY | O_CLOEXEC | O_NOCTTY | O_NONBLOCK);
        } while (number_ < 0 && errno == EINTR);
    }
    FileDescriptor(const FileDescriptor&) = delete;
    FileDescriptor& operator=(const FileDescriptor&) = delete;
    ~FileDescriptor() {
        if (number_ >= 0) ::close(number_);
    }

    bool isRegularFile(std::size_t& size) const {
        struct stat status;
        if (number_ < 0 || ::fstat(number_, &status) != 0 || !S_ISREG(status.st_mode)) return false;
        size = static_cast<std::size_t>(status.st_size);
        return true;
    }

    /// The number of bytes read, 0 at the end of the file, -1 on failure.
    ssize_t read(char* to, std::size_t size) const {
        ssize_t got;
        do {
            got = ::read(number_, to, size);
        } while (got < 0 && errno == EINTR);
        return got;
    }

private:
    int number_;
};

enum class Reading { Absent, Failed, TooLarge, Done };

/// Reads the regular file at `path` into `content`, to its end, whatever its reported size is.
/// Anything else at `path` is a failure, and is not opened.
Reading readFile(const FileAccess& files, const FND::String& path, std::size_t maxBytes,
                 FND::String& content) {
    if (path.find('\0') != FND::String::npos) return Reading::Absent;
    struct stat status;
    if (!files.status(path, status)) return Reading::Absent;
    if (!S_ISREG(status.st_mode)) return Reading::Failed;
    const FileDescriptor file(files, path);
    std::size_t expected;
    if (!file.isRegularFile(expected)) return Reading::Failed;
    if (expected > maxBytes) return Reading::TooLarge;

    // Expects one more byte than reported, so that the end is seen without growing the buffer. A
    // huge reported size is not trusted.
    constexpr std::size_t firstReadS = std::size_t{16} << 20;
    content.resize(std::min(expected, firstReadS) + 1);
    std::size_t size = 0;
    for (;;) {
        if (size == content.size()) content.resize(2 * size);
        countWork(stretchSizeS);
        const std::size_t room = std::min(content.size() - size, stretchSizeS);
        const ssize_t got = file.read(content.data() + size, room);
        if (got < 0) return Reading::Failed;
        if (got == 0) break;
        size += static_cast<std::size_t>(got);
        if (size > maxBytes) return Reading::TooLarge;
    }
    content.resize(size);
    return Reading::Done;
}

}  // namespace

PreProFileData::PreProFileData(FND::String name, FND::String content) : name_(std::move(name)) {
    if (Crypt::decrypt(content, text_)) return;
    // Some editors put a byte order mark before a text.
    if (content.starts_with("\xEF\xBB\xBF")) content.erase(0, 3);
    text_ = std::move(content);
}

PreProFileData PreProFileData::mainText(const FND::String& content) {
    PreProFileData file;
    if (!Crypt::decrypt(content, file.text_)) file.borrowed_ = &content;
    return file;
}

unsigned PreProFileData::lineIndex() {
    if (counted_ < next_) {
        const std::string_view passed =
            text().substr(counted_, next_ - counted_);  // without the end
        lineIndex_ += static_cast<unsigned>(std::count(passed.begin(), passed.end(), '\n'));
        if (next_ > text().size()) ++lineIndex_;
        counted_ = next_;
    }
    return lineIndex_;
}

bool PreProFileData::nextLine(FND::String& line) {
    const std::string_view text = this->text();
    if (next_ > text.size()) return false;
    const std::size_t end = std::min(text.find('\n', next_), text.size());
    line = text.substr(next_, end - next_);
    next_ = end + 1;
    return true;
}

bool PreProFileData::nextOrdinaryLines(std::string_view& lines) {
    const std::string_view text = this->text();
    const std::size_t begin = next_;
    std::size_t uncounted = 0;
    while (next_ <= text.size()) {
        const std::size_t first = skipBlanks(text, next_);
        const bool isEmpty = first < text.size() && text[first] == '\n';
        const std::size_t end = isEmpty ? first : lineEnd(text, first);
        std::string_view name;
        if (first < end && text[first] == keywordS[0] &&
            matchIncludeLine(text.substr(first, end - first), name)) {
            break;
        }
        next_ = end + 1;
        uncounted += next_ - first;
        if (isLarge(uncounted)) countWork(std::exchange(uncounted, 0));
    }
    if (next_ == begin) return false;
    lines = text.substr(begin, next_ - 1 - begin);
    return true;
}

bool PreprocessorOptions::allow(const Capabilities& capabilities) {
    FND::String error;
    includesAllowed = capabilities.include;
    files = FileAccess::ofIncludes(capabilities, error);
    return error.empty();
}

Preprocessor::Preprocessor(Log* log) : Preprocessor(log, PreprocessorOptions()) {}

Preprocessor::Preprocessor(Log* log, PreprocessorOptions options)
    : log_(log), options_(std::move(options)) {
    const char* const directories = std::getenv("KESTREL_INCLUDE");
    for (FND::String& directory : split(directories ? directories : ".", ';')) {
        options_.searchPath.push_back(std::move(directory));
    }
    std::vector<FND::String>& path = options_.searchPath;
    for (const FND::String& directory : options_.lastSearchPath) {
        if (std::find(path.begin(), path.end(), directory) == path.end()) path.push_back(directory);
    }
}

bool Preprocessor::preprocess(const FND::String& text, FND::String& output) {
    ExpandedText expanded;
    if (!expand(text, expanded)) return false;
    if (expanded.head.empty()) {
        output = std::move(expanded.storage);
    } else {
        expanded.head.append(expanded.body).append(expanded.tail);
        output = std::move(expanded.head);
    }
    return true;
}

bool Preprocessor::expand(const FND::String& text, ExpandedText& output) {
    includedNames_.clear();
    line_.clear();
    hasSearched_ = false;
    fileStack_.clear();
    chargedBytes_ = 0;
    limitExceeded_ = false;

    FND::String expanded;
    if (!push(PreProFileData::mainText(text))) return false;
    while (!fileStack_.empty()) {
        PreProFileData& file = fileStack_.back();
        if (!appendLineMark(expanded, file.lineIndex() + 1, file.name())) return false;
        std::string_view lines;
        if (file.nextOrdinaryLines(lines)) {
            if (file.isBorrowed(lines)) {
                output = {std::move(expanded), lines, "\n", {}};
                fileStack_.clear();
                return true;
            }
            if (expanded.size() < lineMarkS) expanded.reserve(file.size() + lineMarkS);
            expanded += lines;
            expanded += '\n';
        }
        FND::String line;
        FND::String name;
        if (!file.nextLine(line)) {
            fileStack_.pop_back();
        } else if (isIncludeLine(line, name)) {
            chargedBytes_ -= line.size() + 1;
            line_ = line;
            if (!appendLineMark(expanded, 1, name) || !include(name)) return false;
            line_.clear();
        }
    }
    output = {{}, {}, {}, std::move(expanded)};
    output.body = output.storage;
    return true;
}

bool Preprocessor::isIncludeLine(std::string_view line, FND::String& name) const {
    std::string_view found;
    if (!matchIncludeLine(line, found)) return false;
    name = found;
    return true;
}

bool Preprocessor::include(const FND::String& name) {
    if (!options_.includesAllowed) return fail("include of `" + name + "' is not allowed");
    if (includedNames_.contains(name)) {
        report("`" + name + "' included more than once", FND::Status::Warning);
        return true;
    }
    if (options_.maxDepth != 0 && fileStack_.size() > options_.maxDepth) {
        limitExceeded_ = true;
        return fail("include file `" + name + "' exceeds the limit of " +
                    std::to_string(options_.maxDepth) + " nested includes");
    }

    // The scrambled form of as much text as there is still room for.
    std::size_t maxFileBytes = std::numeric_limits<std::size_t>::max();
    if (options_.maxBytes != 0) {
        const std::size_t room = options_.maxBytes - chargedBytes_;
        maxFileBytes = room < maxFileBytes / 4 ? 2 * room + room / 20 + 1024 : maxFileBytes;
    }
    const FileAccess& files = options_.files != nullptr ? *options_.files : *FileAccess::any();
    const auto read = [&](const FND::String& path, FND::String& content) {
        return readFile(files, path, maxFileBytes, content);
    };
    FND::String content;
    Reading reading = Reading::Absent;
    if (name.starts_with('/')) {
        reading = read(name, content);
    } else {
        for (const FND::String& directory : options_.searchPath) {
            FND::String path = directory;
            path.append("/").append(name);
            reading = read(path, content);
            if (reading != Reading::Absent) break;
        }
    }
    switch (reading) {
        case Reading::Absent:
            hasSearched_ = !name.starts_with('/');
            return fail(
                "failed to open include file `" + name + "'" +
                (files.isByDirectories() ? " in the directories allowed for includes" : ""));
        case Reading::Failed:
            return fail("error while reading `" + name + "'");
        case Reading::TooLarge:
            return failForSize();
        case Reading::Done:
            break;
    }
    includedNames_.insert(name);
    return push(PreProFileData(name, std::move(content)));
}

bool Preprocessor::push(PreProFileData file) {
    if (!charge(file.size() + 1)) return false;
    fileStack_.push_back(std::move(file));
    return true;
}

bool Preprocessor::appendLineMark(FND::String& output, unsigned line, const FND::String& name) {
    const FND::String number = std::to_string(line);
    constexpr std::string_view directive = "#line ";
    if (!charge(directive.size() + number.size() + name.size() + 4)) return false;
    output.append(directive).append(number).append(" \"").append(name).append("\"\n");
    return true;
}

bool Preprocessor::charge(std::size_t bytes) {
    if (options_.maxBytes != 0 && bytes > options_.maxBytes - chargedBytes_) return failForSize();
    chargedBytes_ += bytes;
    return true;
}

bool Preprocessor::failForSize() {
    limitExceeded_ = true;
    return fail("the script and its includes exceed the source limit of " +
                std::to_string(options_.maxBytes) + " bytes");
}

bool Preprocessor::fail(const FND::String& message) {
    report(message, FND::Status::Error);
    return false;
}

void Preprocessor::report(const FND::String& message, FND::Status::Severity severity) {
    if (log_ == nullptr) return;
    Diagnostic diagnostic;
    diagnostic.severity = diagnostic.logSeverity = severity;
    diagnostic.code =
        codeName(severity < FND::Status::Error ? MessageCode::IncludedTwice : MessageCode::Include);
    diagnostic.text = message;
    if (!fileStack_.empty() && !line_.empty()) {
        PreProFileData& file = fileStack_.back();
        const std::size_t quote = line_.find('"');
        const auto column = static_cast<int>(std::min<std::size_t>(quote, 200)) + 1;
        const std::size_t length = line_.rfind('"') - quote + 1;
        diagnostic.place = {file.name(), static_cast<int>(file.lineIndex()), column,
                            static_cast<int>(std::min<std::size_t>(length, 200))};
        constexpr std::size_t mostShown = 400;
        diagnostic.source = line_.substr(0, mostShown);
        for (std::size_t i = fileStack_.size() - 1; i > 0; --i) {
            PreProFileData& outer = fileStack_[i - 1];
            diagnostic.notes.push_back(
                {"included here", {outer.name(), static_cast<int>(outer.lineIndex()), 0, 0}});
        }
    }
    for (std::size_t i = 0; hasSearched_ && i < options_.searchPath.size(); ++i) {
        diagnostic.notes.push_back({"looked for in `" + options_.searchPath[i] + "`", {}});
    }
    log_->diagnose(diagnostic);
}

}  // namespace SCR
