#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "cli/records/ScriptRun.h"
#include "cli/script/SourceText.h"
#include "scr/Observation.h"

namespace Cli {

/// Stops a script where its user wants, and tells what its variables hold then. The script runs on
/// one thread, which is the one that uses this class, except where a function says otherwise. It
/// runs in the tree, not in code.
class Debugger final : public SCR::Observation {
public:
    /// Where to stop. A condition and a record narrow a place.
    struct Breakpoint {
        enum class Kind { Line, Function, Record, Message, Reject, Change };
        Kind kind = Kind::Line;
        int id = 0;
        std::string path;       ///< of the file; empty for the script
        int line = 0;           ///< from 1; where it stands, once the script is compiled
        std::string name;       ///< of the function, or of the variable that changes
        std::string condition;  ///< an expression of type Bool; empty: none
        /// The record, or without records how often the place is reached, from 1; 0: any.
        std::int64_t number = 0;
        bool isPlaced = false;  ///< It can stop the script.
        std::string fault;      ///< Why it cannot.
    };
    enum class Reason { Entry, Step, Breakpoint, Pause, Message, Reject, Change, Record };
    struct Stop {
        Reason reason = Reason::Step;
        int breakpoint = 0;  ///< its id, or 0
        std::string text;    ///< the message, the reason of the reject, or the change
    };
    enum class Resume { Go, Into, Over, Out, End };

    /// Who talks to the user.
    class Front {
    public:
        Front() = default;
        Front(const Front&) = delete;
        Front& operator=(const Front&) = delete;
        virtual ~Front() = default;
        /// The script has stopped, until this returns.
        virtual Resume stopped(const Stop& stop) = 0;
        /// A breakpoint found its place, or none.
        virtual void placed(const Breakpoint& breakpoint) = 0;
        /// What became of a record, in a line.
        virtual void recordDone(const std::string& text) = 0;
        virtual void print(std::string_view text) = 0;
    };

    explicit Debugger(Front& front) : Observation(stepsCM), front_(front) {}

    /// Runs the script, whose text is read, to its end.
    ExitStatus run(ScriptRun& run);

    // Any thread.

    /// Gives the id of the new one.
    int add(Breakpoint breakpoint);
    bool remove(int id);
    /// Removes those for which `isWanted` says so.
    void removeIf(const std::function<bool(const Breakpoint&)>& isWanted);
    std::vector<Breakpoint> breakpoints() const;
    /// Stops the script at the next statement.
    void pause();
    /// Ends the evaluation that is under way and, unless it is told otherwise, those to come.
    void cancel(bool isCancelled = true);
    void forgetPause() { isPausing_ = false; }
    /// Ends the script at the next statement.
    void end();
    /// Stops at the first statement of all.
    void stopOnEntry() { next_ = Resume::Into; }

    // While the script is stopped.

    /// Looks for the places of new breakpoints now.
    void placeNew() {
        if (areNew_) place();
    }
    struct Frame {
        std::string function;  ///< empty for the script itself
        std::string path;
        int line = 0;
        int column = 0;
    };
    /// From the innermost outwards.
    std::vector<Frame> frames() const;
    /// The record that the script works on, or 0.
    std::int64_t record() const { return record_; }
    bool hasRecord() const { return current_ != nullptr && record_ != 0; }

    /// What a variable, an element or a field is.
    struct Item {
        std::string name;
        std::string type;
        std::string value;
        std::string expression;      ///< that gives it, and can be assigned to; empty: none
        std::int64_t elements = -1;  ///< of a container
        bool isGlobal = false;
        std::variant<unsigned long, FND::String> step = 0UL;  ///< to it, of an element
    };
    /// A container: a variable, and the elements that lead to it.
    struct Path {
        std::size_t frame = 0;
        std::string name;
        std::vector<std::variant<unsigned long, FND::String>> steps;
    };
    std::vector<Item> variables(std::size_t frame);
    /// `count` elements from number `first` on.
    std::vector<Item> elements(const Path& path, std::size_t first, std::size_t count);
    std::vector<Item> fields();

    struct Answer {
        bool isGood = false;
        std::string text;  ///< the value, or what is wrong
        std::string type;
        std::int64_t elements = -1;
    };
    Answer evaluate(const std::string& text, std::size_t frame);
    /// Assigns the value of the expression `value` to what the expression `target` gives.
    Answer assign(const std::string& target, const std::string& value, std::size_t frame);

    const SourceText& source() const { return source_; }
    bool hasRecords() const { return hasRecords_; }

    // Events.

    void statement(std::size_t site) override;
    void condition(std::size_t site, bool holds) override;
    void entered(std::size_t site) override;
    void left(std::size_t site) override;
    void message(const SCR::Diagnostic& diagnostic) override;
    void ended() override;

private:
    class Prints;
    struct Call {
        std::size_t function;
        std::size_t site;
    };
    struct Placed {
        Breakpoint breakpoint;
        std::size_t site = SCR::ObservedSite::none;
        std::unique_ptr<SCR::Expression> condition;
        std::int64_t reached = 0;
        // What is watched has for each variable of the name.
        std::map<const SCR::Variable*, std::vector<SCR::Content>> last;
    };

    // The elements of a container are watched when they are not more than that.
    static constexpr std::size_t mostWatchedCM = 1000;

    void look(bool isStatement);
    void place();
    bool place(Placed& placed);
    bool applies(Placed& placed);
    std::optional<Stop> findStop(bool isStatement);
    std::optional<Stop> changed(Placed& placed);
    void rejected(const Records::Rejection& rejection);
    void stop(const Stop& stop);
    void obey(Resume resume);
    SCR::Variable* find(const Path& path) const;
    std::size_t siteOf(std::size_t frame) const;
    // Evaluates while the script is stopped; notes what functions of records say.
    void aside(std::vector<std::string>& failures, const std::function<void()>& action);
    static std::string firstOf(const std::vector<SCR::Diagnostic>& messages);

    Front& front_;
    SourceText source_;
    bool hasRecords_ = false;
    SCR::Interpreter* interpreter_ = nullptr;
    Records::CurrentRecord* current_ = nullptr;
    const Records::FieldNames* names_ = nullptr;
    std::int64_t record_ = 0;
    bool isNewRecord_ = false;
    std::vector<Call> calls_;
    Resume next_ = Resume::Go;  // Into, Over and Out are under way
    bool wasStopped_ = false;
    std::size_t depth_ = 0;  // of the calls where the step began
    std::vector<Placed> placed_;
    std::vector<bool> marks_;  // by site
    bool stopsAnywhere_ = false;
    std::size_t sitesPlaced_ = 0;

    std::atomic<bool> isAsked_{false};  // look at what follows
    std::atomic<bool> isPausing_{false};
    std::atomic<bool> isEnding_{false};
    mutable std::mutex mutex_;
    std::vector<Breakpoint> breakpoints_;
    std::atomic<bool> areNew_{false};
    std::atomic<SCR::Interpreter*> evaluating_{nullptr};
    bool isCancelled_ = false;
    SCR::Interpreter* running_ = nullptr;
    int lastId_ = 0;
};

/// A text as a script would write it.
std::string literalOf(std::string_view text);

}  // namespace Cli
