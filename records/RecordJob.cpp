#include "records/RecordJob.h"

#include <cerrno>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "records/WorkerPool.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"

namespace Records {
namespace {

constexpr std::size_t batchSizeS = std::size_t{1} << 17;  // of a batch, in bytes

}  // namespace

// A descriptor that is closed at the end, unless it is standard input.
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

RecordJob::RecordJob(JobOptions options, const std::atomic<bool>& stop)
    : options_(std::move(options)), stop_(stop) {}

RecordJob::~RecordJob() = default;

RecordJob::End RecordJob::fail(const std::string& error) {
    error_ = error;
    return End::Failed;
}

RecordJob::End RecordJob::readHeader() {
    const RecordReader::State state = reader_->next();
    if (state == RecordReader::State::Malformed) {
        error_ = options_.input + ":1: the header: " + reader_->reason();
        return End::BadInput;
    }
    if (state != RecordReader::State::Record) {
        last_ = state;
        return End::Done;
    }
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
        // Exact, and small enough for any size: there are at most 1,000,000 parts.
        const auto bound = [&](std::int64_t part) {
            return status.st_size / options_.parts * part +
                   status.st_size % options_.parts * part / options_.parts;
        };
        partBegin_ = bound(options_.part - 1);
        partEnd_ = bound(options_.part);
    }
    reader_.emplace(input_->descriptor(), options_.layout, stop_);
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
    if (!compile(worker.interpreter())) return End::NotCompiled;
    if (worker.interpreter().wasStopped()) {
        error_ = "the function BEGIN was stopped";
        return End::Stopped;
    }
    return worker.compile() ? End::Done : End::NotCompiled;
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
    for (int i = 0; i < options_.jobs; ++i) {
        if (const End end = addWorker(make, compile); end != End::Done) return end;
    }
    if (!output_.open(options_.output)) return fail(output_.error());
    if (!options_.rejects.empty() && !rejects_.open(options_.rejects)) {
        return fail(rejects_.error());
    }
    End end = process(log);
    for (const auto& worker : workers_) isValid_ = isValid_ && worker->interpreter().isValid();
    if (end != End::Done) {
        // Standard output gets all records that were counted as written; a file does not appear.
        const bool isFlushed =
            options_.output != "-" || end == End::Failed || end == End::Closed || output_.flush();
        if (!isFlushed) end = fail(output_.error());
    } else if (!output_.finish()) {
        end = output_.isClosed() ? End::Closed : fail(output_.error());
    } else if (rejects_.isOpen() && !rejects_.finish()) {
        end = fail(rejects_.error());
    }
    workers_.clear();
    return end;
}

bool RecordJob::fill(Batch& batch) {
    RecordReader& reader = *reader_;
    while (batch.text.size() < batchSizeS) {
        last_ = reader.next();
        const bool isMalformed = last_ == RecordReader::State::Malformed;
        if (!isMalformed && last_ != RecordReader::State::Record) return false;
        if (partEnd_ >= 0 && reader.offset() >= partEnd_) {
            last_ = RecordReader::State::End;
            return false;
        }
        ++taken_;
        if (reader.offset() < partBegin_) continue;
        if (batch.items.empty()) batch.firstNumber = taken_;
        batch.add(reader.text(), reader.lineEnd(), reader.line(),
                  isMalformed ? reader.reason() : nullptr);
        if (reader.mayWait()) break;
    }
    return true;
}

RecordJob::End RecordJob::deliver(SCR::Log& log, Batch& batch) {
    for (const std::string& report : batch.reports) log.log(report, FND::Status::Error);
    counts_.read += batch.counts.read;
    counts_.written += batch.counts.written;
    counts_.dropped += batch.counts.dropped;
    counts_.rejected += batch.counts.rejected;
    output_.buffer() += batch.output;
    rejects_.buffer() += batch.rejects;
    if (!output_.settle()) return output_.isClosed() ? End::Closed : fail(output_.error());
    if (rejects_.isOpen() && !rejects_.settle()) return fail(rejects_.error());
    if (!batch.isCut) return End::Done;
    error_ = batch.error;
    return error_.empty() ? End::Interrupted : End::Stopped;
}

RecordJob::End RecordJob::process(SCR::Log& log) {
    RecordReader& reader = *reader_;
    WorkerPool pool(workers_);
    const auto takeBack = [&] {
        std::unique_ptr<Batch> batch = pool.takeBack();
        const End end = deliver(log, *batch);
        pool.recycle(std::move(batch));
        return end;
    };
    bool hasMore = last_ == RecordReader::State::Record;
    while (hasMore) {
        // Nothing that is done is kept back while the input makes us wait.
        const bool isIdle = reader.mayWait();
        while (pool.isBusy() && (isIdle || pool.isReady())) {
            if (const End end = takeBack(); end != End::Done) return end;
        }
        if (isIdle && !output_.flush()) {
            return output_.isClosed() ? End::Closed : fail(output_.error());
        }
        std::unique_ptr<Batch> batch = pool.spare();
        if (!batch) {
            if (const End end = takeBack(); end != End::Done) return end;
            continue;
        }
        hasMore = fill(*batch);
        const int error = errno;
        pool.submit(std::move(batch));
        if (options_.progress) options_.progress(counts_, reader.offset());
        errno = error;
    }
    const int error = errno;
    while (pool.isBusy()) {
        if (const End end = takeBack(); end != End::Done) return end;
    }
    if (last_ == RecordReader::State::Interrupted) return End::Interrupted;
    if (last_ == RecordReader::State::Failed) {
        return fail(options_.input + ": " + std::strerror(error));
    }
    return End::Done;
}

}  // namespace Records
