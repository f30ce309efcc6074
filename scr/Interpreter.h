#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "fnd/Export.h"
#include "fnd/String.h"
#include "fnd/TimeZone.h"
#include "scr/Capabilities.h"
#include "scr/Finding.h"
#include "scr/Limits.h"
#include "scr/Log.h"
#include "scr/Output.h"

namespace SCR {

class AutomataAccount;
class BoolNode;
class CompareInterface;
class Extension;
class FileAccess;
class Function;
class MainExtension;
class Node;
class OpenFiles;
class PendingBuilds;
class PlaceTable;
class RunControl;
class Variable;
struct Analyses;

/// Compiles and executes scripts: the one object that a host program deals with. A compiled script
/// is executed as often as needed; its variables keep their values from one execution to the next.
/// During a compile it is the symbol table and the stack of open blocks that the parser works on.
///
/// An interpreter is used by one thread at a time, but for `interrupt()`. Different interpreters
/// may run in parallel; their parses exclude one another. Nothing is thrown.
///
/// A host's functions, logs and extensions may call the interpreter that is at work: it executes,
/// as often within itself as the limit of the depth and the stack allow, and compiles nothing.
class KESTREL_API Interpreter {
public:
    /// `log` receives all messages; not owned, must outlive the interpreter. Without memory it is
    /// not valid and compiles nothing.
    explicit Interpreter(Log* log);
    Interpreter(const Interpreter&) = delete;
    Interpreter& operator=(const Interpreter&) = delete;
    /// Does what `finish` does, then frees everything.
    ~Interpreter();

    /// Discards the script compiled before and compiles `text`. On success runs the script's
    /// function "BEGIN", if it defines one, and gives true. On failure one message is logged. When
    /// "BEGIN" is stopped, by a limit, an interruption or the failure of a host's function, nothing
    /// is compiled and false given. Compiling is under the limits of time and memory as executing
    /// is. Nothing compiles while the interpreter compiles or executes: called from a host's
    /// function or log then, this and the other compiling functions change nothing, log an error
    /// and give false.
    bool compile(const FND::String& text);
    /// Compiles like `compile` and runs nothing: neither "BEGIN" now nor "END" at the end. Logs a
    /// warning for each case of a `regExprSwitch` that is never reached and, when the script
    /// compiles, for each call that loses values because a function has one set of parameters.
    bool check(const FND::String& text);
    /// Checks, and sets `findings` to all that ties one execution of the script to others or to the
    /// world, in the order of the text: variables that keep what an earlier execution left, and
    /// functions that do not do the same when they are called again, or do it twice. A script
    /// without findings may be executed for the same records again, for parts of them anywhere and
    /// in any order. It errs on the safe side.
    bool check(const FND::String& text, std::vector<Finding>& findings);
    /// Compiles a list of conditions, each ended by ";", and hands them to `target` one by one.
    /// False, after a message, when one does not compile; those before it were handed over. They
    /// may use what the script compiled before declares, and must be gone before the next one.
    bool compileConditions(const FND::String& text, CompareInterface& target);
    /// Compiles one expression of type Bool, without includes, and keeps it for `evaluateQuery`.
    /// False after a message, and no query is kept then. Compiling a script drops the query.
    bool compileQuery(const FND::String& text);

    /// Executes the compiled script once. True when it ran to its end; false when a top-level
    /// statement gave another code, the script was stopped, or no script is compiled.
    bool execute();
    /// Runs the function "END", if a compiled script defines one and it did not run yet; the
    /// destructor does not run it again then. Closes the files that scripts have open, and flushes
    /// the output if something was printed; what fails then is noted in `outputFailures`. False
    /// when it was stopped, as while the reader of a pipe kept it waiting.
    bool finish();
    /// Evaluates the query compiled last into `value`. False, with `value` unchanged, when there is
    /// none or the evaluation was stopped.
    bool evaluateQuery(bool& value);

    /// Evaluates a condition that was handed to a `CompareInterface` of the host, as
    /// `evaluateQuery` does the query. It must be of a compile of this interpreter that no script
    /// followed; see `generation`.
    bool evaluate(BoolNode& condition, bool& value);

    /// Stops what the interpreter compiles or executes at this moment, which gives false then, and
    /// leaves the interpreter usable. False when it does nothing; a later execution is never
    /// stopped. An execution that is just ending may still give true. May be called by any thread.
    bool interrupt();
    /// Stops the running script from a host's function, once that returns: `message` is logged with
    /// the place, and `execute` gives false. False outside of an execution.
    bool fail(const FND::String& message);

    /// A number that changes whenever a script is compiled or dropped: what was bound to the
    /// script before belongs to another generation.
    std::uint64_t generation() const;

    /// Predefines a String constant for every script compiled afterwards; false when the name is
    /// taken.
    bool addGlobalConstant(const FND::String& name, const FND::String& value);

    /// The extension named `name`, or null; the interpreter owns it.
    Extension* extension(const FND::String& name);
    /// True: the interpreter owns `extension` now. False: it is null, one of its name is present,
    /// or an error was logged, and the caller still owns it.
    bool insertExtension(Extension* extension);

    /// Whether the host may use the script: true until a script says otherwise.
    bool isValid() const;
    void isValid(bool valid);

    /// Directories in which include files are looked for, before those of the environment.
    void includePath(const std::vector<FND::String>& directories);

    /// Sets the local zone of this interpreter's scripts, for all executions that follow: "UTC", a
    /// zone of the system's database, such as "Europe/Berlin", or a rule, such as
    /// "CET-1CEST,M3.5.0,M10.5.0/3"; "" for that of the process, which is the one at first. False,
    /// after an error, for a zone that the system does not know; nothing changes then.
    bool timeZone(const FND::String& name);
    /// The local zone of scripts; holds until it is set or the process's zone is read anew.
    const FND::TimeZone& timeZone() const;

    /// What scripts may do; see `Capabilities`. Set for the compiles that follow: what was compiled
    /// before goes on as it may. False, after an error, when a directory cannot be opened, which
    /// grants nothing then, and when there is no memory, which leaves all as it was.
    const Capabilities& capabilities() const;
    bool capabilities(const Capabilities& capabilities);

    /// What scripts may take; see `Limits`. Set for the compiles and executions that follow.
    const Limits& limits() const;
    void limits(const Limits& limits);
    /// Whether what was compiled or executed last was stopped, by a limit, an interruption or the
    /// failure of a host's function.
    bool wasStopped() const;
    /// Whether the script that runs has to stop, by a limit or an interruption: for a host's
    /// function or output that works or waits for long, which gives up then. The script stops when
    /// it returns.
    bool mustStop() const;

    /// For hosts that run scripts on stacks of their own, as fibers do: the lowest address that the
    /// scripts executed from now on may use. Null goes back to the thread's own stack; scripts on
    /// any other stack are held by the limit of the depth alone then.
    void stackEnd(const void* lowest);

    /// Sets where `logStdout` writes; null is `standardOutput()`, as at first. Not owned, and must
    /// outlive the interpreter.
    void output(Output* output);
    /// What became known, since it was cleared last, of outputs that failed: that of `logStdout`
    /// and the files that scripts wrote. It is complete after `finish`.
    OutputFailures& outputFailures();

    // What a log throws is dropped with its message.

    /// How many errors were logged so far.
    std::uint64_t errorCount() const;
    /// Logs `message` as an error.
    void logError(const FND::String& message);
    /// Logs that there is no memory; takes none.
    void logOutOfMemory();
    /// Logs `message` with the given severity.
    void log(const FND::String& message, FND::Status::Severity severity);

    /// Adds `block` to the innermost open block and opens it. False: refused, and the caller still
    /// owns it.
    bool pushStatement(Node* block);
    /// Closes the innermost open block; false when only the main function is open.
    bool popStatement();
    /// The innermost open block, or null.
    Node* topStatement() const;
    /// The number of open blocks, the main function included.
    int statementDepth() const;
    /// Adds a statement to the innermost open block. False: refused, the caller still owns it.
    bool addStatement(Node* statement);
    /// Declares a variable in the innermost open block. False: refused, the caller still owns it.
    bool addIdentifier(const FND::String& name, Variable* variable);
    /// What `name` stands for, or null: the open blocks from the innermost outwards, the host's
    /// constants, then the extensions in the order of insertion. A module restricts the search to
    /// the extension of that name.
    Variable* getVariable(const FND::String& module, const FND::String& name);
    /// Whether `name` is a constant of the host or built in, which are found before what extensions
    /// supply.
    bool isPredefined(const FND::String& name) const;
    /// The user function `name`, or null.
    Function* getFunction(const FND::String& name);
    /// Registers a user function and opens it as a block. True: the interpreter owns it now. False:
    /// the name is taken and the caller still owns it.
    bool pushFunction(const FND::String& name, Function* function);

    /// The number of lines of the text compiled last; 0 when it did not compile.
    std::int64_t compiledLines() const;

    // What the parts of the library ask of one another; hidden from hosts.

    /// What follows the parse under way when it is that of `check`; otherwise null.
    KESTREL_HIDDEN Analyses* analyses() const;
    /// Whether the compile under way is that of `check`.
    bool isChecking() const { return analyses() != nullptr; }
    KESTREL_HIDDEN void compiledLines(std::int64_t lines);
    /// Where the compiled statements and calls stand in the text.
    KESTREL_HIDDEN PlaceTable& places();
    KESTREL_HIDDEN RunControl& runControl();
    /// The files that the script under compilation may use.
    KESTREL_HIDDEN const std::shared_ptr<const FileAccess>& files() const;
    /// Writes `text` to the output for the node `place`, and stops the script if it has to stop
    /// after that. A failure is noted.
    KESTREL_HIDDEN void print(const Node* place, std::string_view text);
    /// The files that scripts have open.
    KESTREL_HIDDEN OpenFiles& openFiles();
    /// What the values of the script's variables take beside the variables themselves, and what its
    /// automata take.
    KESTREL_HIDDEN std::int64_t heapBytes() const;
    /// What its automata and regular expressions take.
    KESTREL_HIDDEN AutomataAccount& automata();
    /// What the compile under way puts off until its parse is over, or null. While it is set,
    /// messages go there.
    KESTREL_HIDDEN PendingBuilds* pendingBuilds() const;
    KESTREL_HIDDEN void pendingBuilds(PendingBuilds* pending);
    /// The built-in library.
    KESTREL_HIDDEN MainExtension& mainExtension();
    /// As the public one; adds to `buffers` what the conditions took.
    KESTREL_HIDDEN bool compileConditions(const FND::String& text, CompareInterface& target,
                                          std::int64_t& buffers);

private:
    class CompileScope;
    class State;

    std::unique_ptr<State> state_;  // null when there was no memory for it
};

}  // namespace SCR
