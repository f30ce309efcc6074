#include "fsm/EnginePart.h"

#include <algorithm>
#include <utility>

#include "fsm/store/Pool.h"

namespace FSM {

namespace {

// Never destroyed: engines may outlive the other statics of the process.
Pool<EnginePart>& enginePartPool() {
    static auto& pool = *new Pool<EnginePart>;
    return pool;
}

// Made while the library is loaded, so that a fork never finds it half made.
[[maybe_unused]] const auto& partPoolS = enginePartPool();

NonDetState* nonDet(State* state) { return static_cast<NonDetState*>(state); }

}  // namespace

thread_local std::vector<std::unique_ptr<EnginePart>> EnginePart::stackCM;
thread_local FND::String EnginePart::errorTextCM;

EnginePart::EnginePart(bool negatedSet)
    : charge_(blockBytes(sizeof(EnginePart))), negatedSet_(negatedSet) {
    start_ = end_ = new NonDetState;
}

EnginePart::EnginePart(unsigned char c, unsigned char last) : EnginePart(false) {
    addCharacters(c, last == 0 ? c : last);
}

EnginePart::EnginePart(int) : EnginePart(false) {
    checkEndState();
    start_->wildCardState(end_);
}

EnginePart::EnginePart(const char* text) : EnginePart(false) {
    checkEndState();
    if (*text == '\0') {
        start_->epsilonSuccState(end_);
        return;
    }
    NonDetState* last = start_;
    for (; *text != '\0'; ++text) {
        NonDetState* next = end_;
        if (text[1] != '\0') {
            next = insertState();
        }
        last->succState(static_cast<unsigned char>(*text), next);
        last = next;
    }
}

EnginePart::EnginePart(const EnginePart& other) : EnginePart(other.negatedSet_) {
    negated_ = other.negated_;
    copy(other);
}

EnginePart::~EnginePart() {
    interior_.destroyEntries();
    if (end_ != start_) delete end_;
    delete start_;
}

void* EnginePart::operator new(std::size_t) { return enginePartPool().take(); }

void EnginePart::operator delete(void* memory) { enginePartPool().give(memory); }

void EnginePart::freeMemoryPool() { enginePartPool().freeMemory(); }

bool EnginePart::checkEndState() {
    if (start_ != end_) return false;
    end_ = new NonDetState;
    return true;
}

void EnginePart::addCharacters(unsigned char first, unsigned char last) {
    bool isFirstMember = checkEndState();
    if (negatedSet_ && isFirstMember) start_->succStates(0, 255, end_);
    start_->succStates(first, last, negatedSet_ ? nullptr : end_);
}

void EnginePart::closeEnds() {
    if (checkEndState()) start_->epsilonSuccState(end_);
}

void EnginePart::makeEnds() {
    auto first = std::make_unique<NonDetState>();
    auto last = std::make_unique<NonDetState>();
    interior_.insert(start_);
    start_ = first.release();
    interior_.insert(end_);
    end_ = last.release();
}

NonDetState* EnginePart::insertState() {
    auto state = std::make_unique<NonDetState>();
    interior_.insert(state.get());
    return state.release();
}

void EnginePart::makeZeroOrOne() {
    checkEndState();
    start_->epsilonSuccState(end_);
}

void EnginePart::makeOneOrMore() {
    closeEnds();
    NonDetState* first = start_;
    NonDetState* last = end_;
    makeEnds();
    start_->epsilonSuccState(first);
    last->epsilonSuccState(first);
    last->epsilonSuccState(end_);
}

void EnginePart::makeZeroOrMore() {
    makeOneOrMore();
    start_->epsilonSuccState(end_);
}

void EnginePart::concatenate(EnginePart& other) {
    closeEnds();
    other.closeEnds();
    // No move enters `other`'s start, so its moves can go out from this end instead.
    for (const NonDetState::Transition& transition : other.start_->transitions()) {
        end_->succStates(transition.first, transition.last, transition.target);
    }
    if (other.start_->wildCardState() != nullptr) {
        end_->wildCardState(other.start_->wildCardState());
    }
    for (State* target : other.start_->epsilonSuccStates()) end_->epsilonSuccState(target);
    // If memory runs out, each state still belongs to one of the parts.
    interior_.takeAll(other.interior_);
    interior_.insert(end_);
    end_ = other.end_;
    delete other.start_;
    other.start_ = other.end_ = nullptr;
}

void EnginePart::alternative(EnginePart& other) {
    closeEnds();
    other.closeEnds();
    start_->epsilonSuccState(other.start_);
    other.end_->epsilonSuccState(end_);
    interior_.takeAll(other.interior_);
    interior_.insert(other.start_);
    other.start_ = nullptr;
    interior_.insert(other.end_);
    other.end_ = nullptr;
}

Vector<const NonDetState*> EnginePart::markedStates() const {
    Vector<const NonDetState*> states{start_, end_};
    for (State* state : interior_.members()) states.push_back(nonDet(state));
    countWork(4 * states.size());
    for (std::size_t i = 0; i < states.size(); ++i) states[i]->mark(static_cast<std::uint32_t>(i));
    return states;
}

std::unique_ptr<EnginePart> EnginePart::reversed() const {
    auto result = std::make_unique<EnginePart>(false);
    result->checkEndState();
    // Each state by its mark; the ends change places.
    const Vector<const NonDetState*> states = markedStates();
    Vector<NonDetState*> twins{result->end_, result->start_};
    while (twins.size() < states.size()) twins.push_back(result->insertState());
    for (std::size_t i = 0; i < states.size(); ++i) {
        const NonDetState& state = *states[i];
        const auto twin = [&](const State* target) {
            return twins[static_cast<const NonDetState*>(target)->mark()];
        };
        // Several moves on a byte may lead back from a state, so each gets a state of its own.
        const auto add = [&](int first, int last, const State* target) {
            NonDetState* const between = result->insertState();
            twin(target)->epsilonSuccState(between);
            between->succStates(static_cast<unsigned char>(first), static_cast<unsigned char>(last),
                                twins[i]);
        };
        int next = 0;  // the first byte that the wild card may take
        const auto addWild = [&](int end) {
            if (state.wildCardState() == nullptr) return;
            for (const auto& [first, last] : {std::pair(next, std::min<int>(end, '\n')),
                                              std::pair(std::max<int>(next, '\n' + 1), end)}) {
                if (first < last) add(first, last - 1, state.wildCardState());
            }
        };
        for (const NonDetState::Transition& transition : state.transitions()) {
            countWork(4);
            addWild(transition.first);
            add(transition.first, transition.last, transition.target);
            next = transition.last + 1;
        }
        addWild(256);
        for (const State* target : state.epsilonSuccStates())
            twin(target)->epsilonSuccState(twins[i]);
    }
    return result;
}

std::unique_ptr<EnginePart> EnginePart::nonEmpty() const {
    auto result = std::make_unique<EnginePart>(false);
    result->checkEndState();
    const Vector<const NonDetState*> states = markedStates();
    // Each state twice: before the first byte and after it.
    Vector<NonDetState*> before{result->start_, result->insertState()};
    Vector<NonDetState*> after{result->insertState(), result->end_};
    while (before.size() < states.size()) {
        before.push_back(result->insertState());
        after.push_back(result->insertState());
    }
    const auto markOf = [](const State* state) {
        return static_cast<const NonDetState*>(state)->mark();
    };
    for (std::size_t i = 0; i < states.size(); ++i) {
        const NonDetState& state = *states[i];
        for (NonDetState* const twin : {before[i], after[i]}) {
            for (const NonDetState::Transition& transition : state.transitions()) {
                twin->succStates(transition.first, transition.last,
                                 after[markOf(transition.target)]);
            }
            if (state.wildCardState() != nullptr) {
                twin->wildCardState(after[markOf(state.wildCardState())]);
            }
        }
        for (const State* target : state.epsilonSuccStates()) {
            before[i]->epsilonSuccState(before[markOf(target)]);
            after[i]->epsilonSuccState(after[markOf(target)]);
        }
    }
    return result;
}

bool EnginePart::multiply(unsigned minimum, unsigned maximum) {
    std::size_t total = maximum != 0 ? maximum : minimum;
    if (total > maxStatesCM || stateCount() * total > maxStatesCM) {
        errorTextCM = "repetition needs more than " + std::to_string(maxStatesCM) + " states";
        return false;
    }
    if (total == 0) {
        EnginePart empty(false);
        empty.closeEnds();
        std::swap(start_, empty.start_);
        std::swap(end_, empty.end_);
        interior_.clearAndDestroy();
        return true;
    }
    closeEnds();
    if (total == 1) {
        if (minimum == 0) makeZeroOrOne();
        return true;
    }
    const EnginePart once(*this);
    Vector<NonDetState*> mayBeLast;  // ends of repetitions
    for (std::size_t i = 1; i < total; ++i) {
        if (minimum == 0 || i >= minimum) mayBeLast.push_back(end_);
        EnginePart next(once);
        concatenate(next);
    }
    for (NonDetState* end : mayBeLast) end->epsilonSuccState(end_);
    if (minimum == 0) start_->epsilonSuccState(end_);
    return true;
}

void EnginePart::copy(const EnginePart& other) {
    const Vector<const NonDetState*> originals = other.markedStates();
    checkEndState();
    Vector<NonDetState*> copies{start_, end_};
    copies.reserve(originals.size());
    while (copies.size() < originals.size()) copies.push_back(insertState());
    auto copyOf = [&](State* original) { return copies[nonDet(original)->mark()]; };
    for (std::size_t i = 0; i < originals.size(); ++i) {
        for (const NonDetState::Transition& transition : originals[i]->transitions()) {
            copies[i]->succStates(transition.first, transition.last, copyOf(transition.target));
        }
        if (originals[i]->wildCardState() != nullptr) {
            copies[i]->wildCardState(copyOf(originals[i]->wildCardState()));
        }
        for (State* target : originals[i]->epsilonSuccStates()) {
            copies[i]->epsilonSuccState(copyOf(target));
        }
    }
}

std::unique_ptr<EnginePart> EnginePart::enginePart() {
    if (stackCM.size() != 1) return nullptr;
    std::unique_ptr<EnginePart> part = std::move(stackCM.back());
    stackCM.clear();
    part->closeEnds();
    return part;
}

}  // namespace FSM
