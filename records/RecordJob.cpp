#include "records/RecordJob.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "records/read/FieldScan.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"

namespace Records {
namespace {

// Whether the system may have later what it lacks now.
bool isPassing(int error) {
    switch (error) {
        case ENOMEM:
        case ENFILE:
        case EMFILE:
        case EAGAIN:
        case EBUSY:
        case ESTALE:
        case ETIMEDOUT:
            return true;
        default:
            return false;
    }
}

bool isBlank(std::string_view text) {
    return text.empty() ||
           (text.front() <= ' ' && text.find_first_not_of(" \t\r") == std::string_view::npos);
}

}  // namespace

// A descriptor, closed by the destructor unless it is standard input.
class RecordJob::Input {
public:
    explicit Input(const std::string& path)
        // One that nobody writes to yet is waited for like any other.
        : descriptor_(path == "-" ? STDIN_FILENO
                                  : ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
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

RecordJob::End RecordJob::fail(const std::string& error, int errorNumber) {
    error_ = error;
    return isPassing(errorNumber) ? End::TryAgain : End::Failed;
}

RecordJob::End RecordJob::fail(const RecordOutput& output) {
    return output.isClosed() ? End::Closed : fail(output.error(), output.errorNumber());
}

RecordJob::End RecordJob::readHeader() {
    RecordReader::State state = RecordReader::State::Waiting;
    while ((state = reader_->next()) == RecordReader::State::Waiting) reader_->wait();
    if (state == RecordReader::State::Malformed) {
        error_ = options_.inputName(file_) + ":1: the header: " + reader_->reason();
        return End::BadInput;
    }
    if (state == RecordReader::State::End && file_ < options_.more.size()) {
        ++file_;
        const End end = openFile();
        return end == End::Done ? readHeader() : end;
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
    header_ = header.text();
    headerEnd_ = reader_->lineEnd().empty() ? "\n" : reader_->lineEnd();
    return End::Done;
}

RecordJob::End RecordJob::planColumns(const std::string& script) {
    const FieldScan scan(script);
    const std::size_t added = names_.all().size();
    ColumnOptions columns = options_.columns;
    if (added != 0) {
        for (const std::string& name : scan.assigned) {
            const long field = names_.index(name);
            if (field < 0 || field >= static_cast<long>(names_.all().size())) names_.add(name);
        }
        columns.left.insert(columns.left.end(), scan.deleted.begin(), scan.deleted.end());
        std::erase_if(columns.left, [&](const std::string& name) {
            const bool isScanned =
                std::find(scan.deleted.begin(), scan.deleted.end(), name) != scan.deleted.end();
            return isScanned && names_.index(name) < 0;  // the compiler tells
        });
    }
    error_ = columns_.plan(columns, names_, added, options_.layout, options_.format,
                           options_.outputFormat, options_.outputDelimiter);
    return error_.empty() ? End::Done : End::BadInput;
}

void RecordJob::writeHeader() {
    if (options_.part != 1 || !options_.writesHeader) return;
    const bool hasHeader = !header_.empty() || options_.isJson();
    if (!header_.empty() && options_.rejectsFormat == RejectsFormat::Input) {
        rejects_.buffer() += header_ + headerEnd_;
    }
    if (options_.conditions || !hasHeader || options_.only != 0 || options_.show) return;
    std::string line = columns_.areUnchanged() ? header_ : columns_.header();
    if (line.empty()) return;
    const bool isSame = options_.format == options_.outputFormat;
    line += isSame && !headerEnd_.empty() ? headerEnd_ : "\n";
    output_.buffer() += line;
    outputSize_ += line.size();
    outputs_.header(line);
}

RecordJob::End RecordJob::openFile() {
    input_ = std::make_unique<Input>(options_.inputPath(file_));
    struct stat status {};
    if (input_->descriptor() < 0 || fstat(input_->descriptor(), &status) != 0) {
        const int error = errno;
        error_ = options_.inputName(file_) + ": " + std::strerror(error);
        return isPassing(error) ? End::TryAgain : End::BadInput;
    }
    reader_.emplace(input_->descriptor(), options_.layout, stop_, options_.maxRecord);
    return End::Done;
}

bool RecordJob::openNext() {
    if (last_ != RecordReader::State::End || file_ == options_.more.size()) return false;
    ++file_;
    if (const End end = openFile(); end != End::Done) return failInput(end);
    last_ = RecordReader::State::Record;
    if (!options_.hasHeader) return true;
    while ((last_ = reader_->next()) == RecordReader::State::Waiting) reader_->wait();
    inputError_ = errno;
    if (last_ == RecordReader::State::End) return openNext();
    if (last_ != RecordReader::State::Record) return false;
    if (reader_->text() == header_) return true;
    error_ = options_.inputName(file_) + ": its header is not that of " + options_.input;
    return failInput(End::BadInput);
}

bool RecordJob::failInput(End end) {
    fault_ = end;
    faultText_ = std::move(error_);
    error_.clear();
    return false;
}

RecordJob::End RecordJob::openInput() {
    if (const End end = openFile(); end != End::Done) return end;
    struct stat status {};
    if (fstat(input_->descriptor(), &status) != 0) return End::BadInput;
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
    for (const std::string& name : options_.fields) names_.add(name);
    return options_.hasHeader ? readHeader() : End::Done;
}

RecordJob::End RecordJob::readTables() {
    const Tables::End end =
        tables_.read(options_.tables, options_.maxRecord, options_.tableBytes, stop_);
    error_ = tables_.error();
    return end == Tables::End::Done       ? End::Done
           : end == Tables::End::TooLarge ? End::Stopped
           : end == Tables::End::BadInput ? End::BadInput
                                          : End::Interrupted;
}

RecordJob::End RecordJob::addWorker() {
    workers_.push_back(
        std::make_unique<RecordWorker>(options_, names_, columns_, tables_, stop_, log_));
    RecordWorker& worker = *workers_.back();
    std::unique_ptr<SCR::Interpreter> interpreter = make_(worker.log());
    if (!interpreter) return End::BadInput;
    worker.adopt(std::move(interpreter));
    if (watcher_) watcher_->watch(worker.interpreter());
    worker.interpreter().shareMutexes(workers_.front()->interpreter());
    const std::uint64_t errors = worker.interpreter().errorCount();
    const bool isCompiled = compile_(worker.interpreter());
    const bool hasErrors = isCompiled && worker.interpreter().errorCount() != errors;
    if (const End end = afterBegin(worker, isCompiled, hasErrors); end != End::Done) return end;
    return worker.compile() ? End::Done : End::NotCompiled;
}

RecordJob::End RecordJob::afterBegin(RecordWorker& worker, bool isCompiled, bool hasErrors) {
    const SCR::Interpreter& interpreter = worker.interpreter();
    if (worker.isClosed()) return End::Closed;
    if (worker.endsJob()) {
        error_ = "ended by the script before the first record: " + worker.jobEnd();
        return End::Unusable;
    }
    if (!isCompiled) {
        if (!interpreter.wasStopped()) return End::NotCompiled;
        if (stop_.isRaised()) return End::Interrupted;
        error_ = "stopped before the first record";
        return End::Stopped;
    }
    if (!interpreter.isValid()) {
        error_ = "the script declared itself unusable before the first record";
        return End::Unusable;
    }
    if (!hasErrors || options_.onError == OnError::Keep) return End::Done;
    error_ = "BEGIN failed; stopped before the first record";
    return End::Stopped;
}

RecordJob::End RecordJob::check(SCR::Log& log, const Make& make, const Compile& compile,
                                const std::string& script) {
    if (!input_) {
        End end = readTables();
        if (end == End::Done) end = openInput();
        if (end != End::Done) {
            input_.reset();
            return end;
        }
    }
    const FieldNames names = names_;
    End end = planColumns(script);
    log_ = &log;
    make_ = make;
    compile_ = compile;
    if (end == End::Done) end = addWorker();
    workers_.clear();
    names_ = names;
    columns_ = {};
    return end;
}

RecordJob::End RecordJob::run(SCR::Log& log, const Make& make, const Compile& compile) {
    if (const End end = readTables(); end != End::Done) return end;
    if (const End end = openInput(); end != End::Done) return end;
    if (const End end = planColumns(options_.script); end != End::Done) return end;
    writeHeader();
    for (const std::string* path : {&options_.input, &options_.output, &options_.rejects}) {
        outputs_.taken(*path);
    }
    for (const std::string& path : options_.more) outputs_.taken(path);
    log_ = &log;
    make_ = make;
    compile_ = compile;
    watcher_.emplace(stop_);
    const bool isStarted = pool_.start(options_.jobs);
    watcher_->allow(allowanceCM);
    End end = isStarted ? openOutputs() : end_;
    if (end == End::Done) {
        end = process();
        for (const auto& worker : workers_) isValid_ = isValid_ && worker->interpreter().isValid();
        end = finishScripts(joinTotals(end));
        end = finishOutputs(end);
    }
    if (!isStarted) {
        // Scripts whose BEGIN went well may still run END.
        watcher_->allow(stop_.isRaised() ? allowanceCM : std::chrono::milliseconds(0));
    }
    for (const auto& worker : workers_) worker->finish([](Batch& /*batch*/) { return true; });
    watcher_.reset();
    workers_.clear();
    return end;
}

RecordJob::End RecordJob::openOutputs() {
    const bool isPart = options_.parts > 1 && options_.state.empty();
    if (isPart && workers_.front()->totals().areUsed()) {
        workers_.front()->interpreter().skipEnd();
        error_ = "--part: totals and keys of parts need --out, and `kestrel merge'";
        return End::BadInput;
    }
    const bool isAlone = !options_.isWatchedOver;
    if (!output_.open(options_.output, isAlone)) return fail(output_);
    if (options_.output != "-" && !prints_.open("-")) return fail(prints_);
    const bool areRejectsOpen =
        options_.rejects.empty() || rejects_.open(options_.rejects, isAlone);
    return areRejectsOpen ? End::Done : fail(rejects_);
}

RecordJob::End RecordJob::finishScripts(End end) {
    // Records and prints come before the prints of END.
    const bool isFlushed =
        (!output_.isDirect() || output_.flush()) && (!prints_.isOpen() || prints_.flush());
    if (!isFlushed && end == End::Done) end = fail(output_.errorNumber() != 0 ? output_ : prints_);
    // Who ended the job waits only so long, and who ends it now not at all.
    watcher_->allow(stop_.isRaised() ? allowanceCM : std::chrono::milliseconds(0));
    for (const auto& worker : workers_) {
        const bool isWanted = end == End::Done;
        const auto deliverEnd = [&](Batch& batch) {
            if (!isWanted) return true;
            end = write(batch);
            return end == End::Done;
        };
        const bool isFinished =
            worker->finish(deliverEnd, std::max<std::size_t>(headerEnd_.size(), 1));
        failures_.add(worker->interpreter().outputFailures());
        if (end != End::Done) continue;
        if (worker->isClosed()) {
            end = End::Closed;
        } else if (worker->endsJob()) {
            error_ = "ended by the script in END: " + worker->jobEnd();
            end = End::Unusable;
        } else if (!isFinished) {
            error_ = "the function END was stopped";
            end = End::Stopped;
        }
    }
    return end;
}

RecordJob::End RecordJob::finishOutputs(End end) {
    if (options_.rejects.empty() || options_.rejectsFormat == RejectsFormat::Input) {
        const std::int64_t more = counts_.rejected - static_cast<std::int64_t>(reported_);
        if (more > 0) {
            log_->log(std::to_string(more) + " more records were rejected", FND::Status::Error);
        }
    }
    if (end != End::Done) {
        // The records counted as written are in place, and so are the rejects, unless the output is
        // a file, which does not appear then.
        const bool isLost = end == End::Failed || end == End::TryAgain || end == End::Closed;
        if (!isLost && output_.isDirect() && !output_.flush()) end = fail(output_);
        const bool isKept = output_.isDirect() || rejects_.isDirect();
        if (isKept && rejects_.isOpen() && !rejects_.finish() && !isLost) end = fail(rejects_);
        return end;
    }
    const bool areRejectsWritten = !rejects_.isOpen() || rejects_.flush();
    if (areRejectsWritten && !outputs_.finish()) {
        return fail(outputs_.error(), outputs_.errorNumber());
    }
    if (areRejectsWritten && !output_.finish()) return fail(output_);
    if (!areRejectsWritten || (rejects_.isOpen() && !rejects_.finish())) return fail(rejects_);
    return End::Done;
}

RecordWorker* RecordJob::makeWorker() {
    end_ = addWorker();
    return end_ == End::Done ? workers_.back().get() : nullptr;
}

RecordJob::End RecordJob::process() {
    if (last_ == RecordReader::State::Record) pool_.run();
    if (end_ != End::Done) return end_;
    if (fault_ != End::Done) {
        error_ = faultText_;
        return fault_;
    }
    if (last_ == RecordReader::State::Interrupted) return End::Interrupted;
    return last_ == RecordReader::State::Failed ? failToRead() : End::Done;
}

RecordJob::End RecordJob::failToRead() {
    if (!reader_->error().empty()) {
        const End end = fail(options_.inputName(file_) + ": " + reader_->error());
        return taken_ == 0 ? End::BadInput : end;
    }
    if (inputError_ != EMSGSIZE) {
        return fail(options_.inputName(file_) + ": " + std::strerror(inputError_), inputError_);
    }
    error_ = options_.inputName(file_) + ":" + std::to_string(reader_->line()) +
             ": limit `record' of " + std::to_string(options_.maxRecord) + " passed";
    return End::Stopped;
}

void RecordJob::passLines() {
    RecordReader& reader = *reader_;
    const bool skipsBlank = options_.isJson() || options_.skipsBlank;
    const auto count = [&](std::string_view text, std::size_t /*endSize*/, std::int64_t /*line*/) {
        if (!skipsBlank || !isBlank(text)) ++taken_;
    };
    const std::int64_t before = partBegin_ - reader.end();
    const std::int64_t skipped = options_.skip - taken_;
    if (before > 0) {
        reader.lines(SIZE_MAX, static_cast<std::size_t>(before), count);
    } else if (skipped > 0) {
        reader.lines(static_cast<std::size_t>(skipped), SIZE_MAX, count);
    }
    if (taken_ > 0) noteEnd(false);
}

void RecordJob::noteEnd(bool isMalformed) {
    // It may take the whole file to find out that a quote is not closed.
    const bool isUnknown = isMalformed || reader_->isCompressed();
    inputEnd_ = isUnknown ? unknownEndCM : std::max(inputEnd_, reader_->end());
}

void RecordJob::fillLines(Batch& batch) {
    RecordReader& reader = *reader_;
    if (options_.parts > 1 && reader.isCompressed()) return;
    if (batch.items.empty()) passLines();
    if (reader.end() < partBegin_ || taken_ < options_.skip) return;
    const bool skipsBlank = options_.isJson() || options_.skipsBlank;
    const std::int64_t wanted = options_.most - (taken_ - options_.skip);
    const std::size_t room = Batch::recordsCM - batch.items.size();
    std::size_t bytes = batch.bytesLeft();
    if (partEnd_ >= 0) {
        const std::int64_t left = std::max<std::int64_t>(partEnd_ - reader.end(), 0);
        bytes = std::min(bytes, static_cast<std::size_t>(left));
    }
    if (batch.items.empty()) batch.firstNumber = taken_ + 1;
    const std::size_t before = batch.items.size();
    reader.lines(std::min(room, static_cast<std::size_t>(std::max<std::int64_t>(wanted, 0))), bytes,
                 [&](std::string_view text, std::size_t endSize, std::int64_t line) {
                     if (skipsBlank && isBlank(text)) return;
                     batch.add(text, endSize, line, nullptr);
                 });
    if (batch.items.size() == before) return;
    taken_ += static_cast<std::int64_t>(batch.items.size() - before);
    noteEnd(false);
    batch.offset = reader.offset();
}

bool RecordJob::fill(Batch& batch) {
    batch.file = file_;
    while (!batch.isFull()) {
        fillLines(batch);
        batch.keep();
        if (batch.isFull()) break;
        RecordReader& reader = *reader_;
        const bool isEnough = taken_ - options_.skip >= options_.most;
        last_ = isEnough ? RecordReader::State::End : reader.next();
        if (last_ == RecordReader::State::Waiting) {
            if (!batch.items.empty()) return true;
            pool_.waitForInput([&] { reader.wait(); });
            continue;
        }
        const bool isMalformed = last_ == RecordReader::State::Malformed;
        if (!isMalformed && last_ != RecordReader::State::Record) {
            inputError_ = errno;
            return !isEnough && openNext();
        }
        if (options_.parts > 1 && reader.isCompressed()) {
            error_ = options_.input + ": it is compressed; only other files have parts";
            return failInput(End::BadInput);
        }
        if (partEnd_ >= 0 && reader.offset() >= partEnd_) {
            last_ = RecordReader::State::End;
            return false;
        }
        if ((options_.isJson() || options_.skipsBlank) && isBlank(reader.text())) continue;
        ++taken_;
        noteEnd(isMalformed);
        if (reader.offset() < partBegin_ || taken_ <= options_.skip) continue;
        if (batch.items.empty()) batch.firstNumber = taken_;
        batch.add(reader.text(), reader.lineEnd().size(), reader.line(),
                  isMalformed ? reader.reason() : nullptr);
        batch.offset = reader.offset();
    }
    batch.keep();
    return true;
}

bool RecordJob::deliver(Batch& batch) {
    end_ = write(batch);
    if (options_.progress) options_.progress(counts_, batch.offset);
    return end_ == End::Done;
}

bool RecordJob::flush() {
    if (!output_.flush()) {
        end_ = fail(output_);
    } else if (prints_.isOpen() && !prints_.flush()) {
        end_ = fail(prints_);
    } else if (rejects_.isDirect() && !rejects_.flush()) {
        end_ = fail(rejects_);
    }
    return end_ == End::Done;
}

RecordJob::End RecordJob::write(Batch& batch) {
    if (!batch.keyed.empty()) {
        if (const End end = dropRepeated(batch); end != End::Done) return end;
    }
    outputSize_ += batch.output.size();
    for (const SCR::Diagnostic& report : batch.reports) {
        if (reported_ == Batch::reportsCM) break;
        log_->diagnose(report);
        ++reported_;
    }
    counts_.read += batch.counts.read;
    counts_.written += batch.counts.written;
    counts_.dropped += batch.counts.dropped;
    counts_.rejected += batch.counts.rejected;
    counts_.extra += batch.counts.extra;
    reasons_.add(batch.reasons);
    if (!output_.write(batch.output)) return fail(output_);
    for (const auto& [path, records] : batch.outputs) {
        if (options_.hasNamedOutputs && outputs_.write(path, records)) continue;
        if (outputs_.errorNumber() != 0) return fail(outputs_.error(), outputs_.errorNumber());
        error_ = options_.hasNamedOutputs ? outputs_.error()
                                          : "outputFile: a directory of parts has one output";
        return End::Stopped;
    }
    if (prints_.isOpen() && !prints_.write(batch.prints)) return fail(prints_);
    if (rejects_.isOpen() && !rejects_.write(batch.rejects)) return fail(rejects_);
    error_ = batch.error;
    switch (batch.cut) {
        case Batch::Cut::Interrupted:
            return End::Interrupted;
        case Batch::Cut::Failed:
            return End::Stopped;
        case Batch::Cut::Ended:
            return End::Unusable;
        case Batch::Cut::None:
            break;
    }
    return End::Done;
}

}  // namespace Records
