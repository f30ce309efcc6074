#include "scr/code/Helpers.h"

#include "scr/run/CountedWork.h"

namespace SCR::Code {

namespace {

long execute(RunControl& /*control*/, long node, long /*b*/, long /*c*/) {
    return at<Node>(node).execute();
}

long work(RunControl& /*control*/, long bytes, long /*b*/, long /*c*/) {
    countWork(static_cast<std::size_t>(bytes));
    return 0;
}

}  // namespace

constexpr Helper executeS{guarded<execute>};
constexpr Helper workS{guarded<work>, true, false};

void look(RunControl& control, const Node* place) noexcept {
    try {
        control.look(place);
    } catch (...) {
        control.noteFailure();
    }
}

void enterCall(RunControl& control, const Node* place) noexcept {
    try {
        control.enterCall(place);
    } catch (...) {
        control.noteFailure();
    }
}

void checkCall(RunControl& control, const Node* place) noexcept {
    try {
        control.checkCall(place);
    } catch (...) {
        control.noteFailure();
    }
}

}  // namespace SCR::Code
