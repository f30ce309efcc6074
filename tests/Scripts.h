#pragma once

#include "Test.h"

namespace Harness {

/// The scripts of the files of cases and the files of scripts below these folders of the tests.
inline std::vector<std::string> scriptsBelow(std::initializer_list<const char*> folders) {
    std::vector<std::string> scripts;
    for (const char* folder : folders) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(
                 KESTREL_TEST_DATA + std::string(folder))) {
            if (!entry.is_regular_file()) continue;
            std::ifstream stream(entry.path(), std::ios::binary);
            if (entry.path().extension() == ".ks") {
                scripts.emplace_back(std::istreambuf_iterator<char>(stream),
                                     std::istreambuf_iterator<char>());
            }
            if (entry.path().extension() != ".cases") continue;
            std::string line;
            bool isScript = false;
            while (std::getline(stream, line)) {
                if (line.starts_with("===")) {
                    scripts.emplace_back();
                    isScript = true;
                } else if (line.starts_with("---")) {
                    isScript = false;
                } else if (isScript) {
                    scripts.back() += line + '\n';
                }
            }
        }
    }
    return scripts;
}

}  // namespace Harness
