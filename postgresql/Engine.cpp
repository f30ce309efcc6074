#include "postgresql/Engine.h"

#include <array>
#include <atomic>
#include <deque>
#include <functional>
#include <list>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <variant>
#include <vector>

#include "records/script/CurrentRecord.h"
#include "records/script/RecordExtension.h"
#include "scr/Diagnostic.h"
#include "scr/HostExtension.h"
#include "scr/Interpreter.h"
#include "scr/Output.h"
#include "scr/ScriptHandle.h"
#include "scr/run/RunControl.h"

namespace PgApi {

namespace {

using Kind = Failure::Kind;

// What a backend keeps of the settings.
struct Granted {
    SCR::Limits limits;
    SCR::Capabilities capabilities = SCR::Capabilities::none();
    std::string problem;  // why nothing can be run under the settings
    std::string zone = "UTC";
    std::size_t programs = 1;
};

Granted& granted() {
    static Granted made;
    return made;
}

// The last failure, with its texts.
struct Told {
    Failure failure;
    std::string message;
    std::string place;
    std::string detail;
    std::string cure;
};

Told& told() {
    static Told made;
    return made;
}

// The number of the character at a place of the script, from 1.
int positionOf(std::string_view text, const SCR::Diagnostic::Place& place) {
    if (place.line <= 0 || !place.file.empty()) return 0;
    std::size_t at = 0;
    for (int line = 1; line < place.line; ++line) {
        at = text.find('\n', at);
        if (at == std::string_view::npos) return 0;
        ++at;
    }
    int characters = 0;
    for (std::size_t i = 0; i < at; ++i) {
        if ((static_cast<unsigned char>(text[i]) & 0xC0) != 0x80) ++characters;
    }
    return characters + (place.column > 0 ? place.column : 1);
}

std::string spell(const SCR::Diagnostic::Place& place) {
    if (place.line <= 0) return {};
    std::string made = place.file.empty() ? "" : place.file + ": ";
    made += "line " + std::to_string(place.line);
    if (place.column > 0) made += ", column " + std::to_string(place.column);
    return made;
}

bool tell(Kind kind, std::string message, std::string detail = {}) {
    Told& last = told();
    last.message = std::move(message);
    last.detail = std::move(detail);
    last.place.clear();
    last.cure.clear();
    last.failure = {kind, last.message.c_str(), "", last.detail.c_str(), "", 0};
    return false;
}

bool tell(Kind kind, const SCR::Diagnostic& diagnostic, std::string_view text) {
    constexpr std::string_view prefix = "ERROR: ";
    std::string message = diagnostic.headline();
    if (message.starts_with(prefix)) message.erase(0, prefix.size());
    tell(kind, message.empty() ? "out of memory" : std::move(message));
    Told& last = told();
    last.place = spell(diagnostic.place);
    last.cure = diagnostic.cure.find("--allow") == std::string::npos
                    ? diagnostic.cure
                    : "The setting kestrel.capabilities grants rights.";
    last.failure.place = last.place.c_str();
    last.failure.cure = last.cure.c_str();
    last.failure.position = positionOf(text, diagnostic.place);
    return false;
}

// What went wrong is told whatever it was.
template <class Action>
auto guarded(Action&& action, decltype(action()) otherwise) noexcept {
    try {
        return action();
    } catch (const std::exception& error) {
        told().failure = {Kind::Limit, "out of memory", "", "", "", 0};
    } catch (...) {
        told().failure = {Kind::Limit, "unknown exception", "", "", "", 0};
    }
    return otherwise;
}

// The interpreter that works now; a signal handler reads it.
std::atomic<SCR::Interpreter*> workingG{nullptr};
// Whether what runs next is to be stopped, as nothing ran when that was asked for.
std::atomic<bool> isAskedG{false};
static_assert(std::atomic<SCR::Interpreter*>::is_always_lock_free);

class Working {
public:
    explicit Working(SCR::Interpreter& interpreter) { workingG = &interpreter; }
    Working(const Working&) = delete;
    Working& operator=(const Working&) = delete;
    ~Working() { workingG = nullptr; }
    /// Whether it may begin.
    explicit operator bool() const { return !isAskedG; }
};

// Keeps the first error of a run.
class RunLog final : public SCR::Log {
public:
    void diagnose(const SCR::Diagnostic& message) override {
        if (message.logSeverity >= FND::Status::Error && !first) first = message;
    }

    std::optional<SCR::Diagnostic> first;
};

class Prints final : public SCR::Output {
public:
    static constexpr std::size_t mostBytesCM = std::size_t{64} << 10;

    bool write(std::string_view added) override {
        constexpr std::size_t characterCM = 4;
        if (text.size() > mostBytesCM - characterCM) return true;
        std::size_t end = added.size();
        if (text.size() + end > mostBytesCM) {  // no part of a character
            end = mostBytesCM - text.size();
            while (end > 0 && (static_cast<unsigned char>(added[end]) & 0xC0) == 0x80) --end;
        }
        text += added.substr(0, end);
        return true;
    }

    std::string text;
};

Find findS = nullptr;

using Index = std::optional<long>;
using SCR::FieldAlias;

Value textValue(std::string_view text) { return {false, 0, text.data(), text.size()}; }

}  // namespace

class Program {
public:
    Program(std::string_view text, Wanted wanted)
        : text_(text),
          wanted_(wanted),
          current_({}, givesRecord(wanted), Records::OnError::Reject) {}
    Program(const Program&) = delete;
    Program& operator=(const Program&) = delete;
    ~Program() {
        interpreter_.skipEnd();
        current_.leave();
    }

    const std::string& text() const { return text_; }
    Wanted wanted() const { return wanted_; }

    bool compile();
    bool prove();
    bool check(std::vector<std::string>& warnings);
    bool run(std::string_view json);
    bool isDropped() const { return current_.isDropped; }
    const std::string& printed() const { return prints_.text; }
    Value result();
    const std::vector<std::string>& rows() const { return rows_; }
    void forgetRows() { rows_ = {}; }
    bool columns(const Column* columns, std::size_t count, Value* values);

private:
    template <class T>
    struct Bound {
        SCR::ScriptVariable<T> handle;
    };
    using AnyBound = std::variant<Bound<long>, Bound<bool>, Bound<std::string_view>,
                                  Bound<FND::Decimal>, Bound<FND::DateTime>>;
    struct BoundColumn {
        std::string name;
        Type type;
        AnyBound handle;
        std::string text;
    };

    // A way that the script names.
    struct NamedPath {
        std::deque<std::string> names;
        std::vector<Name> parts;
    };

    static bool givesRecord(Wanted wanted) {
        return wanted == Wanted::Json || wanted == Wanted::Rows;
    }

    bool prepare();
    void addFunctions(SCR::HostExtension& host);
    void addReaders(SCR::HostExtension& host);
    long addPath(std::string_view name);
    Field find(FieldAlias alias, Index i, Index j, Index k, bool isSpelled);
    void write(SCR::Interpreter& running);
    bool fail(const SCR::Outcome& outcome, Kind kind);
    bool bind(const Column* columns, std::size_t count);
    template <class T>
    AnyBound bindTo(const char* name) {
        return Bound<T>{interpreter_.variable<T>(name)};
    }
    Value read(BoundColumn& column, SCR::Outcome& outcome);

    const std::string text_;
    const Wanted wanted_;
    RunLog log_;
    Prints prints_;
    Records::CurrentRecord current_;
    SCR::Interpreter interpreter_{&log_};
    std::optional<SCR::HostVariable<FND::Decimal>> number_;
    std::optional<SCR::HostVariable<FND::String>> string_;
    std::optional<SCR::HostVariable<bool>> truth_;
    std::optional<SCR::HostVariable<FND::DateTime>> date_;
    std::deque<NamedPath> paths_;
    bool isPrepared_ = false;
    bool hasRecord_ = false;
    std::optional<std::vector<SCR::Finding>> findings_;
    std::vector<std::string> rows_;
    std::size_t rowBytes_ = 0;
    std::vector<BoundColumn> columns_;
    std::string spelled_;  // the result, or the record
};

long Program::addPath(std::string_view name) {
    NamedPath& path = paths_.emplace_back();
    for (std::size_t begin = 0; begin <= name.size();) {
        const std::size_t end = std::min(name.find('.', begin), name.size());
        const std::string& part = path.names.emplace_back(name.substr(begin, end - begin));
        path.parts.push_back({part.data(), part.size()});
        begin = end + 1;
    }
    return static_cast<long>(paths_.size()) - 1;
}

Field Program::find(FieldAlias alias, Index i, Index j, Index k, bool isSpelled) {
    std::array<long, 3> indices{};
    std::size_t count = 0;
    for (const Index& index : {i, j, k}) {
        if (index) indices[count++] = *index;
    }
    const std::vector<Name>& parts = paths_[static_cast<std::size_t>(alias.id())].parts;
    Field field;
    if (!hasRecord_) return field;  // "BEGIN" runs when the program is compiled
    if (!findS({parts.data(), parts.size(), indices.data(), count}, isSpelled, field)) {
        interpreter_.fail("the record cannot be read");
    } else if (field.isBroken && isSpelled) {
        current_.fail("its path leads through what is no object or array", alias.name());
    }
    return field;
}

// The functions that read fields, for results that are no record.
void Program::addReaders(SCR::HostExtension& host) {
    using Held = Field::Kind;
    const auto text = [this](FieldAlias field, Index i, Index j, Index k) {
        const Field found = find(field, i, j, k, true);
        return std::string_view(found.data, found.size);
    };
    host.fieldIds([this](const FND::String& name) { return addPath(name); });
    host.function("edrString", text)->mayRunScript(false);
    host.function("edrLong",
                  [this](FieldAlias field, Index i, Index j, Index k) {
                      const Field found = find(field, i, j, k, true);
                      if (found.kind == Held::False || found.kind == Held::True) {
                          return found.kind == Held::True ? 1L : 0L;
                      }
                      return current_.asLong(field.name(), {found.data, found.size});
                  })
        ->mayRunScript(false);
    host.function("edrDecimal",
                  [this, text](FieldAlias field, Index i, Index j, Index k) {
                      return current_.asDecimal(field.name(), text(field, i, j, k));
                  })
        ->mayRunScript(false);
    host.function("edrDate",
                  [this, text](FieldAlias field, Index i, Index j, Index k) {
                      return current_.asDate(field.name(), text(field, i, j, k));
                  })
        ->mayRunScript(false);
    host.function("edrMissingInput", [this](FieldAlias field, Index i, Index j, Index k) {
        return find(field, i, j, k, false).kind == Held::Missing;
    });
    host.function("edrEmptyInput", [this](FieldAlias field, Index i, Index j, Index k) {
        const Field found = find(field, i, j, k, false);
        return found.kind == Held::Null || (found.kind == Held::Text && found.size == 0);
    });
    host.function("edrArrayIndex", [this](FieldAlias field, Index i, Index j) {
        const Field found = find(field, i, j, {}, false);
        const bool isNothing = found.kind == Held::Missing || found.kind == Held::Null;
        return found.kind == Held::Array || isNothing ? found.elements : -1L;
    });
}

void Program::addFunctions(SCR::HostExtension& host) {
    if (current_.json) {
        Records::addJsonFunctions(host, current_);
    } else {
        addReaders(host);
    }
    host.function("recordDrop", [this]() { current_.isDropped = true; });
    host.function("recordReject", [this](std::string_view reason) { current_.reject(reason); });
    host.function("recordWrite", [this](SCR::Interpreter& running) { write(running); });
    switch (wanted_) {
        case Wanted::Numeric:
            number_ = host.variable<FND::Decimal>("result");
            break;
        case Wanted::Text:
            string_ = host.variable<FND::String>("result");
            break;
        case Wanted::Bool:
            truth_ = host.variable<bool>("result");
            break;
        case Wanted::Timestamp:
            date_ = host.variable<FND::DateTime>("result");
            break;
        case Wanted::Json:
        case Wanted::Rows:
        case Wanted::Row:
            break;
    }
}

void Program::write(SCR::Interpreter& running) {
    if (wanted_ != Wanted::Rows) {
        running.fail("recordWrite: only eval_rows gives more than one record");
        return;
    }
    const std::string_view record = current_.json->text();
    rowBytes_ += record.size() + sizeof(std::string);
    if (rowBytes_ > static_cast<std::size_t>(granted().limits.memory)) {
        running.fail("recordWrite: the records take more than kestrel.memory_limit");
        return;
    }
    rows_.emplace_back(record);
}

bool Program::prepare() {
    if (isPrepared_) return true;
    const Granted& settings = granted();
    if (!settings.problem.empty()) return tell(Kind::Refused, settings.problem);
    interpreter_.limits(settings.limits);
    interpreter_.output(&prints_);
    if (!interpreter_.capabilities(settings.capabilities)) {
        return tell(Kind::Refused, log_.first ? log_.first->text : "kestrel.capabilities failed");
    }
    if (!interpreter_.timeZone(settings.zone)) {
        return tell(Kind::Refused, "there is no time zone \"" + settings.zone + "\"");
    }
    current_.isExact = true;
    current_.noteFailure = [this] { interpreter_.logError(current_.rejection().text()); };
    SCR::HostExtension* const host = SCR::HostExtension::insert(interpreter_, "record");
    if (host == nullptr) return tell(Kind::Limit, "out of memory");
    addFunctions(*host);
    isPrepared_ = true;
    return true;
}

bool Program::compile() {
    if (!prepare()) return false;
    const Working working(interpreter_);
    if (!working) return tell(Kind::Interrupted, "interrupted");
    const SCR::Outcome outcome = interpreter_.tryCompile(text_);
    return outcome || fail(outcome, Kind::Text);
}

bool Program::prove() {
    if (!findings_) {
        Program checked(text_, wanted_);
        if (!checked.prepare()) return false;
        const Working working(checked.interpreter_);
        std::vector<SCR::Finding> findings;
        if (!checked.interpreter_.check(text_, findings)) {
            return tell(Kind::Interrupted, "the check of the program was stopped");
        }
        findings_ = std::move(findings);
    }
    if (findings_->empty()) return true;
    const SCR::Finding& first = findings_->front();
    tell(Kind::Unproven, "the program is not proven to be safe in parallel", first.text);
    Told& last = told();
    last.place = spell({first.file, first.line, 0, 0});
    last.cure =
        "`kestrel check --distributable` lists all reasons; or take the function without "
        "\"_parallel\".";
    last.failure.place = last.place.c_str();
    last.failure.cure = last.cure.c_str();
    last.failure.detail = last.detail.c_str();
    return false;
}

bool Program::check(std::vector<std::string>& warnings) {
    if (!prepare()) return false;
    const Working working(interpreter_);
    const SCR::Outcome outcome = interpreter_.tryCheck(text_);
    if (!outcome) return fail(outcome, Kind::Text);
    for (const SCR::Diagnostic& message : interpreter_.diagnostics()) {
        if (!message.isDetail) {
            warnings.push_back(spell(message.place) + ": " + message.headline());
        }
    }
    return true;
}

bool Program::fail(const SCR::Outcome& outcome, Kind kind) {
    using Ended = SCR::Outcome::Kind;
    if (outcome.kind() == Ended::Stopped) {
        kind = outcome.limit().empty() ? Kind::Interrupted : Kind::Limit;
    }
    tell(kind, outcome.diagnostic(), text_);
    if (kind == Kind::Limit) {
        Told& last = told();
        last.cure = outcome.limit() == "time"     ? "The setting kestrel.time_limit gives more."
                    : outcome.limit() == "memory" ? "The setting kestrel.memory_limit gives more."
                    : outcome.limit() == "steps"  ? "The setting kestrel.step_limit gives more."
                                                  : last.cure;
        last.failure.cure = last.cure.c_str();
    }
    return false;
}

bool Program::run(std::string_view json) {
    rows_.clear();
    rowBytes_ = 0;
    prints_.text.clear();
    log_.first.reset();
    if (const char* malformed = current_.begin(0, json)) return tell(Kind::Record, malformed);
    if (number_) *number_ = FND::Decimal::invalid();
    if (string_) *string_ = "";
    if (truth_) *truth_ = false;
    if (date_) *date_ = FND::DateTime();
    SCR::RunControl::InvalidDates& dates = interpreter_.runControl().invalidDates();
    dates = {};
    current_.readsNoDate = false;
    SCR::Outcome outcome;
    {
        const Working working(interpreter_);
        if (!working) return tell(Kind::Interrupted, "interrupted");
        hasRecord_ = true;
        outcome = interpreter_.tryExecute();
        hasRecord_ = false;
    }
    if (!outcome) return fail(outcome, Kind::Record);
    if (dates.areCompared && (dates.areRead || current_.readsNoDate)) {
        current_.fail("no date to compare; ask dateIsValid first",
                      current_.readsNoDate ? std::string_view(current_.noDateField) : "");
    }
    if (log_.first) return tell(Kind::Record, *log_.first, text_);
    if (current_.isRejected()) return tell(Kind::Record, current_.rejection().text());
    if (wanted_ == Wanted::Rows && !current_.isDropped) {
        rows_.emplace_back(current_.json->text());
    }
    return true;
}

Value Program::result() {
    constexpr Value nothing{true, 0, "", 0};
    if (current_.isDropped) return nothing;
    switch (wanted_) {
        case Wanted::Numeric:
            if (!number_->value().isValid()) return nothing;
            spelled_ = number_->value().toPlainString();
            return textValue(spelled_);
        case Wanted::Text:
            return textValue(string_->value());
        case Wanted::Bool:
            return {false, truth_->value() ? 1 : 0, "", 0};
        case Wanted::Timestamp:
            return {!date_->value().isValid(), date_->value().secs(), "", 0};
        case Wanted::Json:
            spelled_ = current_.json->text();
            return textValue(spelled_);
        case Wanted::Rows:
        case Wanted::Row:
            break;
    }
    return nothing;
}

bool Program::bind(const Column* columns, std::size_t count) {
    columns_.clear();
    for (std::size_t i = 0; i < count; ++i) {
        const char* const name = columns[i].name;
        AnyBound handle;
        switch (columns[i].type) {
            case Type::Long:
                handle = bindTo<long>(name);
                break;
            case Type::Bool:
                handle = bindTo<bool>(name);
                break;
            case Type::Text:
                handle = bindTo<std::string_view>(name);
                break;
            case Type::Numeric:
                handle = bindTo<FND::Decimal>(name);
                break;
            case Type::Timestamp:
                handle = bindTo<FND::DateTime>(name);
                break;
        }
        const SCR::Outcome outcome =
            std::visit([](const auto& bound) { return bound.handle.outcome(); }, handle);
        if (!outcome) {
            columns_.clear();
            return fail(outcome, Kind::Refused);
        }
        columns_.push_back({name, columns[i].type, std::move(handle), {}});
    }
    return true;
}

Value Program::read(BoundColumn& column, SCR::Outcome& outcome) {
    const auto get = [&](const auto& bound) {
        auto got = bound.handle.get();
        if (!got) outcome = got.outcome();
        return got.value();
    };
    switch (column.type) {
        case Type::Long:
            return {false, get(std::get<Bound<long>>(column.handle)), "", 0};
        case Type::Bool:
            return {false, get(std::get<Bound<bool>>(column.handle)), "", 0};
        case Type::Text:
            return textValue(get(std::get<Bound<std::string_view>>(column.handle)));
        case Type::Numeric: {
            const FND::Decimal number = get(std::get<Bound<FND::Decimal>>(column.handle));
            column.text = number.toPlainString();
            return {!number.isValid(), 0, column.text.data(), column.text.size()};
        }
        case Type::Timestamp: {
            const FND::DateTime date = get(std::get<Bound<FND::DateTime>>(column.handle));
            return {!date.isValid(), date.secs(), "", 0};
        }
    }
    return {};
}

bool Program::columns(const Column* columns, std::size_t count, Value* values) {
    bool isBound = columns_.size() == count;
    for (std::size_t i = 0; isBound && i < count; ++i) {
        isBound = columns_[i].type == columns[i].type && columns_[i].name == columns[i].name;
    }
    if (!isBound && !bind(columns, count)) return false;
    for (std::size_t i = 0; i < count; ++i) {
        SCR::Outcome outcome;
        values[i] = read(columns_[i], outcome);
        if (!outcome) return fail(outcome, Kind::Refused);
    }
    return true;
}

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

void findBy(Find find) noexcept { findS = find; }

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

void forgetInterrupt() noexcept { isAskedG = false; }

void interrupt() noexcept {
    isAskedG = true;
    SCR::Interpreter* const working = workingG;
    if (working != nullptr) working->interrupt();
}

}  // namespace PgApi
