#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string_view>
#include <vector>

#include "fnd/DateTime.h"
#include "fnd/Export.h"
#include "fnd/String.h"
#include "scr/Capabilities.h"
#include "scr/Limits.h"
#include "scr/Log.h"
#include "scr/Outcome.h"
#include "scr/Output.h"

namespace SCR {

class AutomataAccount;
class BatchOutcome;
class BoolNode;
class Column;
class CompareInterface;
class Extension;
class FileAccess;
class Function;
class MainExtension;
class Node;
class ObjectTable;
class Observation;
class OpenFiles;
class PendingBuilds;
class PlaceTable;
class Program;
class RunControl;
class ScriptHandle;
class Variable;
struct Analyses;
struct Link;
struct SharedScript;
template <class Signature>
class ScriptFunction;
template <class T>
class ScriptVariable;
using NameVisitor = std::function<void(const FND::String& name, const FND::String& extension)>;

/// Compiles and executes scripts: the one object that a host program deals with. A compiled script
/// is executed as often as needed; its variables keep their values from one execution to the next.
/// During a compile the interpreter is also the parser's symbol table and its stack of open blocks.
/// One thread at a time may use an interpreter; only `interrupt()` may come from any thread. What
/// compiles, executes or evaluates, and the handles of variables and functions, refuse to work
/// while another thread does one of these. Functions that give a Bool notice it once the other call
/// has begun; those that give an `Outcome` or a `Result`, and handles, exclude each other for
/// certain. Different interpreters may run in parallel, but only one parses at a time. Nothing is
/// thrown. A host's functions, logs and extensions may call the interpreter while it works: it
/// executes, nested as deep as the limit of depth and the stack allow, but compiles nothing.
class KESTREL_API Interpreter {
public:
    /// `log` receives all messages; not owned, must outlive the interpreter. When there is no
    /// memory, the new interpreter is not valid and compiles nothing.
    explicit Interpreter(Log* log);
    /// Makes an interpreter as the setup of `program` says, and does what `compile(program)` does;
    /// `isValid` is false when that fails.
    explicit Interpreter(const Program& program, Log* log = nullptr);
    Interpreter(const Interpreter&) = delete;
    Interpreter& operator=(const Interpreter&) = delete;
    /// Does what `finish` does, then frees everything.
    ~Interpreter();

    /// Discards the script compiled before and compiles `text`. On success runs the script's
    /// function "BEGIN", if it defines one, and gives true. On failure one message is logged. When
    /// a limit, an interruption or the failure of a host's function stops "BEGIN", nothing is
    /// compiled and the result is false. The limits of time and memory hold for compiling as they
    /// do for executing. While the interpreter compiles or executes, nothing else compiles: when a
    /// host's function or log calls this or another compiling function then, it changes nothing,
    /// logs an error and gives false.
    bool compile(const FND::String& text);
    /// Does the same with the text of a program, which is expanded and checked already and whose
    /// automata exist. The interpreter must have the extensions that the program's setup gives, and
    /// keeps a share of the program.
    bool compile(const Program& program);
    /// Compiles `text` as more of the script that is compiled, and executes only that, now and
    /// never again: it may use what the script declares, and declare more. It may also declare a
    /// name once more; what was compiled before goes on with what the name meant then. False when
    /// it does not compile, which leaves the script as it was, and when it was stopped or gave a
    /// code.
    bool extend(const FND::String& text);
    /// Compiles like `compile` and runs nothing: neither "BEGIN" now nor "END" at the end. Logs a
    /// warning for each case of a `regExprSwitch` that is never reached and, when the script
    /// compiles, for each call that loses values because a function has one set of parameters.
    bool check(const FND::String& text);
    /// Checks, and fills `findings`, in the order of the text, with everything that ties one
    /// execution of the script to others or to the world: variables that keep what an earlier
    /// execution left, and functions that do something else, or do it twice, when they are called
    /// again. A script without findings does the same wherever, in whatever order and however often
    /// it is executed. When in doubt, it reports a finding.
    bool check(const FND::String& text, std::vector<Finding>& findings);
    /// Compiles a list of conditions, each ended by ";", and hands them to `target` one by one.
    /// False, after a message, when one does not compile; `target` already has those before it.
    /// Conditions may use what the script compiled before declares, and must be gone before the
    /// next compile of a script.
    bool compileConditions(const FND::String& text, CompareInterface& target);
    /// Compiles one expression of type Bool, without includes, and keeps it for `evaluateQuery`.
    /// False after a message; no query is kept then. Compiling a script drops the query.
    bool compileQuery(const FND::String& text);

    /// The messages since the last compile, check, query or list of conditions began, in their
    /// order, without those that the next one says in more words; of runs those of the last
    /// `execute` and what followed it, at most the first hundred. Valid until the next message,
    /// compile or execution.
    const std::vector<Diagnostic>& diagnostics() const;

    /// Executes the compiled script once. True when it ran to its end; false when a top-level
    /// statement gave another code, the script was stopped, or no script is compiled.
    bool execute();
    /// Runs the function "END", if a compiled script defines one and it has not run yet; the
    /// destructor does not run it again then. Closes the files that scripts have open, and flushes
    /// the output if something was printed; failures are noted in `outputFailures`. False when it
    /// was stopped, for example while it waited for the reader of a pipe.
    bool finish();
    /// The function "END" of the script compiled last will not run: another interpreter runs it for
    /// the executions of both.
    void skipEnd();
    /// Evaluates the query compiled last into `value`. False, with `value` unchanged, when there is
    /// none or the evaluation was stopped.
    bool evaluateQuery(bool& value);

    // The same, with the outcome as a value.

    Outcome tryCompile(const FND::String& text);
    Outcome tryCompile(const Program& program);
    Outcome tryCheck(const FND::String& text);
    Outcome tryCompileQuery(const FND::String& text);
    Outcome tryExecute();
    Outcome tryFinish();
    Result<bool> tryQuery();

    /// Executes the script for `count` records, whose inputs and outputs lie in `columns`, from
    /// scr/Batch.h. Every record is an execution of its own under the limits, and the batch ends
    /// after the first that goes wrong. `first` is the number of the first record, to go on after
    /// one. Refused, with nothing done, when a column names no variable of its type or is too
    /// short.
    BatchOutcome executeBatch(std::span<const Column> columns, std::size_t count,
                              std::size_t first = 0);

    /// The variable `name` of the script, or one that its extensions declare ("module::name" of a
    /// certain one); a dead handle, whose `outcome` says why, when there is none that can be read
    /// as a `T`. Defined in scr/ScriptHandle.h.
    template <class T>
    ScriptVariable<T> variable(const FND::String& name);
    /// The function `name` of the script, such as `function<long(std::string_view)>("f")`; a dead
    /// handle when there is none of this signature. Defined in scr/ScriptHandle.h.
    template <class Signature>
    ScriptFunction<Signature> function(const FND::String& name);

    /// Evaluates a condition that was handed to a `CompareInterface` of the host, as
    /// `evaluateQuery` evaluates the query. This interpreter must have compiled it, and no other
    /// script since then; see `generation`.
    bool evaluate(BoolNode& condition, bool& value);

    /// Stops the compile or execution that is running, which gives false then; the interpreter
    /// stays usable. False when nothing is running; a later execution is never stopped. An
    /// execution that is just ending may still give true. May be called by any thread.
    bool interrupt();
    /// Stops the running script from a host's function, as soon as that returns: `message` is
    /// logged with the place, and `execute` gives false. False outside of an execution.
    bool fail(const FND::String& message);

    /// A number that changes whenever a script is compiled or dropped: whatever was bound to the
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

    /// Directories in which extension libraries are looked for, after those of the system's loader
    /// and before those of the environment's KESTREL_MODULES.
    void modulePath(const std::vector<FND::String>& directories);
    KESTREL_HIDDEN const std::vector<FND::String>& modulePath() const;

    /// Directories in which include files are looked for after all others: none at first. A command
    /// that compiles a file gives the directory of that file.
    void lastIncludePath(const std::vector<FND::String>& directories);

    /// Sets the local zone of this interpreter's scripts, for all later executions: "UTC", a zone
    /// of the system's database, such as "Europe/Berlin", or a rule, such as
    /// "CET-1CEST,M3.5.0,M10.5.0/3"; "" for the zone of the process, which is the default. False,
    /// after an error, for a zone that the system does not know; nothing changes then.
    bool timeZone(const FND::String& name);
    /// The local zone of scripts; valid until it is set again or the process's zone is read anew.
    const FND::TimeZone& timeZone() const;

    /// What scripts may do; see `Capabilities`. Holds for later compiles: a script compiled before
    /// keeps its rights. False, after an error, when a directory cannot be opened, which grants
    /// nothing then, and when there is no memory, which changes nothing.
    const Capabilities& capabilities() const;
    bool capabilities(const Capabilities& capabilities);

    /// How much scripts may take; see `Limits`. Holds for later compiles and executions.
    const Limits& limits() const;
    void limits(const Limits& limits);
    /// The highest tier in which scripts run, at most `highestCodeTier()`, which is the default.
    /// Holds for loops and functions that get code later; those that have some keep it. The tiers
    /// differ in speed and memory only.
    CodeTier codeTier() const;
    void codeTier(CodeTier tier);
    /// The highest tier that there is: `Native`, or `Portable` when the library was built without
    /// it or the process may have no executable memory. Any thread.
    static CodeTier highestCodeTier();

    /// Lets `observation`, which is not owned, watch the scripts that are compiled later; null lets
    /// nobody.
    void observe(Observation* observation);
    Observation* observation() const;

    /// Whether the last compile or execution was stopped, by a limit, an interruption or the
    /// failure of a host's function.
    bool wasStopped() const;
    /// Whether the running script has to stop, because of a limit or an interruption. A host's
    /// function or output that works or waits for long asks this and gives up then; the script
    /// stops when it returns.
    bool mustStop() const;

    /// For hosts that run scripts on stacks of their own, such as fibers: the lowest address that
    /// scripts may use in later executions. Null goes back to the thread's own stack; on any other
    /// stack only the limit of depth holds scripts then.
    void stackEnd(const void* lowest);

    /// Sets where `logStdout` writes; null is `standardOutput()`, the default. Not owned; must
    /// outlive the interpreter.
    void output(Output* output);
    /// The failures, since this was last cleared, of outputs: that of `logStdout` and the files
    /// that scripts wrote. Complete after `finish`.
    OutputFailures& outputFailures();

    /// From now on a handle of a mutex stands for the same mutex here and in `other`, as for
    /// scripts that several threads execute, each with an interpreter of its own. When a script is
    /// stopped, it gives up the shared mutexes that it holds. False when a script has created one
    /// here.
    bool shareMutexes(const Interpreter& other);

    // Exceptions of a log are dropped, and so is their message.

    /// How many errors were logged so far.
    std::uint64_t errorCount() const;
    /// Logs `message` as an error.
    void logError(const FND::String& message);
    /// The same from the node `place`, whose operands have the values `arguments`, as messages show
    /// them.
    KESTREL_HIDDEN void logError(const FND::String& message, const Node* place,
                                 const std::vector<FND::String>& arguments);
    /// Logs that there is no memory; needs none for it.
    void logOutOfMemory();
    /// Logs `message` with the given severity.
    void log(const FND::String& message, FND::Status::Severity severity);

    /// Adds `block` to the innermost open block and opens it. False: it was refused, and the caller
    /// still owns it.
    bool pushStatement(Node* block);
    /// The same, but opens `open`, which belongs to `block`.
    KESTREL_HIDDEN bool pushStatement(Node* block, Node* open);
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
    /// What `name` stands for, or null. Searches the open blocks from the innermost outwards, the
    /// host's constants, then the extensions in the order of insertion. A module restricts the
    /// search to the extension of that name.
    Variable* getVariable(const FND::String& module, const FND::String& name);
    /// Whether `name` is a constant of the host or built in; both take precedence over extensions.
    bool isPredefined(const FND::String& name) const;
    /// The user function `name`, or null.
    Function* getFunction(const FND::String& name);
    /// Registers a user function and opens it as a block. True: the interpreter owns it now. False:
    /// the name is taken and the caller still owns it.
    bool pushFunction(const FND::String& name, Function* function);

    /// The number of lines of the text compiled last; 0 when it did not compile.
    std::int64_t compiledLines() const;

    // For bindings to other languages; hosts call `variable` and `function`.

    /// Lets `handle` stand for the variable `name` of the type `shape`: type codes from the
    /// outermost container inwards, none for any type.
    void bindVariable(ScriptHandle& handle, const FND::String& name, std::span<const int> shape);
    /// The same for a function and the shapes of its result and its parameters, none for any.
    void bindFunction(ScriptHandle& handle, const FND::String& name,
                      std::span<const std::span<const int>> shapes);

    // Used by the parts of the library; hidden from hosts.

    /// Calls `action`, unless another thread uses the interpreter, and tells what went wrong.
    KESTREL_HIDDEN Outcome watch(const std::function<Outcome::Kind()>& action);
    /// Notes why the script is being stopped.
    KESTREL_HIDDEN void noteStop(Outcome::Kind kind, const FND::String& limit,
                                 const FND::String& function);
    KESTREL_HIDDEN Link& link();
    /// The open blocks, from the outermost inwards.
    KESTREL_HIDDEN const std::vector<Node*>& openBlocks() const;
    KESTREL_HIDDEN void exchangeBlocks(std::vector<Node*>& blocks);
    /// From now on keeps messages in `messages`, for which nothing is logged; null logs them again.
    /// Gives what was set before.
    KESTREL_HIDDEN std::vector<Diagnostic>* keepMessages(std::vector<Diagnostic>* messages);
    KESTREL_HIDDEN const std::shared_ptr<Link>& sharedLink() const;
    /// Of a script that is compiled.
    KESTREL_HIDDEN Function& mainFunction();
    /// Checks `text` and fills what others compile it from.
    KESTREL_HIDDEN Outcome share(const FND::String& text, SharedScript& script,
                                 std::vector<Finding>& findings);
    /// While a script is compiled: what it fills, and what it uses.
    KESTREL_HIDDEN SharedScript* filledScript() const;
    KESTREL_HIDDEN const SharedScript* sharedScript() const;

    /// The analyses that follow the current parse, when it is that of `check`; otherwise null.
    KESTREL_HIDDEN Analyses* analyses() const;
    /// Counts and passes on a message, or keeps it while there are pending builds.
    KESTREL_HIDDEN void diagnose(Diagnostic diagnostic);
    /// Calls visit(name, extension's name) for all names that extensions and the host give.
    KESTREL_HIDDEN void visitNames(const NameVisitor& visit) const;
    /// Whether the current compile is that of `check`.
    KESTREL_HIDDEN bool isChecking() const;
    KESTREL_HIDDEN void compiledLines(std::int64_t lines);
    /// The places of the compiled statements and calls in the text.
    KESTREL_HIDDEN PlaceTable& places();
    KESTREL_HIDDEN RunControl& runControl() { return *control_; }
    /// The files that the script under compilation may use.
    const std::shared_ptr<const FileAccess>& files() const;
    /// Writes `text` to the output for the node `place`, and stops the script afterwards if it has
    /// to stop. A failure is noted.
    KESTREL_HIDDEN void print(const Node* place, std::string_view text);
    /// The files that scripts have open.
    KESTREL_HIDDEN OpenFiles& openFiles();
    /// Bytes that the values of the script's variables hold outside the variables, and bytes that
    /// its automata take.
    KESTREL_HIDDEN std::int64_t heapBytes() const;
    /// Bytes that its automata and regular expressions take.
    KESTREL_HIDDEN AutomataAccount& automata();
    /// What the current compile puts off until its parse is over, or null. While it is set,
    /// messages go there.
    KESTREL_HIDDEN PendingBuilds* pendingBuilds() const;
    KESTREL_HIDDEN void pendingBuilds(PendingBuilds* pending);
    /// The objects of hosts that its scripts hold.
    KESTREL_HIDDEN ObjectTable& objects();
    /// Gives up the shares of those that the script has dropped, if it is time.
    KESTREL_HIDDEN void dropObjects() noexcept;
    /// The built-in library.
    KESTREL_HIDDEN MainExtension& mainExtension();
    /// Like the public one; adds to `buffers` the bytes that the conditions took, and, when it only
    /// checks, goes on after a mistake.
    KESTREL_HIDDEN bool compileConditions(const FND::String& text, CompareInterface& target,
                                          std::int64_t& buffers, bool isChecking);

private:
    class CompileScope;
    struct State;
    struct Watching;

    // Calls bindTo(variable named so or null), which sets the target or tells why there is none.
    template <class Bind>
    KESTREL_HIDDEN Outcome bind(ScriptHandle& handle, const FND::String& name, const Bind& bindTo);

    std::unique_ptr<State> state_;   // null when there was no memory for it
    RunControl* control_ = nullptr;  // in the state; at hand for the nodes
};

}  // namespace SCR
