#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "postgresql/Engine.h"
#include "records/script/CurrentRecord.h"
#include "scr/HostExtension.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"
#include "scr/Output.h"
#include "scr/ScriptHandle.h"

namespace PgApi {

using Index = std::optional<long>;
using SCR::FieldAlias;

/// What a backend keeps of the settings.
struct Granted {
    SCR::Limits limits;
    SCR::Capabilities capabilities = SCR::Capabilities::none();
    std::string problem;  // why nothing can be run under the settings
    std::string zone = "UTC";
    std::size_t programs = 1;
};

Granted& granted();

/// Keeps the first error of a run.
class RunLog final : public SCR::Log {
public:
    void diagnose(const SCR::Diagnostic& message) override {
        if (message.logSeverity >= FND::Status::Error && !first) first = message;
    }

    std::optional<SCR::Diagnostic> first;
};

/// Keeps what a script prints, up to a size.
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

inline Value textValue(std::string_view text) { return {false, 0, text.data(), text.size()}; }

/// A script, compiled for one kind of result.
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
    bool fail(const SCR::Outcome& outcome, Failure::Kind kind);
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

}  // namespace PgApi
