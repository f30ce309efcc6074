#pragma once

#include <map>
#include <string>
#include <string_view>
#include <vector>

namespace Cli {

/// The files of a script and their lines, for those who show a script's source.
class SourceText {
public:
    struct File {
        std::string path;  ///< as a reader finds it
        std::vector<std::string> lines;
    };

    SourceText() = default;
    /// `expanded` is the text of the script `name` with its include files, as the preprocessor
    /// gives it. Include files lie in the script's directory or in those of `includePath`.
    SourceText(std::string_view expanded, const std::string& name,
               const std::vector<std::string>& includePath);

    /// The file that a place of the script names: "" is the script.
    const File& file(const std::string& name) const;
    const std::map<std::string, File>& files() const { return files_; }

private:
    std::map<std::string, File> files_;
};

/// The lines of the file `path`; none when it cannot be read.
std::vector<std::string> linesOfFile(const std::string& path);

}  // namespace Cli
