#include "records/RecordJob.h"

#include <algorithm>
#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "scr/Interpreter.h"
#include "scr/Log.h"

namespace Records {
namespace {

bool isBlank(std::string_view text) {
    return text.find_first_not_of(" \t\r") == std::string_view::npos;
}

}  // namespace

// A descriptor, closed by the destructor unless it is standard input.
class RecordJob::Input {
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

RecordJob::RecordJob(JobOptions options, StopSignal& stop)
    : options_(std::move(options)), stop_(stop) {}

RecordJob::~RecordJob() = default;

RecordJob::End RecordJob::fail(const std::string& error) {
    error_ = error;
    return End::Failed;
}

RecordJob::End RecordJob::readHeader() {
    RecordReader::State state = RecordReader::State::Waiting;
    while ((state = reader_->next()) == RecordReader::State::Waiting) reader_->wait();
    if (state == RecordReader::State::Malformed) {
        error_ = options_.input + ":1: the header: " + reader_->reason();
        return End::BadInput;
    }
    if (state != RecordReader::State::Record) {
        last_ = state;
        inputError_ = errno;
        names_.addAll();
        return End::Done;
    }
    inputEnd_ = reader_->end();
    Record header(options_.layout);
    header.take(reader_->text());
    for (std::size_t i = 0; header.has(i); ++i) names_.add(header.value(i));
    if (options_.part == 1 && !options_.conditions) {
        output_.buffer().append(header.text());
        output_.buffer() += reader_->lineEnd().empty() ? "\n" : reader_->lineEnd();
    }
    return End::Done;
}

RecordJob::End RecordJob::openInput() {
    input_ = std::make_unique<Input>(options_.input);
    struct stat status {};
    if (input_->descriptor() < 0 || fstat(input_->descriptor(), &status) != 0) {
        error_ = options_.input + ": " + std::strerror(errno);
        return End::BadInput;
    }
    if (options_.parts > 1) {
        if (!S_ISREG(status.st_mode)) {
            error_ = options_.input + ": only a file has parts";
            return End::BadInput;
        }
        // Exact and without overflow for any size: there are at most 1,000,000 parts.
        const auto bound = [&](std::int64_t part) {
            return status.st_size / options_.parts * part +
                   status.st_size % options_.parts * part / options_.parts;
        };
        partBegin_ = bound(options_.part - 1);
        partEnd_ = bound(options_.part);
    }
    reader_.emplace(input_->descriptor(), options_.layout, stop_, options_.maxRecord);
    for (const std::string& name : options_.fields) names_.add(name);
    return options_.hasHeader ? readHeader() : End::Done;
}

RecordJob::End RecordJob::addWorker(const std::function<std::unique_ptr<SCR::Interpreter>()>& make,
                                    const std::function<bool(SCR::Interpreter&)>& compile) {
    workers_.push_back(std::make_unique<RecordWorker>(options_, names_, stop_));
    RecordWorker& worker = *workers_.back();
    std::unique_ptr<SCR::Interpreter> interpreter = make();
    if (!interpreter) return End::BadInput;
    worker.adopt(std::move(interpreter));
    if (compile(worker.interpreter()) && worker.compile()) return End::Done;
    if (!worker.interpreter().wasStopped()) return End::NotCompiled;
    error_ = "stopped before the first record";
    return End::Stopped;
}

RecordJob::End RecordJob::check(const std::function<std::unique_ptr<SCR::Interpreter>()>& make,
                                const std::function<bool(SCR::Interpreter&)>& compile) {
    if (!input_) {
        if (const End end = openInput(); end != End::Done) {
            input_.reset();
            return end;
        }
    }
    const End end = addWorker(make, compile);
    workers_.clear();
    return end;
}

RecordJob::End RecordJob::run(SCR::Log& log,
                              const std::function<std::unique_ptr<SCR::Interpreter>()>& make,
                              const std::function<bool(SCR::Interpreter&)>& compile) {
    if (const End end = openInput(); end != End::Done) return end;
    log_ = &log;
    make_ = make;
    compile_ = compile;
    if (!pool_.start(options_.jobs)) return end_;
    if (!output_.open(options_.output)) return fail(output_.error());
    if (!options_.rejects.empty() && !rejects_.open(options_.rejects)) {
        return fail(rejects_.error());
    }
    End end = process();
    for (const auto& worker : workers_) isValid_ = isValid_ && worker->interpreter().isValid();
    if (end != End::Done) {
        // The records counted as written are in place, and so are the rejects, unless the output is
        // a file, which does not appear then.
        const bool isLost = end == End::Failed || end == End::Closed;
        if (!isLost && output_.isDirect() && !output_.flush()) end = fail(output_.error());
        const bool isKept = output_.isDirect() || rejects_.isDirect();
        if (isKept && rejects_.isOpen() && !rejects_.finish() && !isLost) {
            end = fail(rejects_.error());
        }
    } else {
        const bool areRejectsWritten = !rejects_.isOpen() || rejects_.flush();
        if (areRejectsWritten && !output_.finish()) {
            end = output_.isClosed() ? End::Closed : fail(output_.error());
        } else if (!areRejectsWritten || (rejects_.isOpen() && !rejects_.finish())) {
            end = fail(rejects_.error());
        }
    }
    for (const auto& worker : workers_) {
        const bool isFinished = finish(worker->interpreter());
        failures_.add(worker->interpreter().outputFailures());
        if (isFinished || end != End::Done) continue;
        error_ = "the function END was stopped";
        end = End::Stopped;
    }
    workers_.clear();
    return end;
}

bool RecordJob::finish(SCR::Interpreter& interpreter) {
    // Who ended the job does not wait for what END waits for.
    if (stop_.isRaised()) {
        SCR::Limits limits = interpreter.limits();
        constexpr std::int64_t mostMilliseconds = 5000;
        const auto share = mostMilliseconds / static_cast<std::int64_t>(workers_.size());
        limits.time = std::min(limits.time, share);
        interpreter.limits(limits);
    }
    stop_.interrupts(&interpreter);
    const bool isFinished = interpreter.finish();
    stop_.interrupts(nullptr);
    return isFinished;
}

RecordWorker* RecordJob::makeWorker() {
    end_ = addWorker(make_, compile_);
    return end_ == End::Done ? workers_.back().get() : nullptr;
}

RecordJob::End RecordJob::process() {
    if (last_ == RecordReader::State::Record) pool_.run();
    if (end_ != End::Done) return end_;
    if (last_ == RecordReader::State::Interrupted) return End::Interrupted;
    return last_ == RecordReader::State::Failed ? failToRead() : End::Done;
}

RecordJob::End RecordJob::failToRead() {
    if (inputError_ != EMSGSIZE) return fail(options_.input + ": " + std::strerror(inputError_));
    error_ = options_.input + ":" + std::to_string(reader_->line()) + ": limit `record' of " +
             std::to_string(options_.maxRecord) + " passed";
    return End::Stopped;
}

bool RecordJob::fill(Batch& batch) {
    RecordReader& reader = *reader_;
    while (!batch.isFull()) {
        last_ = reader.next();
        if (last_ == RecordReader::State::Waiting) {
            if (!batch.items.empty()) return true;
            pool_.waitForInput([&] { reader.wait(); });
            continue;
        }
        const bool isMalformed = last_ == RecordReader::State::Malformed;
        if (!isMalformed && last_ != RecordReader::State::Record) {
            inputError_ = errno;
            return false;
        }
        if (partEnd_ >= 0 && reader.offset() >= partEnd_) {
            last_ = RecordReader::State::End;
            return false;
        }
        if (options_.isJson && isBlank(reader.text())) continue;
        ++taken_;
        // It may take the whole file to find out that a quote is not closed.
        inputEnd_ = isMalformed ? unknownEndCM : std::max(inputEnd_, reader.end());
        if (reader.offset() < partBegin_) continue;
        if (batch.items.empty()) batch.firstNumber = taken_;
        batch.add(reader.text(), reader.lineEnd(), reader.line(),
                  isMalformed ? reader.reason() : nullptr);
        batch.offset = reader.offset();
    }
    return true;
}

bool RecordJob::deliver(Batch& batch) {
    end_ = write(batch);
    if (options_.progress) options_.progress(counts_, batch.offset);
    return end_ == End::Done;
}

bool RecordJob::flush() {
    if (!output_.flush()) {
        end_ = output_.isClosed() ? End::Closed : fail(output_.error());
    } else if (rejects_.isDirect() && !rejects_.flush()) {
        end_ = fail(rejects_.error());
    }
    return end_ == End::Done;
}

RecordJob::End RecordJob::write(const Batch& batch) {
    for (const std::string& report : batch.reports) log_->log(report, FND::Status::Error);
    counts_.read += batch.counts.read;
    counts_.written += batch.counts.written;
    counts_.dropped += batch.counts.dropped;
    counts_.rejected += batch.counts.rejected;
    if (!output_.write(batch.output)) {
        return output_.isClosed() ? End::Closed : fail(output_.error());
    }
    if (rejects_.isOpen() && !rejects_.write(batch.rejects)) return fail(rejects_.error());
    if (!batch.isCut) return End::Done;
    error_ = batch.error;
    return error_.empty() ? End::Interrupted : End::Stopped;
}

}  // namespace Records
