#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "scr/Extension.h"
#include "scr/Interpreter.h"
#include "scr/os/FileAccess.h"
#include "scr/os/OpenFiles.h"
#include "scr/parser/Preprocessor.h"
#include "scr/run/AutomataAccount.h"
#include "scr/run/Link.h"
#include "scr/run/PlaceTable.h"
#include "scr/run/RunControl.h"
#include "scr/run/SharedScript.h"
#include "scr/tree/SymbolTable.h"
#include "scr/value/ObjectTable.h"

namespace SCR {

class FlowAnalysis;
struct ScriptRecord;

// What becomes known of a call whose outcome is wanted.
struct Interpreter::Watching {
    Outcome::Kind kind = Outcome::Kind::Failed;
    int depth = 0;                              // of the runs around it
    bool isCompile = false;                     // the first error counts, otherwise the last one
    bool isStopped = false;                     // kind, limit and function are known
    bool isExhausted = false;                   // there was no memory
    bool hasError = false;                      // the diagnostic is that of an error
    std::unique_ptr<Outcome::Details> details;  // rarely needed, so it takes no time to make
};

// The whole state of an interpreter.
struct Interpreter::State {
    State(Interpreter& self, Log* sink)
        : interpreter(self), log(sink), control(self), automata(self) {
        link->interpreter = &self;
    }
    ~State() {
        link->interpreter = nullptr;
        link->isReady = false;
        // Before the functions of the host.
        objects.clear();
    }

    // A text, or one that is shared, and what follows its parse or is filled by it.
    struct Source {
        const FND::String* text = nullptr;
        Analyses* follower = nullptr;
        SharedScript* filled = nullptr;
        std::shared_ptr<const SharedScript> shared = {};
    };
    // Runs "BEGIN", unless there are analyses, which then follow the parse.
    bool compileScript(const Source& source);
    bool extendScript(const FND::String& text);
    bool checkScript(const FND::String& text, FlowAnalysis* flow, SharedScript* filled = nullptr);
    bool parseScript(const Source& source);
    Outcome::Kind executeScript();
    bool compileQuery(const FND::String& text);
    bool evaluateQuery(bool& value);
    bool finish();
    // Calls action(), which throws nothing and gives the kind of the outcome; nothing while another
    // thread uses the interpreter.
    template <class Action>
    Outcome watch(bool isCompile, Action action);
    // Calls action(), which tells whether it is done, and tells nothing else.
    template <class Action>
    bool attempt(Action action);
    // Notes, for the outcome, why a call is not possible.
    void refuse(const char* reason);
    void logReentries(const ScriptRecord& record, const FND::String& text);
    void discardScript();
    bool runFunction(const FND::String& name);
    bool expand(const FND::String& text, ExpandedText& expanded);
    void deliver(const Diagnostic& diagnostic) noexcept;
    void dropRunDiagnostics() noexcept {
        if (control.isRunning()) return;
        diagnostics.resize(ofCompile);
        hasRunDiagnostics = false;
    }
    bool flushOutput(bool mayWait);

    Interpreter& interpreter;
    Log* const log;
    const std::shared_ptr<Link> link = std::make_shared<Link>();
    Watching* watching = nullptr;            // of the innermost call whose outcome is wanted
    MainExtension* mainExtension = nullptr;  // owned by the symbols
    std::int64_t compiledLines = 0;
    std::uint64_t errorCount = 0;
    int openLogs = 0;  // nested calls of the log
    bool isCompiling = false;
    bool isChecking = false;
    bool isValid = false;
    bool runsEnd = false;
    bool hasPrinted = false;       // something may wait in the output
    Analyses* analyses = nullptr;  // not owned
    std::vector<Diagnostic> diagnostics;
    std::vector<Diagnostic>* keptMessages = nullptr;  // not owned
    std::size_t ofCompile = 0;                        // the first of them, which no run drops
    bool hasRunDiagnostics = false;                   // there are others
    PendingBuilds* pendingBuilds = nullptr;           // not owned
    std::vector<FND::String> includePath;
    std::vector<FND::String> modulePath;
    std::vector<FND::String> lastIncludePath;
    std::shared_ptr<const FND::TimeZone> timeZone;  // null for the zone of the process
    Capabilities capabilities;
    std::shared_ptr<const FileAccess> files = FileAccess::any();  // granted by `capabilities`
    std::shared_ptr<const FileAccess> includeFiles = files;       // the same for include lines
    PlaceTable places;
    std::size_t scriptPlaces = 0;  // of the script; those of the query follow
    RunControl control;
    OpenFiles openFiles{control};
    Output* output = &standardOutput();  // not owned
    AutomataAccount automata;
    std::shared_ptr<const SharedScript> program;  // whose automata the script uses
    SharedScript* filled = nullptr;               // while it is compiled
    const SharedScript* shared = nullptr;
    ObjectTable objects;
    // These are destroyed first, as they use the rest.
    SymbolTable symbols;
    std::unique_ptr<BoolNode> query;
    std::int64_t queryBuffers = 0;  // bytes taken by the query's nodes
};

template <class Action>
Outcome Interpreter::State::watch(bool isCompile, Action action) {
    const Use use(*link);
    if (!use) return Outcome::refused("another thread uses the interpreter");
    Watching now;
    now.isCompile = isCompile;
    now.depth = control.depth();
    Watching* const outer = std::exchange(watching, &now);
    const Outcome::Kind kind = action();
    watching = outer;
    if (kind <= Outcome::Kind::Returned) [[likely]]
        return Outcome(kind);
    if (now.isExhausted) return Outcome(Outcome::Kind::Failed);
    return {now.isStopped ? now.kind : kind,
            now.details != nullptr ? std::move(*now.details) : Outcome::Details()};
}

template <class Action>
bool Interpreter::State::attempt(Action action) {
    const LightUse use(*link);
    return use && action();
}

}  // namespace SCR
