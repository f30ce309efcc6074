#include "records/read/StopSignal.h"

#include <array>
#include <cerrno>
#include <cstdint>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace Records {

StopSignal::StopSignal() : event_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

StopSignal::~StopSignal() {
    if (event_ >= 0) close(event_);
}

void StopSignal::raise() noexcept {
    const int error = errno;
    isRaised_.store(true, std::memory_order_relaxed);
    const std::uint64_t count = 1;
    // This fails only if the event was raised an enormous number of times.
    [[maybe_unused]] const ssize_t written = write(event_, &count, sizeof count);
    errno = error;
}

void StopSignal::waitForInput(int descriptor) const noexcept {
    std::array<pollfd, 2> sources{pollfd{descriptor, POLLIN, 0}, pollfd{event_, POLLIN, 0}};
    while (!isRaised() && poll(sources.data(), sources.size(), -1) < 0 && errno == EINTR) {
    }
}

}  // namespace Records
