#pragma once

#include <fstream>
#include <string>
#include <vector>

/// The lines of the file `name`, without their ends; none when it cannot be read.
inline std::vector<std::string> linesOf(const char* name) {
    std::ifstream file(name);
    std::vector<std::string> lines;
    for (std::string line; std::getline(file, line);) lines.push_back(line);
    return lines;
}
