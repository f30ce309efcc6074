#include "cli/script/ScriptOptions.h"

#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <map>
#include <string_view>

#include "cli/Command.h"
#include "fnd/DateTime.h"
#include "scr/Interpreter.h"
#include "scr/message/Codes.h"
#include "scr/parser/Preprocessor.h"

namespace Cli {
namespace {

bool isIdentifier(const std::string& name) {
    const auto isLetter = [](char byte) {
        return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') || byte == '_';
    };
    return !name.empty() && isLetter(name.front()) &&
           std::all_of(name.begin(), name.end(), [&](char byte) {
               return isLetter(byte) || (byte >= '0' && byte <= '9') || byte == '.';
           });
}

}  // namespace

std::vector<std::string> splitNames(const std::string& names) {
    std::vector<std::string> parts(1);
    for (const char c : names) {
        if (c == ',') {
            parts.emplace_back();
        } else {
            parts.back() += c;
        }
    }
    return parts;
}

void ScriptOptions::declare(CLI::App& command) {
    using Form = MessageStyle::Form;
    CLI::Option* const json = command.add_flag_callback(
        "--json", [this] { form_ = Form::Json; },
        "Write each message as a JSON object in a line of its own");
    CLI::Option* const sarif = command.add_flag_callback(
        "--sarif", [this] { form_ = Form::Sarif; }, "Write the messages as a SARIF report");
    CLI::Option* const log = command.add_flag_callback(
        "--log", [this] { form_ = Form::Log; }, "Write each message as the log of a host gets it");
    sarif->excludes(json)->excludes(log);
    log->excludes(json);
    command
        .add_option("--no-warn", withoutWarnings_,
                    "Leave out the warnings with these codes, such as K0807; may be repeated. A "
                    "comment `kestrel: ignore K0807` does that for its line and the next one")
        ->type_name("CODE,...")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check([](const std::string& code) {
            const auto pages = SCR::messagePages();
            const bool isWarning = std::any_of(pages.begin(), pages.end(), [&](const auto& page) {
                return page.severity < FND::Status::Error && SCR::codeName(page.code) == code;
            });
            return isWarning ? "" : "'" + code + "' is no code of a warning";
        });
    command
        .add_option("-I", includePath_,
                    "Look for include files in DIR, before the directories of KESTREL_INCLUDE; "
                    "may be repeated")
        ->type_name("DIR")
        ->allow_extra_args(false);
    command
        .add_option_function<std::vector<std::string>>(
            "-D",
            [this](const std::vector<std::string>& definitions) {
                for (const std::string& definition : definitions) {
                    const auto equals = definition.find('=');
                    std::string name = definition.substr(0, equals);
                    if (equals == std::string::npos || !isIdentifier(name)) {
                        throw CLI::ValidationError("-D", "'" + definition + "' is not NAME=VALUE");
                    }
                    given_.push_back("-D" + definition);
                    constants_.emplace_back(std::move(name), definition.substr(equals + 1));
                }
            },
            "Give scripts the String constant NAME; may be repeated")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    command
        .add_option_function<std::vector<std::string>>(
            "--limit",
            [this](const std::vector<std::string>& limits) {
                for (const std::string& limit : limits) setLimit(limit);
            },
            "Stop a script that passes a limit: steps, depth, time (in milliseconds), string (in "
            "bytes), elements, memory (in bytes), nesting, source (in bytes), states, patterns (in "
            "bytes) or automata (in bytes), or a job: record, tables (in bytes); none lifts one; "
            "may be "
            "repeated. A number alone: work on so many records at most")
        ->type_name("NAME=VALUE")
        ->allow_extra_args(false);
    command
        .add_option("--tier", tier_,
                    "The highest tier in which scripts run: tree, portable or native (default: the "
                    "highest there is). They differ in speed and memory only")
        ->type_name("TIER")
        ->transform(CLI::CheckedTransformer(
            std::map<std::string, SCR::CodeTier>{{"tree", SCR::CodeTier::Tree},
                                                 {"portable", SCR::CodeTier::Portable},
                                                 {"native", SCR::CodeTier::Native}}));
    command.add_flag("--sandbox", isSandboxed_,
                     "Let scripts neither touch files, run a shell, read the environment, sleep, "
                     "give random values, log messages, load extensions nor include files");
    command
        .add_option_function<std::vector<std::string>>(
            "--allow",
            [this](const std::vector<std::string>& names) {
                for (const std::string& name : names) allow(name);
            },
            "As --sandbox, but allow these: files, shell, env, sleep, use, include, "
            "random, log, all of them, or files below a directory: files=DIR, files-ro=DIR only to "
            "read, include=DIR; may be "
            "repeated")
        ->type_name("NAME,...")
        ->delimiter(',')
        ->allow_extra_args(false);
    command
        .add_option(
            "--zone", zone_,
            "The local time zone of scripts, such as Europe/Berlin or UTC (default: that of "
            "the process; with --records UTC)")
        ->type_name("NAME")
        ->check([](const std::string& name) {
            return FND::TimeZone::find(name) != nullptr ? ""
                                                        : "'" + name + "' is no known time zone";
        });
}

MessageStyle ScriptOptions::messageStyle(const std::string& script) const {
    MessageStyle style;
    style.form = form_;
    style.withoutWarnings = withoutWarnings_;
    const char* const noColour = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    style.hasColour = (noColour == nullptr || *noColour == '\0') && isatty(STDERR_FILENO) != 0 &&
                      terminal != nullptr && std::string_view(terminal) != "dumb";
    style.script = script == "-" ? "standard input" : script;
    return style;
}

std::vector<std::string> ScriptOptions::lastIncludePath() const {
    const auto slash = scriptName_.rfind('/');
    if (scriptName_.empty() || scriptName_.starts_with('-')) return {};
    if (slash == std::string::npos) return {"."};
    return {slash == 0 ? "/" : scriptName_.substr(0, slash)};
}

void ScriptOptions::setLimit(const std::string& text) {
    if (!text.empty() && text.find_first_not_of("0123456789") == std::string::npos) {
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), records_);
        if (error != std::errc()) throw CLI::ValidationError("--limit", "too large: " + text);
        given_.push_back("--limit=" + text);
        return;
    }
    const auto equals = std::min(text.find('='), text.size());
    const std::string name = text.substr(0, equals);
    std::int64_t SCR::Limits::*const limit = SCR::limitOfName(name);
    std::int64_t* const ofJob = name == "record" ? &record_ : name == "tables" ? &tables_ : nullptr;
    if ((limit == nullptr && ofJob == nullptr) || equals == text.size()) {
        throw CLI::ValidationError("--limit", "'" + text + "' names no limit");
    }
    const std::string value = text.substr(equals + 1);
    std::int64_t number = SCR::Limits::none;
    const char* const end = value.data() + value.size();
    const auto read = std::from_chars(value.data(), end, number);
    if (value != "none" && (read.ec != std::errc() || read.ptr != end || number < 0)) {
        throw CLI::ValidationError("--limit", "'" + value + "' is no number of 0 or more");
    }
    (ofJob != nullptr ? *ofJob : limits_.*limit) = number;
    given_.push_back("--limit=" + text);
}

void ScriptOptions::allow(const std::string& name) {
    if (!capabilities_.allow(name)) {
        throw CLI::ValidationError("--allow", "'" + name + "' names no capability");
    }
    isSandboxed_ = true;
    given_.push_back("--allow=" + name);
}

std::optional<std::string> ScriptOptions::expand(const std::string& text) const {
    SCR::PreprocessorOptions options;
    options.searchPath = includePath_;
    options.lastSearchPath = lastIncludePath();
    options.maxBytes = limits_.sourceBytes();
    if (isSandboxed_) options.allow(capabilities_);
    SCR::Preprocessor preprocessor(nullptr, options);
    std::string expanded;
    if (!preprocessor.preprocess(text, expanded)) return std::nullopt;
    return expanded;
}

std::size_t ScriptOptions::mostBytes() const {
    const std::int64_t source = limits_.source;
    if (source > SCR::Limits::none / 4) return SIZE_MAX;
    return static_cast<std::size_t>(2 * source + source / 20 + 1024);
}

std::unique_ptr<SCR::Interpreter> ScriptOptions::makeInterpreter(
    SCR::Log& log, const std::string& defaultZone) const {
    auto interpreter = std::make_unique<SCR::Interpreter>(&log);
    interpreter->limits(limits_);
    interpreter->codeTier(tier_);
    if (!interpreter->timeZone(zone(defaultZone))) return nullptr;
    if (isSandboxed_ && !interpreter->capabilities(capabilities_)) return nullptr;
    interpreter->includePath(includePath_);
    interpreter->lastIncludePath(lastIncludePath());
    for (const auto& [name, value] : constants_) {
        if (interpreter->addGlobalConstant(name, value)) continue;
        report("-D: the constant " + name + " is given twice");
        return nullptr;
    }
    return interpreter;
}

}  // namespace Cli
