#include "scr/check/FlowAnalysis.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "scr/FctDescr.h"
#include "scr/Node.h"
#include "scr/call/CallFacts.h"
#include "scr/check/Change.h"
#include "scr/parser/ParseErrors.h"
#include "scr/parser/ParserStack.h"

namespace SCR {

namespace {

// The most that calls may add to a function from others in all; no real script comes near.
constexpr std::size_t maxStoredS = 2'000'000;

// Why the effects of a function matter; null when they do not.
const char* troubleOf(Effect effects) {
    if (has(effects, Effect::WritesFiles))
        return "works on files, which a repeated execution does again";
    if (has(effects, Effect::Shell)) return "runs a command, which a repeated execution does again";
    if (has(effects, Effect::StandardOutput))
        return "prints, which a repeated execution does again";
    if (has(effects, Effect::ReadsFiles))
        return "reads files, which may differ in a repeated execution";
    if (has(effects, Effect::Environment)) return "reads what may differ between machines";
    if (has(effects, Effect::Clock))
        return "reads the clock, which differs in a repeated execution";
    if (has(effects, Effect::Random))
        return "gives random values, which differ in a repeated execution";
    if (has(effects, Effect::Log)) return "writes messages, which a repeated execution does again";
    if (has(effects, Effect::Position)) return "depends on the place of the execution among others";
    if (has(effects, Effect::LocalZone)) {
        return "depends on the time zone, which may be another one elsewhere";
    }
    if (has(effects, Effect::Mutex) || has(effects, Effect::Sleep)) {
        return "waits, which orders nothing between machines";
    }
    return nullptr;
}

}  // namespace

FlowAnalysis::FlowAnalysis(bool isZoneFixed) : isZoneFixed_(isZoneFixed) {}
FlowAnalysis::~FlowAnalysis() = default;

FlowAnalysis::Place FlowAnalysis::here() { return {parsedFile(), parsedLine(), order_++}; }

void FlowAnalysis::declared(const Variable* variable, const FND::String& name) {
    names_.emplace(variable, name);
}

void FlowAnalysis::access(const Node* node, const Variable* variable) {
    name_ = here();
    if (!names_.contains(variable)) return;  // a constant, a function, or a host's
    const bool isKnown = unit_->isDead || unit_->assigned.contains(variable);
    operands_[node] = {variable, false, isKnown, name_, nullptr};
}

FlowAnalysis::Operand FlowAnalysis::take(const Node* node) {
    const auto found = operands_.find(node);
    if (found == operands_.end()) return {};
    Operand operand = std::move(found->second);
    operands_.erase(found);
    return operand;
}

void FlowAnalysis::element(const Node* container, const Node* index) {
    const Operand key = take(index);
    read(key);
    element_ = take(container);
    look(element_);
    element_.key = key.isElement || element_.isElement ? nullptr : key.variable;
    element_.isElement = true;
}

void FlowAnalysis::elementMade(const Node* node) {
    if (element_.variable != nullptr) operands_[node] = element_;
}

void FlowAnalysis::openCall() { calls_.push_back(name_); }

void FlowAnalysis::call(const FctDescr& function, const ParserStack& stack, int count) {
    const auto callee = functions_.find(&function);
    const bool isOwn = callee != functions_.end();
    std::vector<const Variable*> assigned;
    asked_.reset();
    Guard asked;
    for (int i = 0; i < count; ++i) {
        const Operand operand = take(stack.data(static_cast<std::size_t>(count - 1 - i)));
        if (i < 2 && !operand.isElement) (i == 0 ? asked.container : asked.key) = operand.variable;
        if (operand.variable == nullptr) continue;
        if (i == 0 && has(function.effects(), Effect::Totals)) {
            unit_->totals.emplace(operand.variable, operand.place);
            continue;
        }
        const Change change = isOwn ? Change::None : changeOf(function, i);
        const bool isWhole = change == Change::Whole && !operand.isElement;
        if (!isWhole) read(operand);
        if (change != Change::None) write(operand.variable, operand.place);
        if (isWhole) assigned.push_back(operand.variable);
    }
    for (const Variable* variable : assigned) assign(variable);
    if (function.facts().asksForKey && asked.container != nullptr && asked.key != nullptr) {
        asked_ = asked;
    }
    if (isOwn) {
        callFunction(*callee->second);
    } else {
        Effect effects = function.effects();
        const auto goesByZone = function.facts().goesByZone;
        if (isZoneFixed_ || (goesByZone != nullptr && !goesByZone(stack, count))) {
            effects = without(effects, Effect::LocalZone);
        }
        addEffects(function, effects, calls_.empty() ? name_ : calls_.back());
    }
}

void FlowAnalysis::addEffects(const FctDescr& function, Effect effects, const Place& place) {
    const char* const trouble = troubleOf(effects);
    if (trouble == nullptr) return;
    // Opening the file was reported; that covers what is done with it afterwards.
    const bool hasFile = Node::baseType(function.argType(0)) == TypeCode::File;
    if (hasFile && function.facts().replaces != 0) return;
    unit_->effects.push_back({place, function.name() + " " + trouble});
}

void FlowAnalysis::usesLibrary(const FND::String& name) {
    unit_->effects.push_back(
        {here(), "the functions of the library `" + name + "' may do anything"});
}

bool FlowAnalysis::mayStore(std::size_t entries) {
    stored_ += entries;
    return stored_ <= maxStoredS;
}

void FlowAnalysis::callFunction(const Unit& callee) {
    if (&callee == unit_) return;  // the outer call covers everything
    unit_->callees.push_back(&callee);
    const std::size_t assigned = callee.result ? callee.result->size() : 0;
    const std::size_t looked = callee.observes.size() + callee.grows.size() + callee.totals.size();
    if (!mayStore(callee.needs.size() + callee.writes.size() + looked + assigned)) return;
    for (const auto& [variable, place] : callee.needs) {
        if (!unit_->isDead && !unit_->assigned.contains(variable)) {
            unit_->needs.emplace(variable, place);
        }
    }
    for (const auto& [variable, place] : callee.observes) {
        if (!unit_->isDead && !unit_->assigned.contains(variable)) {
            unit_->observes.emplace(variable, place);
        }
    }
    for (const auto& [variable, place] : callee.writes) write(variable, place);
    for (const auto& [variable, place] : callee.grows) unit_->grows.emplace(variable, place);
    for (const auto& [variable, place] : callee.totals) unit_->totals.emplace(variable, place);
    if (!callee.result) return;
    for (const Variable* variable : *callee.result) assign(variable);
}

void FlowAnalysis::read(const Operand& operand) {
    if (operand.variable == nullptr) return;
    if (operand.isElement) {
        const Guard guard{operand.variable, operand.key};
        const bool isThere = std::find(guards_.begin(), guards_.end(), guard) != guards_.end();
        if (!isThere) unit_->grows.emplace(operand.variable, operand.place);
    } else if (!operand.isKnown) {
        unit_->needs.emplace(operand.variable, operand.place);
        unit_->observes.emplace(operand.variable, operand.place);
    }
}

void FlowAnalysis::look(const Operand& container) {
    if (container.variable == nullptr || container.isElement || container.isKnown) return;
    unit_->needs.emplace(container.variable, container.place);
}

void FlowAnalysis::write(const Variable* variable, const Place& place) {
    std::erase_if(guards_, [&](const Guard& guard) {
        return guard.container == variable || guard.key == variable;
    });
    unit_->writes.emplace(variable, place);
}

void FlowAnalysis::assign(const Variable* variable) {
    if (unit_->assigned.insert(variable).second) unit_->trail.push_back(variable);
}

void FlowAnalysis::forget(std::size_t length) {
    while (unit_->trail.size() > length) {
        unit_->assigned.erase(unit_->trail.back());
        unit_->trail.pop_back();
    }
}

void FlowAnalysis::complete() {
    for (const auto& [node, operand] : operands_) read(operand);
    operands_.clear();
    asked_.reset();
    mark_ = unit_->trail.size();
}

void FlowAnalysis::open(bool hasWays) {
    const std::optional<Guard> guard = hasWays ? asked_ : std::nullopt;
    complete();
    Structure structure;
    structure.hasWays = hasWays;
    structure.isOpen = hasWays;
    structure.wasDead = unit_->isDead;
    structure.base = unit_->trail.size();
    structure.guards = guards_.size();
    if (guard) guards_.push_back(*guard);
    structures_.push_back(std::move(structure));
}

void FlowAnalysis::merge(std::optional<Variables>& common, std::size_t base) const {
    const auto& trail = unit_->trail;
    Variables way(trail.begin() + static_cast<std::ptrdiff_t>(base), trail.end());
    if (common) {
        std::erase_if(way, [&](const Variable* variable) { return !common->contains(variable); });
    }
    common = std::move(way);
}

void FlowAnalysis::leaveGuards(const Structure& structure) {
    if (guards_.size() > structure.guards) guards_.resize(structure.guards);
}

void FlowAnalysis::nextWay() {
    complete();
    Structure& structure = structures_.back();
    forget(structure.base);
    leaveGuards(structure);
    mark_ = unit_->trail.size();
    unit_->isDead = structure.wasDead;
    structure.isOpen = true;
}

void FlowAnalysis::endWay() {
    complete();
    Structure& structure = structures_.back();
    if (structure.isOpen && !unit_->isDead) merge(structure.common, structure.base);
    forget(structure.base);
    leaveGuards(structure);
    mark_ = unit_->trail.size();
    unit_->isDead = structure.wasDead;
    structure.isOpen = false;
}

void FlowAnalysis::isExhaustive() { structures_.back().isExhaustive = true; }

void FlowAnalysis::close() {
    complete();
    if (structures_.back().hasWays) endWay();
    leaveGuards(structures_.back());
    const Structure structure = std::move(structures_.back());
    structures_.pop_back();
    if (!structure.hasWays || !structure.isExhaustive) return;
    if (structure.common) {
        for (const Variable* variable : *structure.common) assign(variable);
    } else {
        unit_->isDead = true;
    }
    mark_ = unit_->trail.size();
}

void FlowAnalysis::forCondition() {
    complete();
    forMark_ = unit_->trail.size();
}

void FlowAnalysis::forBody() {
    complete();
    forget(forMark_);
    openWays();
}

void FlowAnalysis::openFunction(const FctDescr* descriptor) {
    complete();
    auto function = std::make_unique<Unit>();
    unit_ = function.get();
    byName_[descriptor->name()] = unit_;
    guards_.clear();
    functions_[descriptor] = std::move(function);
    mark_ = 0;
}

void FlowAnalysis::parameter(const Variable* variable) { assign(variable); }

void FlowAnalysis::returns() {
    complete();
    if (unit_ == &main_ || unit_->isDead) return;
    merge(unit_->result, 0);
    unit_->isDead = true;
}

void FlowAnalysis::closeFunction() {
    returns();
    unit_ = &main_;
    mark_ = unit_->trail.size();
}

const FlowAnalysis::Unit* FlowAnalysis::function(const char* name) const {
    const auto found = byName_.find(name);
    return found != byName_.end() ? found->second : nullptr;
}

std::vector<Finding> FlowAnalysis::findings() const {
    struct Found {
        Place place;
        FND::String text;
        bool isState;
    };
    std::vector<Found> all;
    const Unit* const end = function("END");
    std::unordered_set<const Unit*> reached;
    std::vector<const Unit*> open{&main_, function("BEGIN"), end};
    while (!open.empty()) {
        const Unit* const unit = open.back();
        open.pop_back();
        if (unit == nullptr || !reached.insert(unit).second) continue;
        open.insert(open.end(), unit->callees.begin(), unit->callees.end());
        for (const Effects& effects : unit->effects) {
            all.push_back({effects.place, effects.text, false});
        }
    }
    const auto carried = [&](const Unit& reader, const char* before, const char* after) {
        const auto add = [&](const Variable* variable, const Place& place, const Place& given,
                             const char* how) {
            FND::String where = "line " + std::to_string(given.line);
            if (given.file != place.file) {
                where += given.file.empty() ? FND::String(" of the script") : " of " + given.file;
            }
            all.push_back(
                {place, before + ("`" + names_.at(variable)) + "'" + after + how + where, true});
        };
        for (const auto& [variable, place] : reader.needs) {
            const auto writer = main_.writes.find(variable);
            if (writer != main_.writes.end()) add(variable, place, writer->second, "assigned in ");
        }
        for (const auto& [variable, place] : reader.observes) {
            const auto grower = main_.grows.find(variable);
            if (grower == main_.grows.end() || main_.writes.contains(variable)) continue;
            add(variable, place, grower->second, "where looking up an element makes it: ");
        }
    };
    const auto complain = [&](const Places& places, const char* what) {
        for (const auto& [variable, place] : places) {
            if (!main_.totals.contains(variable)) continue;
            all.push_back({place, "the total `" + names_.at(variable) + "' " + what, true});
        }
    };
    complain(main_.needs, "is complete only in END");
    complain(main_.writes, "is changed by other means than totals");
    if (const Unit* const begin = function("BEGIN")) {
        complain(begin->writes, "is changed by other means than totals");
    }
    carried(main_, "", " keeps what earlier executions left in it, ");
    if (end != nullptr) {
        carried(*end, "END reads ",
                ", which holds what the executions of one interpreter left in it, ");
    }
    if (stored_ > maxStoredS) all.push_back({Place(), "too large to be followed", true});
    std::sort(all.begin(), all.end(), [](const Found& a, const Found& b) {
        return std::tie(a.place.order, a.text) < std::tie(b.place.order, b.text);
    });
    std::vector<Finding> findings;
    findings.reserve(all.size());
    for (Found& found : all) {
        findings.push_back(
            {found.place.file, found.place.line, std::move(found.text), found.isState});
    }
    return findings;
}

}  // namespace SCR
