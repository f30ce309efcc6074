#include "fnd/ForkGuard.h"

#include <pthread.h>

#include <mutex>

namespace FND {

namespace {

constinit std::mutex guardsLockS;
constinit ForkGuard* guardsS = nullptr;  // by rank
constinit bool isHandlingS = false;

}  // namespace

void ForkGuard::handleAll(Event event) {
    if (event == Event::Fork) guardsLockS.lock();
    for (ForkGuard* guard = guardsS; guard != nullptr; guard = guard->next_) {
        guard->handle_(guard->mutex_, event);
    }
    if (event == Event::Parent) guardsLockS.unlock();
    if (event == Event::Child) new (&guardsLockS) std::mutex;
}

void ForkGuard::enlist() {
    const std::lock_guard lock(guardsLockS);
    if (!isHandlingS) {
        isHandlingS =
            pthread_atfork([] { handleAll(Event::Fork); }, [] { handleAll(Event::Parent); },
                           [] { handleAll(Event::Child); }) == 0;
    }
    ForkGuard** place = &guardsS;
    while (*place != nullptr && (*place)->rank_ <= rank_) place = &(*place)->next_;
    next_ = *place;
    *place = this;
}

}  // namespace FND
