#include "author/server/Documents.h"

#include <algorithm>
#include <cstdlib>
#include <fstream>
#include <iterator>

#include "scr/parser/Crypt.h"

namespace Author {

namespace fs = std::filesystem;

namespace {

constexpr std::uintmax_t mostFileBytesS = std::uintmax_t{16} << 20;
constexpr std::size_t mostScriptsS = 2000;

int digitOf(char byte) {
    if (byte >= '0' && byte <= '9') return byte - '0';
    const char lower = static_cast<char>(byte | 0x20);
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : -1;
}

}  // namespace

std::string pathOfUri(const std::string& uri) {
    constexpr std::string_view scheme = "file://";
    if (!uri.starts_with(scheme)) return uri;
    const std::size_t begin = uri.find('/', scheme.size());
    std::string path;
    for (std::size_t i = std::min(begin, uri.size()); i < uri.size(); ++i) {
        const int high = i + 2 < uri.size() ? digitOf(uri[i + 1]) : -1;
        const int low = high >= 0 ? digitOf(uri[i + 2]) : -1;
        if (uri[i] == '%' && low >= 0) {
            path += static_cast<char>(16 * high + low);
            i += 2;
        } else {
            path += uri[i];
        }
    }
    return path;
}

std::string uriOfPath(const std::string& path) {
    if (!path.starts_with('/')) return path;
    std::string uri = "file://";
    for (const char byte : path) {
        const bool isPlain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                             (byte >= '0' && byte <= '9') ||
                             std::string_view("/-._~").find(byte) != std::string_view::npos;
        if (isPlain) {
            uri += byte;
        } else {
            uri += '%';
            uri += SCR::Crypt::hexString(static_cast<unsigned char>(byte));
        }
    }
    return uri;
}

Document::Document(std::string uri, std::string text, std::int64_t version)
    : uri_(std::move(uri)),
      path_(pathOfUri(uri_)),
      text_(std::move(text)),
      lines_(text_),
      version_(version) {}

void Document::replace(std::string text) {
    text_ = std::move(text);
    lines_.update(text_);
    source_.reset();
    index_.reset();
}

void Document::replace(Position begin, Position end, const std::string& text) {
    const std::size_t first = lines_.offset(text_, begin);
    const std::size_t last = std::max(first, lines_.offset(text_, end));
    text_.replace(first, last - first, text);
    lines_.update(text_);
    source_.reset();
    index_.reset();
}

void Documents::includePath(std::vector<std::string> directories) {
    includePath_ = std::move(directories);
    const char* const variable = std::getenv("KESTREL_INCLUDE");
    std::string_view rest = variable != nullptr ? variable : ".";
    for (;;) {
        const std::size_t end = rest.find(';');
        includePath_.emplace_back(rest.substr(0, end));
        if (end == std::string_view::npos) break;
        rest.remove_prefix(end + 1);
    }
    forgetIndexes();
}

Document& Documents::open(const std::string& uri, const std::string& text, std::int64_t version) {
    forgetIndexes();
    documents_.erase(uri);
    return documents_
        .emplace(std::piecewise_construct, std::forward_as_tuple(uri),
                 std::forward_as_tuple(uri, text, version))
        .first->second;
}

void Documents::close(const std::string& uri) {
    documents_.erase(uri);
    forgetIndexes();
}

Document* Documents::find(const std::string& uri) {
    const auto found = documents_.find(uri);
    return found != documents_.end() ? &found->second : nullptr;
}

std::vector<Document*> Documents::all() {
    std::vector<Document*> all;
    for (auto& [uri, document] : documents_) all.push_back(&document);
    return all;
}

void Documents::forgetIndexes() {
    for (auto& [uri, document] : documents_) document.index_.reset();
}

std::shared_ptr<const SymbolIndex> Documents::index(Document& document) {
    if (!document.source_) {
        document.source_ = std::make_shared<SourceText>(document.path_, document.text_);
    }
    if (!document.index_) document.index_ = indexOf(document.source_);
    return document.index_;
}

std::shared_ptr<const SymbolIndex> Documents::indexOf(std::shared_ptr<const SourceText> script) {
    const std::string path = script->path();
    return std::make_shared<SymbolIndex>(std::move(script), [&](std::string_view name) {
        const std::string found = find(name, path);
        return found.empty() ? nullptr : source(found);
    });
}

std::string Documents::find(std::string_view name, const std::string& script) const {
    std::error_code error;
    if (name.starts_with('/')) return fs::exists(fs::path(name), error) ? std::string(name) : "";
    std::vector<std::string> directories = includePath_;
    directories.push_back(fs::path(script).parent_path());
    for (const std::string& directory : directories) {
        const fs::path path = fs::path(directory.empty() ? "/" : directory) / fs::path(name);
        if (fs::exists(path, error)) return fs::weakly_canonical(path, error);
    }
    return {};
}

std::shared_ptr<const SourceText> Documents::source(const std::string& path) {
    for (auto& [uri, document] : documents_) {
        if (document.path_ != path) continue;
        if (!document.source_) {
            document.source_ = std::make_shared<SourceText>(document.path_, document.text_);
        }
        return document.source_;
    }
    std::error_code error;
    const fs::file_status status = fs::status(path, error);
    if (error || !fs::is_regular_file(status)) return nullptr;
    const auto time = fs::last_write_time(path, error);
    const std::uintmax_t size = fs::file_size(path, error);
    if (error || size > mostFileBytesS) return nullptr;
    File& file = files_[path];
    if (file.source && file.time == time && file.size == size) return file.source;
    std::ifstream stream(path, std::ios::binary);
    std::string text{std::istreambuf_iterator<char>(stream), {}};
    std::string plain;
    if (SCR::Crypt::decrypt(text, plain)) text = std::move(plain);
    file = {time, size, std::make_shared<SourceText>(path, std::move(text))};
    return file.source;
}

std::vector<std::string> Documents::scripts() const {
    std::vector<std::string> paths;
    for (const std::string& folder : folders_) {
        std::error_code error;
        fs::recursive_directory_iterator entry(
            folder, fs::directory_options::skip_permission_denied, error);
        for (const fs::recursive_directory_iterator end; !error && entry != end;
             entry.increment(error)) {
            const fs::path& path = entry->path();
            if (path.filename().string().starts_with('.')) {
                entry.disable_recursion_pending();
            } else if (path.extension() == ".ks" && paths.size() < mostScriptsS) {
                paths.push_back(path);
            }
        }
    }
    std::sort(paths.begin(), paths.end());
    return paths;
}

std::vector<std::shared_ptr<const SymbolIndex>> Documents::programsWith(const std::string& path) {
    std::vector<std::shared_ptr<const SymbolIndex>> programs;
    const auto add = [&](const std::shared_ptr<const SymbolIndex>& index) {
        const auto& files = index->files();
        const bool isWanted =
            path.empty() || std::any_of(files.begin(), files.end(),
                                        [&](const auto& file) { return file->path() == path; });
        if (isWanted) programs.push_back(index);
    };
    std::vector<std::string> known;
    for (Document* const document : all()) {
        known.push_back(document->path());
        add(index(*document));
    }
    for (const std::string& script : scripts()) {
        if (std::find(known.begin(), known.end(), script) != known.end()) continue;
        if (auto text = source(script)) add(indexOf(std::move(text)));
    }
    return programs;
}

}  // namespace Author
