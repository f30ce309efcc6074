#include "postgresql/Engine.h"

#include <algorithm>
#include <functional>
#include <list>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "postgresql/Failures.h"
#include "postgresql/Program.h"

namespace PgApi {

namespace {

// The programs that a backend keeps, the last one used first.
class Programs {
public:
    void clear() {
        byText_.clear();
        kept_.clear();
    }

    Program* get(std::string_view text, Wanted wanted) {
        if (!kept_.empty() && is(kept_.front(), text, wanted)) return &kept_.front();
        const auto found = byText_.find({text, wanted});
        if (found != byText_.end()) {
            kept_.splice(kept_.begin(), kept_, found->second);
            return &kept_.front();
        }
        std::list<Program> made;
        if (!made.emplace_back(text, wanted).compile()) return nullptr;
        while (!kept_.empty() && kept_.size() >= granted().programs) {
            byText_.erase({kept_.back().text(), kept_.back().wanted()});
            kept_.pop_back();
        }
        byText_.emplace(Key{made.front().text(), wanted}, made.begin());
        kept_.splice(kept_.begin(), made);
        return &kept_.front();
    }

private:
    struct Key {
        std::string_view text;  // that of the program itself
        Wanted wanted;
        bool operator==(const Key&) const = default;
    };
    struct Hash {
        std::size_t operator()(const Key& key) const {
            return std::hash<std::string_view>()(key.text) + static_cast<std::size_t>(key.wanted);
        }
    };

    static bool is(const Program& program, std::string_view text, Wanted wanted) {
        return program.wanted() == wanted && program.text() == text;
    }

    std::list<Program> kept_;
    std::unordered_map<Key, std::list<Program>::iterator, Hash> byText_;
};

Programs& programs() {
    // Never destroyed: a backend ends at any moment, and scripts do not run then.
    static auto* const made = new Programs;
    return *made;
}

std::vector<std::string>& warnings() {
    static std::vector<std::string> made;
    return made;
}

void allow(std::string_view names, Granted& to) {
    while (!names.empty()) {
        const std::size_t end = std::min(names.find(','), names.size());
        std::string_view name = names.substr(0, end);
        names.remove_prefix(std::min(end + 1, names.size()));
        while (name.starts_with(' ')) name.remove_prefix(1);
        while (name.ends_with(' ')) name.remove_suffix(1);
        if (!name.empty() && !to.capabilities.allow(FND::String(name))) {
            to.problem = "kestrel.capabilities: there is no \"" + std::string(name) + "\"";
        }
    }
}

}  // namespace

void configure(const Settings& settings) noexcept {
    guarded(
        [&] {
            programs().clear();
            Granted now;
            now.limits.time = settings.milliseconds;
            now.limits.memory = settings.bytes;
            now.limits.automata = std::min(now.limits.automata, settings.bytes);
            now.limits.patterns = std::min(now.limits.patterns, settings.bytes);
            if (settings.steps >= 0) now.limits.steps = settings.steps;
            now.zone = settings.zone;
            now.programs = settings.programs;
            allow(settings.capabilities, now);
            granted() = std::move(now);
            return true;
        },
        false);
}

Program* program(const char* text, std::size_t size, Wanted wanted, bool isProven) noexcept {
    return guarded(
        [&]() -> Program* {
            Program* const made = programs().get({text, size}, wanted);
            return made != nullptr && (!isProven || made->prove()) ? made : nullptr;
        },
        nullptr);
}

bool check(const char* text, std::size_t size, Wanted wanted) noexcept {
    return guarded(
        [&] {
            warnings().clear();
            Program checked({text, size}, wanted);
            return checked.check(warnings());
        },
        false);
}

std::size_t warningCount() noexcept { return warnings().size(); }

const char* warning(std::size_t index) noexcept { return warnings()[index].c_str(); }

const Failure& failure() noexcept { return told().failure; }

std::size_t padding() noexcept { return Records::JsonRecord::paddingCM; }

bool run(Program& program, const char* json, std::size_t size) noexcept {
    return guarded([&] { return program.run({json, size}); }, false);
}

Value printed(const Program& program) noexcept { return textValue(program.printed()); }

bool isDropped(const Program& program) noexcept { return program.isDropped(); }

bool result(Program& program, Value& value) noexcept {
    return guarded([&] { return value = program.result(), true; }, false);
}

std::size_t rowCount(const Program& program) noexcept { return program.rows().size(); }

Value row(const Program& program, std::size_t index) noexcept {
    return textValue(program.rows()[index]);
}

void forgetRows(Program& program) noexcept { program.forgetRows(); }

bool columns(Program& program, const Column* columns, std::size_t count, Value* values) noexcept {
    return guarded([&] { return program.columns(columns, count, values); }, false);
}

}  // namespace PgApi
