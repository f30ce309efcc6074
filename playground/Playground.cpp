#include <cerrno>

#include "playground/Session.h"

// What the page's worker calls.

// Shows how far a run is.
EM_JS(void, tellProgress, (double records), { Module.tellProgress(records); });

extern "C" {

/// The answer to the question, which is valid until the next one.
EMSCRIPTEN_KEEPALIVE const char* kestrelAnswer(const char* question) {
    static Playground::Session session;
    static std::string answer;
    session.progress([](std::int64_t records) { tellProgress(static_cast<double>(records)); });
    answer = session.answer(question);
    return answer.c_str();
}

// What the engine asks of a system, and a page has not.

int syscall(int /*number*/, ...) {
    errno = ENOSYS;
    return -1;
}

int eventfd(unsigned /*count*/, int /*flags*/) { return -1; }

int eventfd_write(int /*descriptor*/, eventfd_t /*value*/) { return -1; }

int sync_file_range(int /*descriptor*/, off_t /*offset*/, off_t /*size*/, unsigned /*flags*/) {
    return 0;
}

char* secure_getenv(const char* /*name*/) { return nullptr; }

int posix_spawnp(pid_t* /*process*/, const char* /*file*/,
                 const posix_spawn_file_actions_t* /*actions*/,
                 const posix_spawnattr_t* /*attributes*/, char* const* /*arguments*/,
                 char* const* /*environment*/) {
    return ENOSYS;
}

int posix_spawn_file_actions_addclosefrom_np(posix_spawn_file_actions_t* /*actions*/,
                                             int /*from*/) {
    return ENOSYS;
}
}
