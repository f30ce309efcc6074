#include "scr/Observation.h"

#include <algorithm>
#include <atomic>
#include <utility>

#include "scr/Variable.h"

namespace SCR {

namespace {

long load(const long& word) {
    return std::atomic_ref<long>(const_cast<long&>(word)).load(std::memory_order_acquire);
}

std::size_t siteOf(long position) { return static_cast<std::size_t>(position) / 2 - 1; }

}  // namespace

Observation::~Observation() = default;

void Observation::statement(std::size_t /*site*/) {}
void Observation::condition(std::size_t /*site*/, bool /*holds*/) {}
void Observation::chosen(std::size_t /*site*/) {}
void Observation::value(std::size_t /*site*/, const FND::String& /*text*/) {}
void Observation::entered(std::size_t /*site*/) {}
void Observation::left(std::size_t /*site*/) {}
void Observation::message(const Diagnostic& /*diagnostic*/) {}
void Observation::ended() {}

void Observation::clear() {
    position_ = 0;
    sites_.clear();
    counts_.clear();
    callers_.clear();
    missed_.clear();
    scopes_.clear();
    openScopes_.clear();
    declared_.clear();
}

void Observation::keepDeclared(std::size_t count) {
    declared_.erase(declared_.begin() + static_cast<std::ptrdiff_t>(count), declared_.end());
}

void Observation::declare(const FND::String& name, Variable* variable, const Node* block) {
    // That of a function's result has no name in a script.
    if (!tellsSteps() || variable->dataType() == TypeCode::Function || name.starts_with('$')) {
        return;
    }
    declared_.push_back({{name, variable}, block});
}

void Observation::setScope(ObservedSite& site, const std::vector<Node*>& open) {
    std::size_t same = 0;
    while (same < std::min(open.size(), openScopes_.size()) &&
           scopes_[openScopes_[same]].block == open[same]) {
        ++same;
    }
    openScopes_.resize(same);
    for (; same < open.size(); ++same) {
        scopes_.push_back({open[same], same > 0 ? openScopes_.back() : ObservedSite::none});
        openScopes_.push_back(scopes_.size() - 1);
    }
    if (!openScopes_.empty()) site.scope = openScopes_.back();
    site.names = declared_.size();
}

std::vector<Node*> Observation::blocksAt(std::size_t site) const {
    std::vector<Node*> blocks;
    if (site >= sites_.size()) return blocks;
    for (std::size_t scope = sites_[site].scope; scope != ObservedSite::none;
         scope = scopes_[scope].outer) {
        blocks.push_back(scopes_[scope].block);
    }
    std::reverse(blocks.begin(), blocks.end());
    return blocks;
}

std::vector<ObservedName> Observation::namesAt(std::size_t site) const {
    std::vector<ObservedName> names;
    const std::vector<Node*> blocks = blocksAt(site);
    for (auto block = blocks.rbegin(); block != blocks.rend(); ++block) {
        for (std::size_t i = 0; i < sites_[site].names; ++i) {
            const Declared& declared = declared_[i];
            const auto isSame = [&](const ObservedName& other) {
                return other.name == declared.name.name;
            };
            if (declared.block != *block || std::any_of(names.begin(), names.end(), isSame)) {
                continue;
            }
            names.push_back(declared.name);
            names.back().isGlobal = *block == blocks.front();
        }
    }
    return names;
}

std::size_t Observation::add(ObservedSite site) {
    sites_.push_back(std::move(site));
    callers_.push_back(0);
    return sites_.size() - 1;
}

std::size_t Observation::addCount() {
    counts_.emplace_back();
    return counts_.size() - 1;
}

Observation::Count Observation::reached(std::size_t site) const {
    Count count;
    if (site >= sites_.size() || sites_[site].count == ObservedSite::none) return count;
    count = counts_[sites_[site].count];
    if (sites_[site].kind == ObservedSite::Kind::Case &&
        sites_[site].otherwise != ObservedSite::none) {
        // Those that fell through from the label or the body before did not choose this one.
        const Count& fallen = counts_[sites_[site].otherwise];
        count.tree -= fallen.tree;
        count.code -= fallen.code;
    }
    if (site < missed_.size()) {
        const long inTree = std::min(missed_[site], count.tree);
        count.tree -= inTree;
        count.code -= missed_[site] - inTree;
    }
    return count;
}

Observation::Count Observation::otherwise(std::size_t site) const {
    if (site >= sites_.size() || sites_[site].kind != ObservedSite::Kind::Condition) return {};
    const ObservedSite& condition = sites_[site];
    if (condition.count == ObservedSite::none) return {};
    if (condition.otherwise != ObservedSite::none) return counts_[condition.otherwise];
    // That of an `if` comes to nothing else whenever the statement is reached.
    Count count = reached(condition.owner);
    count.tree -= counts_[condition.count].tree;
    count.code -= counts_[condition.count].code;
    return count;
}

bool Observation::where(std::vector<std::size_t>& stack) const {
    stack.clear();
    const long first = load(position_);
    for (long position = first; position > 1;) {
        const std::size_t site = siteOf(position);
        // The script runs on meanwhile, and a function may call itself.
        const auto isIn = [&](std::size_t inner) {
            return sites_[inner].function == sites_[site].function;
        };
        if (site >= sites_.size() || std::any_of(stack.begin(), stack.end(), isIn)) break;
        stack.push_back(site);
        position = load(callers_[sites_[site].function]);
    }
    return first % 2 == 1;
}

// Statements that follow one another share a count, which was taken at the first.
void Observation::forget(std::size_t site) {
    missed_.resize(sites_.size());
    for (; site != ObservedSite::none; site = sites_[site].owner) {
        const std::size_t count = sites_[site].count;
        for (std::size_t next = site + 1; next < sites_.size(); ++next) {
            const ObservedSite::Kind kind = sites_[next].kind;
            if (kind == ObservedSite::Kind::Statement && sites_[next].count == count) {
                ++missed_[next];
            }
            // It did not fall through into the label.
            if (kind == ObservedSite::Kind::Case && sites_[next].otherwise == count) {
                --missed_[next];
            }
        }
    }
}

void Observation::leave(bool isStopped) {
    if (isStopped && has(countsCM)) {
        std::vector<std::size_t> stack;
        where(stack);
        for (const std::size_t site : stack) forget(site);
    }
    std::atomic_ref<long>(position_).store(0, std::memory_order_release);
    // A function that the script did not leave is called anew.
    if (isStopped) std::fill(callers_.begin(), callers_.end(), 0);
    if (listens_) ended();
}

}  // namespace SCR
