#pragma once

#include <string>
#include <vector>

/// What one run of a program took and wrote.
struct ProgramRun {
    bool hasSucceeded = false;
    double seconds = 0;  ///< processor time, in user mode and in the kernel
    std::string output;  ///< all that it wrote
};

/// Runs the program `command[0]`, a path or a name that is looked for as a shell does, with the
/// arguments behind it in the directory `directory`, where its output goes into a file.
ProgramRun runProgram(const std::vector<std::string>& command, const std::string& directory);

/// Whether a program of that name can be started.
bool hasProgram(const std::string& name);
