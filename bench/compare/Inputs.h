#pragma once

#include <string>

/// Writes the files that the workloads read into the directory `directory`, always the same bytes:
/// `records` call records (calls.csv), texts and patterns with the script that switches over them
/// (texts.txt, patterns.txt, regexpr_switch.ks), what modules work on (lines.txt, numbers.txt,
/// addresses.txt, ranges.csv) and scripts of `lines` lines (generated.ks, .lua,
/// .as). False when one cannot be written.
bool writeInputs(const std::string& directory, long records, long lines);
