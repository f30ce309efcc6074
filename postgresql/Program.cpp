#include "postgresql/Program.h"

#include <array>
#include <atomic>
#include <functional>

#include "postgresql/Failures.h"
#include "records/script/RecordExtension.h"
#include "scr/run/RunControl.h"

namespace PgApi {

namespace {

using Kind = Failure::Kind;

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

Find findS = nullptr;

}  // namespace

Granted& granted() {
    static Granted made;
    return made;
}

void findBy(Find find) noexcept { findS = find; }

void forgetInterrupt() noexcept { isAskedG = false; }

void interrupt() noexcept {
    isAskedG = true;
    SCR::Interpreter* const working = workingG;
    if (working != nullptr) working->interrupt();
}

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

}  // namespace PgApi
