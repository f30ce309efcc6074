#include "records/RecordJob.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <unistd.h>

#include "scr/Interpreter.h"
#include "scr/Log.h"

namespace Records {
namespace {

// A descriptor that is closed at the end, unless it is standard input.
class Input {
public:
    explicit Input(const std::string& path)
        : descriptor_(path == "-" ? STDIN_FILENO : ::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {}
    Input(const Input&) = delete;
    Input& operator=(const Input&) = delete;
    ~Input() {
        if (descriptor_ > STDERR_FILENO) close(descriptor_);
    }
    int descriptor() const { return descriptor_; }

private:
    const int descriptor_;
};

}  // namespace

RecordJob::RecordJob(JobOptions options, const std::atomic<bool>& stop)
    : options_(std::move(options)), stop_(stop), current_(options_.layout) {}

RecordJob::End RecordJob::fail(const std::string& error) {
    error_ = error;
    return End::Failed;
}

bool RecordJob::reject(SCR::Log& log, const RecordReader& reader, const std::string& reason) {
    ++counts_.rejected;
    const std::string place = options_.input + ":" + std::to_string(reader.line()) + ": ";
    if (!rejects_.isOpen()) {
        log.log(place + reason, FND::Status::Error);
        return true;
    }
    std::string& out = rejects_.buffer();
    out += place;
    for (const char c : reason) out += c == '\n' || c == '\t' ? ' ' : c;
    out += '\t';
    out += reader.text();
    out += '\n';
    return rejects_.settle();
}

RecordJob::End RecordJob::run(SCR::Interpreter& interpreter, SCR::Log& log,
                              const std::function<bool()>& compile) {
    const Input input(options_.input);
    if (input.descriptor() < 0) {
        error_ = options_.input + ": " + std::strerror(errno);
        return End::BadInput;
    }
    RecordReader reader(input.descriptor(), options_.layout, stop_);
    for (const std::string& name : options_.fields) names_.add(name);
    if (options_.hasHeader) {
        const RecordReader::State state = reader.next();
        if (state == RecordReader::State::Malformed) {
            error_ = options_.input + ":1: the header: " + reader.reason();
            return End::BadInput;
        }
        if (state == RecordReader::State::Record) {
            Record& header = current_.record;
            header.take(reader.text());
            for (std::size_t i = 0; header.has(i); ++i) names_.add(header.value(i));
            output_.buffer().append(header.text());
            output_.buffer() += reader.lineEnd().empty() ? "\n" : reader.lineEnd();
            header.take({});
        }
    }
    addRecordFunctions(interpreter, current_, names_);
    if (!compile()) return End::NotCompiled;
    if (!options_.where.empty() && !interpreter.compileQuery(options_.where)) {
        return End::NotCompiled;
    }
    if (!output_.open(options_.output)) return fail(output_.error());
    if (!options_.rejects.empty() && !rejects_.open(options_.rejects)) {
        return fail(rejects_.error());
    }
    const End end = process(interpreter, log, reader);
    current_.record.take({});
    isValid_ = interpreter.isValid();
    if (end != End::Done) {
        // Standard output gets all records that were counted as written; a file does not appear.
        if (options_.output == "-" && end != End::Failed && !output_.flush()) {
            return fail(output_.error());
        }
        return end;
    }
    if (!output_.finish()) return fail(output_.error());
    if (rejects_.isOpen() && !rejects_.finish()) return fail(rejects_.error());
    return End::Done;
}

RecordJob::End RecordJob::process(SCR::Interpreter& interpreter, SCR::Log& log,
                                  RecordReader& reader) {
    for (;;) {
        if (reader.mayWait() && !output_.flush()) return fail(output_.error());
        const RecordReader::State state = reader.next();
        if (state == RecordReader::State::End) return End::Done;
        if (state == RecordReader::State::Interrupted) return End::Interrupted;
        if (state == RecordReader::State::Failed) {
            return fail(options_.input + ": " + std::strerror(errno));
        }
        current_.number = ++counts_.read;
        if (state == RecordReader::State::Malformed) {
            if (!reject(log, reader, reader.reason())) return fail(rejects_.error());
            continue;
        }
        current_.record.take(reader.text());
        current_.isDropped = current_.isRejected = false;
        bool holds = true;
        bool ran = options_.where.empty() || interpreter.evaluateQuery(holds);
        if (ran && holds) ran = interpreter.execute();
        if (interpreter.wasStopped()) {
            error_ =
                options_.input + ":" + std::to_string(reader.line()) + ": the script was stopped";
            --counts_.read;
            return End::Stopped;
        }
        if (current_.isRejected || !ran) {
            const std::string& reason =
                current_.isRejected ? current_.reason : std::string("the script failed");
            if (!reject(log, reader, reason)) return fail(rejects_.error());
        } else if (!holds || current_.isDropped) {
            ++counts_.dropped;
        } else {
            std::string& out = output_.buffer();
            current_.record.write(out);
            if (reader.lineEnd().size() == 2) out += '\r';
            out += '\n';
            ++counts_.written;
            if (!output_.settle()) return fail(output_.error());
        }
    }
}

}  // namespace Records
