#pragma once

#include "Test.h"

namespace Harness {

/// How many files this process has open.
inline std::ptrdiff_t openFiles() {
    const std::filesystem::directory_iterator handles("/proc/self/fd");
    return std::distance(begin(handles), end(handles));
}

/// An empty folder, removed with its contents by the destructor.
class Folder {
public:
    Folder() {
        if (mkdtemp(path_.data()) == nullptr) std::abort();
        path_ = std::filesystem::canonical(path_);
    }
    Folder(const Folder&) = delete;
    Folder& operator=(const Folder&) = delete;
    ~Folder() { std::filesystem::remove_all(path_); }

    const std::string& path() const { return path_; }
    std::string path(const std::string& name) const { return path_ + "/" + name; }

    /// Writes a file, and the folders that lead to it; gives its path.
    std::string write(const std::string& name, const std::string& text) const {
        const std::filesystem::path file = path(name);
        std::filesystem::create_directories(file.parent_path());
        std::ofstream(file, std::ios::binary) << text;
        return file;
    }
    std::string read(const std::string& name) const {
        std::ifstream stream(path(name), std::ios::binary);
        return {std::istreambuf_iterator<char>(stream), {}};
    }

private:
    std::string path_ = std::filesystem::temp_directory_path() / "kestrel-test-XXXXXX";
};

}  // namespace Harness
