#include "scr/os/PipeGuard.h"

#include <cerrno>
#include <ctime>

namespace SCR {

namespace {

sigset_t pipeSignal() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGPIPE);
    return set;
}

}  // namespace

PipeGuard::PipeGuard(bool isNeeded) {
    if (!isNeeded) return;
    sigset_t pending;
    // A signal that is already pending is not ours to remove, and would hide ours.
    if (sigpending(&pending) != 0 || sigismember(&pending, SIGPIPE) == 1) return;
    const sigset_t blocked = pipeSignal();
    isActive_ = pthread_sigmask(SIG_BLOCK, &blocked, &mask_) == 0;
}

PipeGuard::~PipeGuard() {
    if (!isActive_) return;
    const int error = errno;
    const sigset_t taken = pipeSignal();
    const timespec atOnce{};
    while (sigtimedwait(&taken, nullptr, &atOnce) < 0 && errno == EINTR) {
    }
    pthread_sigmask(SIG_SETMASK, &mask_, nullptr);
    errno = error;
}

}  // namespace SCR
