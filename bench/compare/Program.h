#pragma once

#include <string>
#include <vector>

/// The time and the output of one run of a program.
struct ProgramRun {
    bool hasSucceeded = false;
    bool lacksLibrary = false;  ///< it ended with the status 77
    double seconds = 0;         ///< processor time, in user mode and in the kernel
    std::string output;         ///< all that it wrote
};

/// Runs the program `command[0]`, a path or a name that is looked up like in a shell, with the
/// arguments after it, in the directory `directory`; its output goes into a file.
ProgramRun runProgram(const std::vector<std::string>& command, const std::string& directory);

/// Whether a program of that name can be started.
bool hasProgram(const std::string& name);
