#pragma once

#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "author/SymbolIndex.h"

namespace Author {

/// The path of a "file:" URI; of any other one the URI itself.
std::string pathOfUri(const std::string& uri);
std::string uriOfPath(const std::string& path);

/// A text that an editor has open.
class Document {
public:
    Document(std::string uri, std::string text, std::int64_t version);

    const std::string& uri() const { return uri_; }
    const std::string& path() const { return path_; }
    const std::string& text() const { return text_; }
    const LineTable& lines() const { return lines_; }
    std::int64_t version() const { return version_; }
    void version(std::int64_t version) { version_ = version; }

    void replace(std::string text);
    /// Puts `text` in the place of what lies between the two positions.
    void replace(Position begin, Position end, const std::string& text);

private:
    friend class Documents;
    const std::string uri_;
    const std::string path_;
    std::string text_;
    LineTable lines_;
    std::int64_t version_;
    std::shared_ptr<const SourceText> source_;  // null when the text has changed
    std::shared_ptr<const SymbolIndex> index_;
};

/// The texts that are open, and those of files. Files are read again when they change.
class Documents {
public:
    /// Directories in which include files are looked for: first these, then those of the
    /// environment, then that of the script.
    void includePath(std::vector<std::string> directories);
    /// The folders of the project.
    void folders(std::vector<std::string> folders) { folders_ = std::move(folders); }

    Document& open(const std::string& uri, const std::string& text, std::int64_t version);
    void close(const std::string& uri);
    /// Null for one that is not open.
    Document* find(const std::string& uri);
    std::vector<Document*> all();
    /// The index of an open text.
    std::shared_ptr<const SymbolIndex> index(Document& document);
    /// Files may have changed, or one that is open: all indexes are made anew.
    void forgetIndexes();

    /// The text of a file, open or not; null when it cannot be read.
    std::shared_ptr<const SourceText> source(const std::string& path);
    /// The path of an include file; empty when there is none.
    std::string find(std::string_view name, const std::string& script) const;

    /// The indexes of all scripts that hold the file `path`: those that are open and those in the
    /// folders. An empty path stands for all scripts.
    std::vector<std::shared_ptr<const SymbolIndex>> programsWith(const std::string& path);

private:
    struct File {
        std::filesystem::file_time_type time;
        std::uintmax_t size = 0;
        std::shared_ptr<const SourceText> source;
    };
    std::shared_ptr<const SymbolIndex> indexOf(std::shared_ptr<const SourceText> script);
    std::vector<std::string> scripts() const;

    std::map<std::string, Document> documents_;  // by URI
    std::map<std::string, File> files_;
    std::vector<std::string> includePath_;
    std::vector<std::string> folders_;
};

}  // namespace Author
