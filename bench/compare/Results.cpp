#include "Results.h"

#include <cstdio>
#include <fstream>

bool saveResults(const std::string& file, const Results& results) {
    std::ofstream stream(file);
    const char* separator = "[\n";
    for (const auto& [key, seconds] : results) {
        char number[32];
        std::snprintf(number, sizeof number, "%.6f", seconds);
        stream << separator << R"({"workload": ")" << key.first << R"(", "peer": ")" << key.second
               << R"(", "seconds": )" << number << "}";
        separator = ",\n";
    }
    stream << "\n]\n";
    return static_cast<bool>(stream.flush());
}

Results loadResults(const std::string& file) {
    Results results;
    std::ifstream stream(file);
    for (std::string line; std::getline(stream, line);) {
        char workload[100];
        char peer[100];
        double seconds = 0;
        if (std::sscanf(line.c_str(),
                        R"({"workload": "%99[^"]", "peer": "%99[^"]", "seconds": %lf})", workload,
                        peer, &seconds) == 3) {
            results[{workload, peer}] = seconds;
        }
    }
    return results;
}
