#include "cli/observe/Debugger.h"

#include <algorithm>
#include <filesystem>
#include <tuple>
#include <utility>

#include "cli/script/MessageText.h"
#include "records/read/FieldNames.h"
#include "records/script/CurrentRecord.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"
#include "scr/Output.h"
#include "scr/run/RunControl.h"

namespace Cli {
namespace {

using SCR::ObservedSite;

std::string canonical(const std::string& path) {
    std::error_code error;
    const auto found = std::filesystem::weakly_canonical(path, error);
    return error ? path : found.string();
}

std::string describe(const Records::Shown& shown) {
    using ShownAs = Records::Shown::Result;
    std::string after = shown.after;
    while (after.ends_with('\n')) after.pop_back();
    const std::string number = "record " + std::to_string(shown.number) + ' ';
    switch (shown.result) {
        case ShownAs::Dropped:
            return number + "dropped";
        case ShownAs::Rejected:
            return number + "rejected: " + readable(after);
        default:
            return number + (shown.result == ShownAs::Changed ? "changed: " : "unchanged: ") +
                   after;
    }
}

}  // namespace

class Debugger::Prints final : public SCR::Output {
public:
    explicit Prints(Front& front) : front_(front) {}
    bool write(std::string_view text) override {
        front_.print(text);
        return true;
    }

private:
    Front& front_;
};

ExitStatus Debugger::run(ScriptRun& run) {
    source_ = run.source();
    hasRecords_ = run.records().isGiven();
    Prints prints(front_);
    run.records().watch({[this](Records::CurrentRecord& record, const Records::FieldNames& names) {
                             current_ = &record;
                             names_ = &names;
                             record.rejecting = [this](const Records::Rejection& rejection) {
                                 rejected(rejection);
                             };
                         },
                         [this](std::int64_t number) {
                             record_ = number;
                             isNewRecord_ = true;
                         },
                         [this](const Records::Shown& shown) {
                             if (!isEnding_) front_.recordDone(describe(shown));
                         }});
    const ExitStatus status = run.run([&](SCR::Interpreter& interpreter) {
        interpreter_ = &interpreter;
        interpreter.codeTier(SCR::CodeTier::Tree);
        interpreter.observe(this);
        interpreter.output(&prints);
        listen(true);
    });
    return isEnding_ ? ExitStatus::Success : status;
}

int Debugger::add(Breakpoint breakpoint) {
    const std::lock_guard lock(mutex_);
    breakpoint.id = ++lastId_;
    breakpoints_.push_back(std::move(breakpoint));
    areNew_ = true;
    isAsked_ = true;
    return lastId_;
}

void Debugger::removeIf(const std::function<bool(const Breakpoint&)>& isWanted) {
    const std::lock_guard lock(mutex_);
    std::erase_if(breakpoints_, isWanted);
    areNew_ = true;
    isAsked_ = true;
}

bool Debugger::remove(int id) {
    const std::size_t before = breakpoints().size();
    removeIf([&](const Breakpoint& breakpoint) { return breakpoint.id == id; });
    return breakpoints().size() < before;
}

std::vector<Debugger::Breakpoint> Debugger::breakpoints() const {
    const std::lock_guard lock(mutex_);
    return breakpoints_;
}

// Signal handlers call this too.
void Debugger::pause() {
    isPausing_ = true;
    isAsked_ = true;
    if (SCR::Interpreter* const evaluating = evaluating_) evaluating->interrupt();
}

void Debugger::cancel(bool isCancelled) {
    const std::lock_guard lock(mutex_);
    isCancelled_ = isCancelled;
    SCR::Interpreter* const evaluating = evaluating_;
    if (isCancelled && evaluating != nullptr) evaluating->interrupt();
}

void Debugger::end() {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
    isAsked_ = true;
    stopJobs();
    // The script may be waiting in a function.
    if (running_ != nullptr) running_->interrupt();
}

void Debugger::place() {
    std::vector<Placed> placed;
    {
        const std::lock_guard lock(mutex_);
        areNew_ = false;
        for (const Breakpoint& breakpoint : breakpoints_) {
            const auto known = std::find_if(placed_.begin(), placed_.end(), [&](const Placed& old) {
                return old.breakpoint.id == breakpoint.id;
            });
            if (known != placed_.end()) {
                placed.push_back(std::move(*known));
            } else {
                placed.emplace_back();
                placed.back().breakpoint = breakpoint;
            }
        }
    }
    const bool isOther = sitesPlaced_ != sites().size();
    sitesPlaced_ = sites().size();
    placed_ = std::move(placed);
    marks_.assign(sites().size(), false);
    stopsAnywhere_ = false;
    for (Placed& each : placed_) {
        Breakpoint& breakpoint = each.breakpoint;
        const bool isNew = isOther || (!breakpoint.isPlaced && breakpoint.fault.empty());
        if (isOther) each.last.clear();
        if (isNew) {
            breakpoint.isPlaced = place(each);
            if (breakpoint.isPlaced) breakpoint.fault.clear();
        }
        if (each.site < marks_.size()) marks_[each.site] = true;
        using Kind = Breakpoint::Kind;
        if (breakpoint.kind == Kind::Change || breakpoint.kind == Kind::Record) {
            stopsAnywhere_ = true;
        }
        if (!isNew) continue;
        if (breakpoint.kind == Kind::Change && !calls_.empty()) changed(each);  // what it is now
        {
            const std::lock_guard lock(mutex_);
            for (Breakpoint& own : breakpoints_) {
                if (own.id == breakpoint.id) own = breakpoint;
            }
        }
        front_.placed(breakpoint);
    }
}

bool Debugger::place(Placed& placed) {
    Breakpoint& breakpoint = placed.breakpoint;
    placed.site = ObservedSite::none;
    const auto& all = sites();
    if (breakpoint.kind == Breakpoint::Kind::Function) {
        for (std::size_t i = 0; i < all.size() && placed.site == ObservedSite::none; ++i) {
            const ObservedSite& site = all[i];
            const bool isIn = site.kind == ObservedSite::Kind::Statement &&
                              all[site.function].text == breakpoint.name && site.function != 0;
            if (isIn) placed.site = i;
        }
        if (placed.site == ObservedSite::none) {
            breakpoint.fault =
                "the script has no function " + breakpoint.name + " with a statement";
            return false;
        }
    } else if (breakpoint.kind == Breakpoint::Kind::Line) {
        const std::string wanted =
            canonical(breakpoint.path.empty() ? source_.file("").path : breakpoint.path);
        std::map<std::string, bool> isFile;
        for (const auto& [name, file] : source_.files())
            isFile[name] = canonical(file.path) == wanted;
        // Best is one that begins in the line, then one that goes on there, then the next one.
        auto best = std::make_tuple(3, 0, 0);
        for (std::size_t i = 0; i < all.size(); ++i) {
            const ObservedSite& site = all[i];
            if (site.kind != ObservedSite::Kind::Statement || !isFile[site.file]) continue;
            const int line = breakpoint.line;
            const int rank = site.line == line                           ? 0
                             : site.line < line && line <= site.lastLine ? 1
                             : site.line > line                          ? 2
                                                                         : 3;
            const auto found = std::make_tuple(rank, rank == 2 ? site.line : 0, site.column);
            if (rank < 3 && found < best) {
                best = found;
                placed.site = i;
            }
        }
        if (placed.site == ObservedSite::none) {
            const bool isKnown = std::any_of(isFile.begin(), isFile.end(),
                                             [](const auto& file) { return file.second; });
            breakpoint.fault = isKnown ? "there is no statement in this line or after it"
                                       : "the script does not include this file";
            return false;
        }
    } else {
        return true;
    }
    breakpoint.line = all[placed.site].line;
    if (breakpoint.condition.empty()) return true;
    std::vector<std::string> failures;
    aside(failures, [&] {
        const SCR::Expression condition(*interpreter_, breakpoint.condition, placed.site);
        breakpoint.fault = !condition ? "the condition: " + firstOf(condition.messages())
                           : !condition.isBool()
                               ? "the condition is no Bool but a " + condition.type()
                               : "";
    });
    if (!breakpoint.fault.empty()) placed.site = ObservedSite::none;
    return breakpoint.fault.empty();
}

void Debugger::aside(std::vector<std::string>& failures, const std::function<void()>& action) {
    if (current_ != nullptr) current_->aside = &failures;
    {
        const std::lock_guard lock(mutex_);
        evaluating_ = interpreter_;
        if (isCancelled_) interpreter_->interrupt();
    }
    action();
    {
        const std::lock_guard lock(mutex_);
        evaluating_ = nullptr;
        // One that came too late; whoever ends the script is heard at the next statement.
        interpreter_->runControl().forgetInterruption();
    }
    if (current_ != nullptr) current_->aside = nullptr;
}

bool Debugger::applies(Placed& placed) {
    const Breakpoint& breakpoint = placed.breakpoint;
    if (hasRecords_ && breakpoint.number != 0 && breakpoint.number != record_) return false;
    bool holds = true;
    if (!breakpoint.condition.empty()) {
        std::vector<std::string> failures;
        aside(failures, [&] {
            if (placed.condition == nullptr) {
                placed.condition = std::make_unique<SCR::Expression>(
                    *interpreter_, breakpoint.condition, placed.site);
            }
            if (!placed.condition->holds(holds)) holds = false;
        });
    }
    if (!holds) return false;
    return hasRecords_ || breakpoint.number == 0 || ++placed.reached == breakpoint.number;
}

namespace {

// What differs; for long texts only the part that does.
std::string describeChange(const FND::String& before, const FND::String& after, bool isText) {
    if (!isText) return readable(before) + " -> " + readable(after);
    constexpr std::size_t context = 20;
    constexpr std::size_t most = 200;
    const auto place = std::mismatch(before.begin(), before.end(), after.begin(), after.end());
    const auto same = static_cast<std::size_t>(place.first - before.begin());
    const bool isShort = before.size() <= most && after.size() <= most;
    const std::size_t from = isShort ? 0 : same - std::min(same, context);
    const auto part = [&](std::string_view text) {
        std::string shown(text.substr(std::min(from, text.size()), most));
        shown = '"' + shown + '"';
        return from + most < text.size() ? shown + "..." : shown;
    };
    const std::string where =
        from > 0 ? "from byte " + std::to_string(from + 1) + " on " : std::string();
    return where + readable(part(before)) + " -> " + readable(part(after));
}

// The first difference, and how many others there are. When the number of elements of a container
// differs, it tells only that, because the elements may have moved.
std::string describeChanges(const std::vector<SCR::Content>& before,
                            const std::vector<SCR::Content>& after) {
    std::string change;
    std::size_t count = 0;
    for (std::size_t i = 0; i < std::min(before.size(), after.size()); ++i) {
        if (before[i] == after[i]) continue;
        if (before[i].name != after[i].name) break;
        if (count++ > 0) continue;
        change = after[i].name + ": " +
                 describeChange(before[i].value, after[i].value, after[i].isString);
    }
    if (count == 0) return after.front().name + ": other elements";
    if (count > 1 && before.size() == after.size()) {
        change += ", and " + std::to_string(count - 1) + (count > 2 ? " others" : " other");
    }
    return change;
}

}  // namespace

std::optional<Debugger::Stop> Debugger::changed(Placed& placed) {
    const std::string& name = placed.breakpoint.name;
    for (const SCR::ObservedName& known : namesAt(calls_.back().site)) {
        if (known.name != name) continue;
        std::vector<SCR::Content> now = SCR::contentOf(known.name, *known.variable, mostWatchedCM);
        const auto [last, isFirst] = placed.last.try_emplace(known.variable, now);
        if (isFirst || last->second == now) return std::nullopt;
        std::string change = describeChanges(last->second, now);
        last->second = std::move(now);
        return Stop{Reason::Change, placed.breakpoint.id, std::move(change)};
    }
    return std::nullopt;
}

std::optional<Debugger::Stop> Debugger::findStop(bool isStatement) {
    std::optional<Stop> found;
    if (isPausing_) found = Stop{Reason::Pause, 0, ""};
    const bool isNew = isStatement && std::exchange(isNewRecord_, false);
    const std::size_t depth = calls_.size();
    using Kind = Breakpoint::Kind;
    for (Placed& placed : placed_) {
        const Kind kind = placed.breakpoint.kind;
        const int id = placed.breakpoint.id;
        if (kind == Kind::Change) {
            if (auto change = changed(placed); change && !found) found = std::move(change);
        } else if (kind == Kind::Record) {
            if (isNew && record_ == placed.breakpoint.number) found = Stop{Reason::Record, id, ""};
        } else if (isStatement && placed.site == calls_.back().site) {
            if (applies(placed) && !found) found = Stop{Reason::Breakpoint, id, ""};
        }
    }
    if (found || !isStatement) return found;
    const bool isStep = next_ == Resume::Into || (next_ == Resume::Over && depth <= depth_) ||
                        (next_ == Resume::Out && depth < depth_);
    if (isStep) return Stop{wasStopped_ ? Reason::Step : Reason::Entry, 0, ""};
    return std::nullopt;
}

void Debugger::look(bool isStatement) {
    if (isAsked_.exchange(false) && areNew_) place();
    if (!isEnding_) {
        if (const std::optional<Stop> found = findStop(isStatement)) stop(*found);
    }
    if (!isEnding_) return;
    interpreter_->skipEnd();
    interpreter_->runControl().stop(nullptr, "the debugger ended it");
}

void Debugger::stop(const Stop& stop) {
    isPausing_ = false;
    wasStopped_ = true;
    obey(front_.stopped(stop));
}

void Debugger::obey(Resume resume) {
    next_ = resume;
    depth_ = calls_.size();
    if (resume == Resume::End) {
        isEnding_ = true;
        stopJobs();
    }
    if (isAsked_ && areNew_) place();
}

void Debugger::statement(std::size_t site) {
    if (calls_.empty()) return;
    calls_.back().site = site;
    const bool isMarked = site < marks_.size() && marks_[site];
    if (isMarked || stopsAnywhere_ || next_ != Resume::Go ||
        isAsked_.load(std::memory_order_relaxed)) {
        look(true);
    }
}

// A loop without a statement has conditions as well.
void Debugger::condition(std::size_t site, bool /*holds*/) {
    if (calls_.empty() || sites()[site].owner == ObservedSite::none) return;
    calls_.back().site = sites()[site].owner;
    if (stopsAnywhere_ || isAsked_.load(std::memory_order_relaxed)) look(false);
}

void Debugger::entered(std::size_t site) {
    if (site == 0) calls_.clear();
    const bool isFirst = calls_.empty();
    calls_.push_back({site, site});
    if (!isFirst) return;
    if (sites()[site].text == "END") record_ = 0;
    {
        const std::lock_guard lock(mutex_);
        running_ = interpreter_;
    }
    if (sitesPlaced_ != sites().size() || areNew_) place();
}

void Debugger::left(std::size_t site) {
    const bool isIn = calls_.size() > 1 && calls_.back().function == site;
    if (isIn && stopsAnywhere_) look(false);
    while (calls_.size() > 1 && calls_.back().function != site) calls_.pop_back();
    if (calls_.size() > 1) calls_.pop_back();
}

void Debugger::ended() {
    // What the last statement changed.
    if (!calls_.empty() && stopsAnywhere_ && !isEnding_) {
        if (const std::optional<Stop> found = findStop(false)) stop(*found);
        if (isEnding_) interpreter_->skipEnd();
    }
    calls_.clear();
    // The interpreter may be gone before the next run.
    for (Placed& placed : placed_) placed.condition.reset();
    const std::lock_guard lock(mutex_);
    running_ = nullptr;
}

void Debugger::message(const SCR::Diagnostic& diagnostic) {
    if (calls_.empty() || isEnding_ || diagnostic.isDetail) return;
    for (const Placed& placed : placed_) {
        if (placed.breakpoint.kind != Breakpoint::Kind::Message) continue;
        return stop({Reason::Message, placed.breakpoint.id, diagnostic.headline()});
    }
}

void Debugger::rejected(const Records::Rejection& rejection) {
    if (calls_.empty() || isEnding_) return;
    for (const Placed& placed : placed_) {
        if (placed.breakpoint.kind != Breakpoint::Kind::Reject) continue;
        return stop({Reason::Reject, placed.breakpoint.id, rejection.text()});
    }
}

}  // namespace Cli
