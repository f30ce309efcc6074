#include "Program.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <iterator>
#include <sstream>

namespace {

double secondsOf(const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) * 1e-6;
}

[[noreturn]] void startProgram(const std::vector<std::string>& command,
                               const std::string& directory) {
    std::vector<char*> arguments;
    for (const std::string& argument : command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    if (chdir(directory.c_str()) != 0) _exit(127);
    const int output = open("output", O_WRONLY | O_CREAT | O_TRUNC, 0666);
    if (output < 0 || dup2(output, STDOUT_FILENO) < 0) _exit(127);
    execvp(arguments[0], arguments.data());
    _exit(127);
}

}  // namespace

ProgramRun runProgram(const std::vector<std::string>& command, const std::string& directory) {
    const pid_t child = fork();
    if (child < 0) return {};
    if (child == 0) startProgram(command, directory);
    int status = 0;
    rusage usage{};
    if (wait4(child, &status, 0, &usage) != child) return {};
    ProgramRun run;
    run.hasSucceeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
    constexpr int lacksLibrary = 77;
    run.lacksLibrary = WIFEXITED(status) && WEXITSTATUS(status) == lacksLibrary;
    run.seconds = secondsOf(usage.ru_utime) + secondsOf(usage.ru_stime);
    std::ifstream file(directory + "/output", std::ios::binary);
    run.output.assign(std::istreambuf_iterator<char>(file), {});
    return run;
}

bool hasProgram(const std::string& name) {
    if (name.find('/') != std::string::npos) return access(name.c_str(), X_OK) == 0;
    const char* const path = std::getenv("PATH");
    std::stringstream directories(path != nullptr ? path : "");
    for (std::string directory; std::getline(directories, directory, ':');) {
        if (access((directory + "/" + name).c_str(), X_OK) == 0) return true;
    }
    return false;
}
