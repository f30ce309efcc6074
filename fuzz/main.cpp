// Replays inputs: the members of the archives (tar, format ustar) named on the command line, the
// files in the folders named there, and the files named there themselves. Ends with status 2 when
// one of these gives no input or cannot be read, and by abort() or a sanitizer when an input fails.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>
#include <vector>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

namespace {

namespace fs = std::filesystem;

std::string contentOf(const fs::path& file) {
    std::ifstream stream(file, std::ios::binary);
    if (!stream) {
        std::fprintf(stderr, "cannot read %s\n", file.c_str());
        std::exit(2);
    }
    return {std::istreambuf_iterator<char>(stream), {}};
}

// Inputs are copied, so that a sanitizer sees a read past the end of one.
void replay(const std::string& name, std::string_view input) {
    std::fprintf(stderr, "%s\n", name.c_str());
    const std::vector<std::uint8_t> copy(input.begin(), input.end());
    LLVMFuzzerTestOneInput(copy.data(), copy.size());
}

int replayArchive(const fs::path& file) {
    constexpr std::size_t block = 512;
    const std::string archive = contentOf(file);
    int count = 0;
    // A block of zeros ends it.
    for (std::size_t at = 0; at >= archive.size() || archive[at] != '\0';) {
        const std::size_t left = archive.size() - std::min(at, archive.size());
        std::size_t size = left;
        if (left >= block && archive.compare(at + 257, 5, "ustar") == 0 && archive[at + 156] == '0')
            size = std::strtoul(&archive[at + 124], nullptr, 8);
        if (left < block || size > left - block) {
            std::fprintf(stderr, "%s: damaged at byte %zu\n", file.c_str(), at);
            std::exit(2);
        }
        const std::string name = archive.substr(at, 100).c_str();
        replay(file.string() + ": " + name, std::string_view(archive).substr(at + block, size));
        at += block + (size + block - 1) / block * block;
        ++count;
    }
    return count;
}

int replayFolder(const fs::path& folder) {
    std::vector<fs::path> files(fs::directory_iterator(folder), {});
    std::sort(files.begin(), files.end());
    for (const fs::path& file : files) replay(file.string(), contentOf(file));
    return static_cast<int>(files.size());
}

}  // namespace

int main(int argc, char** argv) {
    for (int i = 1; i < argc; ++i) {
        const fs::path path = argv[i];
        int count = 1;
        if (path.extension() == ".tar") {
            count = replayArchive(path);
        } else if (fs::is_directory(path)) {
            count = replayFolder(path);
        } else {
            replay(path.string(), contentOf(path));
        }
        std::fprintf(stderr, "%s: %d inputs\n", path.c_str(), count);
        if (count == 0) return 2;
    }
    return argc > 1 ? 0 : 2;
}
