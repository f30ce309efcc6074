#include "scr/check/Reentry.h"

#include <algorithm>
#include <unordered_map>
#include <utility>

#include "scr/check/WayFollower.h"
#include "scr/message/Messages.h"

namespace SCR {

namespace {

using Event = ScriptRecord::Event;
using Place = ScriptRecord::Place;
using Call = ScriptRecord::Call;
constexpr std::uint32_t noneS = ScriptRecord::none;

// Takes tenths of a second; no real script comes near.
constexpr std::size_t mostStepsS = 20'000'000;

// What is certain about each local variable.
struct SureState {
    Bits set;  // in this call
    bool isDead = false;

    void merge(const SureState& other) { set &= other.set; }
    std::size_t words() const { return set.words(); }
};

// Variables that an inner call may have overwritten.
struct LostState {
    Bits lost;
    bool isDead = false;

    void merge(const LostState& other) { lost |= other.lost; }
    std::size_t words() const { return lost.words(); }
};

// How an event changes which variables are lost: those in `kept` no longer are, then those in
// `lost` are.
struct Effect {
    Bits lost;
    Bits kept;

    // The combined effect of both, `*this` first.
    void then(const Effect& next) {
        lost -= next.kept;
        lost |= next.lost;
        kept |= next.kept;
    }
};

struct EffectState {
    Effect effect;
    bool isDead = false;

    void merge(const EffectState& other) {
        effect.lost |= other.effect.lost;
        effect.kept &= other.effect.kept;
    }
    std::size_t words() const { return 2 * effect.lost.words(); }
};

// What is known about a function's local variables.
struct Facts {
    explicit Facts(std::size_t size) : isReadFirst(size), isWritten(size), losable(size) {}

    Bits isReadFirst;  // read where it may not be set yet
    Bits isWritten;
    Bits losable;  // by a call of the function from within itself
    bool callsItself = false;
};

class Search {
public:
    explicit Search(const ScriptRecord& record) : record_(record) {}

    std::vector<Finding> findings() {
        for (std::uint32_t i = 0; i < record_.functions.size(); ++i) findFacts(i);
        for (std::uint32_t i = 0; i < record_.functions.size(); ++i) {
            findNestedCalls(record_.functions[i]);
            if (facts_[i].callsItself) findLateReads(i);
        }
        std::sort(found_.begin(), found_.end(),
                  [](const auto& a, const auto& b) { return a.first.order < b.first.order; });
        std::vector<Finding> findings;
        if (budget_.isSpent()) findings.push_back({{}, 1, Messages::callsNotFollowed});
        for (auto& [place, text] : found_) {
            if (isNew(findings, record_.files[place.file], place.line, text)) {
                findings.push_back({record_.files[place.file], place.line, std::move(text)});
            }
        }
        return findings;
    }

private:
    // What last made variables unsafe to read.
    struct Causes {
        std::uint32_t call = noneS;  // that ran
        std::vector<std::uint32_t>
            binding;  // since then, by variable: whose argument is stored in it
    };

    // A call whose arguments are being evaluated.
    struct OpenCall {
        std::uint32_t call;
        std::vector<std::size_t> epochs;  // of the arguments stored
        bool isReported = false;
    };

    // Two calls in one line may lose the same values.
    static bool isNew(const std::vector<Finding>& findings, const FND::String& file, int line,
                      const FND::String& text) {
        return findings.empty() || findings.back().line != line || findings.back().text != text ||
               findings.back().file != file;
    }

    bool isSelf(std::uint32_t call, std::uint32_t function) const {
        return record_.calls[call].function == function;
    }

    // Whether argument `i` of `call`, a call of the function from within itself, is the parameter
    // itself.
    bool isHandedOn(std::uint32_t call, std::uint32_t i) const {
        const Call& inner = record_.calls[call];
        return inner.arguments[i].variable == record_.functions[inner.function].locals[i].variable;
    }

    void findFacts(std::uint32_t index) {
        const ScriptRecord::Function& function = record_.functions[index];
        Facts& facts = facts_.emplace_back(function.locals.size());
        facts.callsItself = function.callees.count(index) > 0;
        Bits isChanged(function.locals.size());
        WayFollower<SureState> follower(budget_, {Bits(function.locals.size())});
        follower.follow(record_.events, function.body.first,
                        [&](SureState& state, const Event& event) {
                            switch (event.kind) {
                                case Event::Read:
                                    if (!state.isDead && !state.set.has(event.index)) {
                                        facts.isReadFirst.set(event.index);
                                    }
                                    break;
                                case Event::Write:
                                    state.set.set(event.index);
                                    facts.isWritten.set(event.index);
                                    break;
                                case Event::WritePart:
                                    facts.isWritten.set(event.index);
                                    break;
                                case Event::Bind:
                                    if (isSelf(event.index, index) &&
                                        !isHandedOn(event.index, event.argument)) {
                                        isChanged.set(event.argument);
                                    }
                                    break;
                                default:
                                    break;
                            }
                        });
        for (std::uint32_t i = 0; i < function.locals.size(); ++i) {
            const bool isLosable = i < function.parameters
                                       ? isChanged.has(i) || facts.isWritten.has(i)
                                       : facts.isWritten.has(i) && !facts.isReadFirst.has(i);
            if (isLosable) facts.losable.set(i);
        }
    }

    // Arguments that call the very function that they are passed to.

    void findNestedCalls(const ScriptRecord::Function& function) {
        std::vector<OpenCall> open;
        std::size_t epoch = 0;  // incremented with each change of a variable
        for (std::uint32_t at = function.body.first; at != noneS; at = record_.events[at].next) {
            if (!budget_.take(1)) return;
            const Event& event = record_.events[at];
            switch (event.kind) {
                case Event::Begin:
                    open.push_back({event.index, {}});
                    break;
                case Event::Bind:
                    open.back().epochs.push_back(epoch);
                    break;
                case Event::Run: {
                    const OpenCall inner = std::move(open.back());
                    open.pop_back();
                    for (OpenCall& outer : open) compare(outer, inner);
                    ++epoch;
                    break;
                }
                case Event::Write:
                case Event::WritePart:
                case Event::Touch:
                    ++epoch;
                    break;
                default:
                    break;
            }
        }
    }

    void compare(OpenCall& outer, const OpenCall& inner) {
        if (outer.isReported || outer.epochs.empty() || !budget_.take(1)) return;
        const Call& call = record_.calls[outer.call];
        const Call& again = record_.calls[inner.call];
        if (!reaches(again.function, call.function)) return;
        const Facts& facts = facts_[call.function];
        for (std::uint32_t i = 0; i < outer.epochs.size(); ++i) {
            if (!facts.isReadFirst.has(i)) continue;
            // The inner call may give it its present value.
            if (again.function == call.function && !facts.losable.has(i) &&
                outer.epochs[i] == inner.epochs[i] &&
                call.arguments[i].isSame(again.arguments[i])) {
                continue;
            }
            const ScriptRecord::Function& function = record_.functions[call.function];
            found_.emplace_back(again.place,
                                Messages::argumentCallsAgain(outer.epochs.size() + 1, function.name,
                                                             record_.functions[again.function].name,
                                                             function.locals[i].name));
            outer.isReported = true;
            return;
        }
    }

    // Whether running the function `from` runs `to`.
    bool reaches(std::uint32_t from, std::uint32_t to) {
        if (from <= to) return from == to;
        const std::uint64_t question = std::uint64_t{from} << 32 | to;
        if (const auto known = reached_.find(question); known != reached_.end()) {
            return known->second;
        }
        std::unordered_set<std::uint32_t> seen;
        std::vector<std::uint32_t> open{from};
        bool isReached = false;
        while (!open.empty() && !isReached) {
            const std::uint32_t function = open.back();
            open.pop_back();
            for (const std::uint32_t callee : record_.functions[function].callees) {
                if (!budget_.take(10)) return false;
                isReached = isReached || callee == to;
                if (callee > to && seen.insert(callee).second) open.push_back(callee);
            }
        }
        return reached_[question] = isReached;
    }

    // Variables that are read after the function has called itself.

    void findLateReads(std::uint32_t index) {
        const ScriptRecord::Function& function = record_.functions[index];
        Causes causes;
        const std::vector<Bits> repeated = lostInLoops(index, causes);
        std::size_t loop = 0;
        WayFollower<LostState> follower(budget_, {Bits(function.locals.size())});
        follower.follow(record_.events, function.body.first,
                        [&](LostState& state, const Event& event) {
                            if (event.kind == Event::OpenLoop) {
                                if (loop < repeated.size()) state.lost |= repeated[loop];
                                ++loop;
                            } else if (event.kind != Event::Read) {
                                change(index, event, {state.lost, nullptr}, causes);
                            } else if (!state.isDead && state.lost.has(event.index)) {
                                state.lost.reset(event.index);
                                reportLateRead(function, event, causes);
                            }
                        });
    }

    // For each loop, in the order of their beginnings: the variables that a turn leaves lost for
    // the next.
    std::vector<Bits> lostInLoops(std::uint32_t index, Causes& causes) {
        const ScriptRecord::Function& function = record_.functions[index];
        const Effect nothing{Bits(function.locals.size()), Bits(function.locals.size())};
        std::vector<Bits> lost;
        std::vector<std::pair<std::size_t, EffectState>>
            open;  // the open loops, with the state before each
        WayFollower<EffectState> follower(budget_, {nothing});
        follower.follow(
            record_.events, function.body.first, [&](EffectState& state, const Event& event) {
                if (event.kind == Event::OpenLoop) {
                    open.emplace_back(lost.size(), state);
                    lost.push_back(nothing.lost);
                    state.effect = nothing;
                } else if (event.kind == Event::CloseLoop) {
                    budget_.take(3 * state.words());
                    if (!state.isDead) lost[open.back().first] = state.effect.lost;
                    open.back().second.effect.then(state.effect);
                    state.effect = std::move(open.back().second.effect);
                    open.pop_back();
                } else {
                    change(index, event, {state.effect.lost, &state.effect.kept}, causes);
                }
            });
        return lost;
    }

    // Destinations of the variables that become lost and of those that no longer are.
    struct Change {
        Bits& lost;
        Bits* kept;
    };

    void change(std::uint32_t index, const Event& event, Change change, Causes& causes) {
        if (event.kind == Event::Write) {
            change.lost.reset(event.index);
            if (change.kept != nullptr) change.kept->set(event.index);
        } else if (event.kind == Event::Bind && isSelf(event.index, index) &&
                   !isHandedOn(event.index, event.argument)) {
            change.lost.set(event.argument);
            causes.binding.resize(record_.functions[index].parameters, noneS);
            causes.binding[event.argument] = event.index;
        } else if (event.kind == Event::Run && isSelf(event.index, index)) {
            budget_.take(change.lost.words());
            change.lost |= facts_[index].losable;
            causes = {event.index, {}};
        }
    }

    void reportLateRead(const ScriptRecord::Function& function, const Event& read,
                        const Causes& causes) {
        const FND::String& name = function.locals[read.index].name;
        const bool isBound =
            read.index < causes.binding.size() && causes.binding[read.index] != noneS;
        if (isBound) {
            found_.emplace_back(read.place,
                                Messages::readAfterArgument(name, read.index + 1, function.name));
            return;
        }
        const Place& call = record_.calls[causes.call].place;
        FND::String line = std::to_string(call.line);
        if (call.file != read.place.file) {
            const FND::String& file = record_.files[call.file];
            line += file.empty() ? FND::String(" of the script") : " of " + file;
        }
        found_.emplace_back(read.place, Messages::readAfterCall(name, function.name, line));
    }

    const ScriptRecord& record_;
    StepBudget budget_{mostStepsS};
    std::vector<Facts> facts_;                         // by function
    std::unordered_map<std::uint64_t, bool> reached_;  // known answers of `reaches`
    std::vector<std::pair<Place, FND::String>> found_;
};

}  // namespace

std::vector<Finding> findReentries(const ScriptRecord& record) { return Search(record).findings(); }

}  // namespace SCR
