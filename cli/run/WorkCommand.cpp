#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstring>
#include <exception>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

#include "cli/Command.h"
#include "cli/records/RecordOptions.h"
#include "cli/run/MessageStream.h"
#include "cli/script/ScriptOptions.h"
#include "scr/Interpreter.h"

namespace Cli {
namespace {

struct WorkOptions {
    ScriptOptions script;
    RecordOptions records;
    MessageStream::Source source;
    bool endsWhenDone = false;
    int atOnce = 4;  // messages
    std::string file;
};

/// A file in memory.
class MemoryFile {
public:
    MemoryFile() : descriptor_(memfd_create("message", MFD_CLOEXEC)) {}
    ~MemoryFile() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    MemoryFile(const MemoryFile&) = delete;
    MemoryFile& operator=(const MemoryFile&) = delete;

    /// False, with errno set, when there is no room for it.
    bool write(std::string_view text) {
        while (descriptor_ >= 0 && !text.empty()) {
            const ssize_t written = ::write(descriptor_, text.data(), text.size());
            if (written < 0 && errno != EINTR) return false;
            if (written > 0) text.remove_prefix(static_cast<std::size_t>(written));
        }
        return descriptor_ >= 0;
    }
    std::string path() const { return "/proc/self/fd/" + std::to_string(descriptor_); }

private:
    const int descriptor_;
};

// Leaves the result of a message in the directory.
ExitStatus workOn(const MessageStream::Message& message, const WorkOptions& options,
                  const std::string& expanded, const std::string& text) {
    MemoryFile input;
    const bool lacksEnd = !message.text().empty() && message.text().back() != '\n';
    if (!input.write(message.text()) || !input.write(lacksEnd ? "\n" : "")) {
        report(std::string("a message: ") + std::strerror(errno));
        return ExitStatus::TryAgain;
    }
    RecordOptions records = options.records;
    records.script(expanded);
    records.message(input.path(), options.source.stream, message.number(), !message.isRepeated());
    Manifest manifest;
    manifest.script(expanded);
    manifest.options = options.script.given();
    manifest.arguments = {options.file};
    for (const std::string& directory : options.script.includePath()) {
        manifest.arguments.insert(manifest.arguments.end(), {"-I", directory});
    }
    bool isRefused = false;
    const auto compile = [&](SCR::Interpreter& interpreter) {
        return records.mayShare(interpreter, text, options.file, isRefused) &&
               interpreter.compile(text);
    };
    const ExitStatus status = records.runInDirectory(std::move(manifest), options.script, compile);
    return isRefused ? ExitStatus::Usage : status;
}

// Works on several messages of a stream at once, so that one goes on while another waits for the
// disk that stores its result.
class StreamWork {
public:
    StreamWork(const WorkOptions& options, MessageStream& stream, std::string text)
        : options_(options),
          stream_(stream),
          text_(std::move(text)),
          expanded_(options.script.expand(text_).value_or(text_)) {}

    ExitStatus run() {
        std::vector<std::thread> threads;
        try {
            while (static_cast<int>(threads.size()) + 1 < options_.atOnce) {
                threads.emplace_back([this] { live(); });
            }
        } catch (const std::system_error&) {  // there are fewer, then
        }
        live();
        for (std::thread& thread : threads) thread.join();
        if (error_) std::rethrow_exception(error_);
        return status_ == ExitStatus::Success && !isDone_ ? ExitStatus::Stopped : status_;
    }

private:
    void live() {
        try {
            while (const auto message = next()) {
                // Acknowledged only after the result is on the disk. A message that comes again,
                // since the server does not know that, finds its result there.
                const ExitStatus status = workOn(*message, options_, expanded_, text_);
                if (status == ExitStatus::Success) {
                    message->acknowledge();
                } else {
                    end(status);
                }
            }
        } catch (...) {
            const std::lock_guard lock(mutex_);
            if (!error_) error_ = std::current_exception();
            isOver_ = true;
        }
    }

    // Null when there is nothing more to do.
    std::unique_ptr<MessageStream::Message> next() {
        for (;;) {
            const std::lock_guard lock(mutex_);
            if (isOver_ || stopSignal().isRaised()) return nullptr;
            if (auto message = stream_.next()) return message;
            isOver_ = isDone_ = options_.endsWhenDone && stream_.isDone();
        }
    }

    // The first of several ends counts: it may have caused the others.
    void end(ExitStatus status) {
        const std::lock_guard lock(mutex_);
        if (!isOver_) status_ = status;
        isOver_ = true;
    }

    const WorkOptions& options_;
    MessageStream& stream_;
    const std::string text_;      // of the script,
    const std::string expanded_;  // with its includes
    std::mutex mutex_;            // for all below, and the stream
    bool isOver_ = false;
    bool isDone_ = false;
    ExitStatus status_ = ExitStatus::Success;
    std::exception_ptr error_;
};

ExitStatus work(const WorkOptions& options) {
    const std::optional<std::string> text =
        options.records.script(options.file, options.script.mostBytes());
    if (!text) return ExitStatus::Usage;
    catchSignals();
    std::string error;
    const std::unique_ptr<MessageStream> stream = MessageStream::open(options.source, error);
    if (stream == nullptr) {
        report(error);
        return ExitStatus::TryAgain;
    }
    options.records.removeLeftovers();
    return StreamWork(options, *stream, *text).run();
}

}  // namespace

void addWorkCommand(CLI::App& app, Action& action) {
    auto options = std::make_shared<WorkOptions>();
    CLI::App* command =
        app.add_subcommand("work", "Execute a script for the records in messages of a stream");
    command->add_option("--nats", options->source.url, "The server: nats://HOST:PORT")
        ->type_name("URL")
        ->required();
    command->add_option("--stream", options->source.stream, "The stream, as the server knows it")
        ->type_name("NAME")
        ->required();
    command
        ->add_option("--consumer", options->source.consumer,
                     "What the workers of one job have in common (default kestrel); made if needed")
        ->type_name("NAME");
    command
        ->add_option("--ack-wait", options->source.ackSeconds,
                     "For a new consumer: after so many seconds (default 60) a message that a "
                     "worker did not finish goes to another one")
        ->type_name("SECONDS")
        ->check(CLI::Range(1, 86'400));
    command->add_flag("--until-done", options->endsWhenDone,
                      "End when all messages are done, also those of other workers");
    command
        ->add_option("--at-once", options->atOnce,
                     "Work on so many messages at once (default 4): storing a result takes time")
        ->type_name("N")
        ->check(CLI::Range(1, 64));
    options->script.declare(*command);
    options->records.declare(*command, RecordOptions::Use::Messages);
    command->add_option("FILE", options->file, "The script")->type_name("")->required();
    command->footer(
        "A message holds whole records, one or thousands. Its result in DIR has the number of the\n"
        "message in its name, and is complete before the message is acknowledged: so each message\n"
        "counts once, however often it is delivered. Start as many workers as you like.\n"
        "\n"
        "Example:\n"
        "  kestrel work rate.ks --nats nats://localhost:4222 --stream CALLS --out rated \\\n"
        "      --fields customer,destination,seconds,price --until-done");
    command->callback([options, &action] {
        options->script.scriptName(options->file);
        action = [options] { return work(*options); };
    });
}

}  // namespace Cli
