#pragma once

#include "Folder.h"
#include "fnd/DateTime.h"

// Runs the examples in the table of built-ins as tests.
namespace Harness {

/// The script that runs an example. An example that ends in a condition, without a ";", must hold:
/// the script prints "holds" then. For an example that is only statements it always prints that.
inline std::string scriptOf(std::string_view example) {
    std::size_t end = 0;  // of the last statement
    bool isText = false;
    for (std::size_t i = 0; i < example.size(); ++i) {
        if (example[i] == '\\') {
            ++i;
        } else if (example[i] == '"') {
            isText = !isText;
        } else if (!isText && (example[i] == ';' || example[i] == '}')) {
            end = i + 1;
        }
    }
    const std::string statements(example.substr(0, end));
    const std::string condition(example.substr(end));
    const bool isCondition = condition.find_first_not_of(" \n") != std::string::npos;
    return statements + (isCondition ? "if (" + condition + ")" : "") + " logStdout(\"holds\");";
}

/// An empty folder to work in, and UTC as the local zone.
class ExampleFolder {
public:
    ExampleFolder() : before_(std::filesystem::current_path()) {
        std::filesystem::current_path(folder_.path());
        setenv("TZ", "UTC0", 1);
        FND::DateTime::rereadLocalZone();
    }
    ExampleFolder(const ExampleFolder&) = delete;
    ExampleFolder& operator=(const ExampleFolder&) = delete;
    ~ExampleFolder() { std::filesystem::current_path(before_); }

private:
    const std::filesystem::path before_;
    const Folder folder_;
};

}  // namespace Harness
