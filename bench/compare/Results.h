#pragma once

#include <map>
#include <string>
#include <utility>

/// The seconds that each peer took for each workload: `{workload, peer}`.
using Results = std::map<std::pair<std::string, std::string>, double>;

/// Writes `results` as JSON, an object a line; false when that fails.
bool saveResults(const std::string& file, const Results& results);

/// Reads what `saveResults` wrote; empty when the file cannot be read.
Results loadResults(const std::string& file);
