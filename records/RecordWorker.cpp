#include "records/RecordWorker.h"

#include <algorithm>
#include <cerrno>

#include "records/RecordJob.h"
#include "scr/ConditionList.h"
#include "scr/Interpreter.h"

namespace Records {
namespace {

constexpr std::size_t maxOutputS = std::size_t{4} << 20;  // in bytes; a larger record may exceed it

// Empties a text that is filled again, and frees what a large record took.
void reuse(std::string& text) {
    text.clear();
    if (text.capacity() > 2 * maxOutputS) text.shrink_to_fit();
}

}  // namespace

void RejectCounts::add(const std::string& kind, std::int64_t count) {
    constexpr std::size_t most = 100;
    const bool isKnown = counts_.size() < most || counts_.contains(kind);
    counts_[isKnown ? kind : "other reasons"] += count;
}

void RejectCounts::add(const RejectCounts& others) {
    for (const auto& [kind, count] : others.counts_) add(kind, count);
}

void Batch::clear() {
    reuse(text);
    items.clear();
    next = 0;
    clearOutput();
    cut = Cut::None;
    error.clear();
}

void Batch::clearOutput() {
    reuse(output);
    outputs.clear();
    outputSize = 0;
    reuse(prints);
    reuse(rejects);
    reports.clear();
    reasons.clear();
    keyed.clear();
    counts = {};
}

void Batch::begin(std::string_view record) {
    keep();
    stretch_ = {record.data(), 0};
}

void Batch::keep() {
    text += stretch_;
    stretch_ = {};
}

bool RecordWorker::Prints::isTaken(bool isWritten) {
    if (isWritten || errno != EPIPE) return isWritten;
    isClosed = true;
    worker_.current_.mute(true);  // that this stops the script is no news
    worker_.interpreter_->interrupt();
    return true;
}

bool RecordWorker::Prints::write(std::string_view text) {
    const bool joins = batch != nullptr || !worker_.end_.output.empty();
    if (!joins) return isTaken(SCR::standardOutput().write(text));
    if (batch == nullptr) {
        (worker_.options_.output == "-" ? worker_.end_.output : worker_.end_.prints) += text;
        return true;
    }
    std::string& out = worker_.options_.output == "-" ? batch->output : batch->prints;
    const bool isFirst = &out == &batch->output && end == out.size();
    out += text;
    if (isFirst) end = out.size();
    if (out.size() > maxOutputS && !(*deliver)()) worker_.interpreter_->interrupt();
    return true;
}

bool RecordWorker::Prints::flush(bool mayWait) {
    return batch != nullptr || isTaken(SCR::standardOutput().flush(mayWait));
}

RecordWorker::RecordWorker(const JobOptions& options, const FieldNames& names,
                           const Columns& columns, const Tables& tables, const StopSignal& stop,
                           SCR::Log* log)
    : options_(options),
      names_(names),
      stop_(stop),
      current_(options.layout, options.isJson(), options.onError, log, TableRows(tables)),
      columns_(columns),
      copies_(columns.areUnchanged() && !options.isJson()) {
    columns_.bind(current_);
    current_.write = [this](SCR::Interpreter& running) { writeExtra(running); };
}

RecordWorker::~RecordWorker() { current_.leave(); }

void RecordWorker::adopt(std::unique_ptr<SCR::Interpreter> interpreter) {
    interpreter_ = std::move(interpreter);
    dates_ = &interpreter_->runControl().invalidDates();
    interpreter_->output(&prints_);
    addRecordFunctions(*interpreter_, current_, names_);
    if (options_.attach) options_.attach(current_, names_);
}

bool RecordWorker::compile() {
    if (options_.where) {
        if (!interpreter_->compileQuery(*options_.where)) return false;
        asksForDates_ = options_.where->find("dateIsValid") != std::string::npos;
    }
    if (!options_.conditions) return true;
    conditions_ = std::make_unique<SCR::ConditionList>(*interpreter_);
    // A compile stops at the first mistake; when there is one, all are told.
    current_.mute(true);
    const bool isCompiled = conditions_->compile(*options_.conditions);
    current_.mute(false);
    return isCompiled ||
           (conditions_->check(*options_.conditions) && conditions_->compile(*options_.conditions));
}

bool RecordWorker::finish(const std::function<bool(Batch&)>& deliver, std::size_t endSize) {
    current_.leave();
    lineEndSize_ = endSize;
    if (interpreter_ == nullptr) return true;
    // END begins with an empty record of all columns.
    const std::size_t fields = names_.all().size();
    if (!current_.json && fields > 1) current_.record.assign(fields - 1, {});
    deliverEnd_ = &deliver;
    const bool isFinished = interpreter_->finish();
    deliverEnd_ = nullptr;
    return deliver(end_) && isFinished;
}

std::string RecordWorker::placeOf(const Batch::Item& item, const Batch& batch) const {
    return options_.inputName(batch.file) + ":" + std::to_string(item.line) + ": ";
}

SCR::Diagnostic RecordWorker::reportOf(const Batch::Item& item, const Rejection& rejection,
                                       const Batch& batch) const {
    SCR::Diagnostic report;
    if (const SCR::Diagnostic* const cause = current_.cause()) {
        report = *cause;
        report.explanation = cause->headline();
        report.notes.push_back(
            {"in record " + std::to_string(current_.number),
             {options_.inputName(batch.file), static_cast<int>(item.line), 0, 0}});
    }
    report.text = placeOf(item, batch) + rejection.text();
    return report;
}

void RecordWorker::reject(const Batch::Item& item, const Rejection& rejection, Batch& batch) {
    current_.totals.takeBack();
    ++batch.counts.rejected;
    batch.reasons.add(rejection.kind());
    const std::string_view record = std::string_view(batch.text).substr(item.begin, item.size);
    const bool areTold =
        !options_.rejects.empty() && options_.rejectsFormat != RejectsFormat::Input;
    if (!areTold && batch.reports.size() < Batch::reportsCM) {
        batch.reports.push_back(reportOf(item, rejection, batch));
    }
    if (options_.rejects.empty()) return;
    std::string& out = batch.rejects;
    switch (options_.rejectsFormat) {
        case RejectsFormat::Text:
            out += placeOf(item, batch) + rejection.text() + '\t';
            out += record;
            break;
        case RejectsFormat::Input:
            out += record;
            if (item.endSize == 2) out += '\r';
            break;
        case RejectsFormat::Json: {
            const auto add = [&](const char* name, std::string_view text) {
                out += name;
                appendText(text, out);
            };
            add("{\"file\":", options_.inputName(batch.file));
            out += ",\"line\":" + std::to_string(item.line) +
                   ",\"number\":" + std::to_string(current_.number);
            add(",\"reason\":", rejection.reason);
            if (!rejection.field.empty()) {
                add(",\"field\":", rejection.field);
                add(",\"value\":", rejection.value);
            }
            add(",\"record\":", record);
            if (!isUtf8(record)) out += ",\"encoding\":\"latin1\"";
            out += '}';
            break;
        }
    }
    out += '\n';
}

bool RecordWorker::process(Batch& batch, const std::function<bool()>& deliver) {
    // The parser may read a little beyond the end of a record.
    if (current_.json && batch.next == 0) batch.text.append(JsonRecord::paddingCM, ' ');
    prints_.deliver = &deliver;
    while (batch.next < batch.items.size()) {
        const Batch::Item& item = batch.items[batch.next];
        prints_.batch = &batch;
        prints_.end = batch.output.size();
        const bool goesOn =
            stop_.isRaised() ? cut(item, batch, Batch::Cut::Interrupted) : run(item, batch);
        prints_.batch = nullptr;
        current_.end();
        if (!goesOn) break;
        if (options_.isDryRun) show(item, batch, prints_.end);
        ++batch.next;
        const bool isLarge =
            batch.output.size() + batch.outputSize + batch.prints.size() + batch.rejects.size() >
            maxOutputS;
        if (isLarge && batch.next < batch.items.size()) return false;
    }
    return true;
}

bool RecordWorker::cut(const Batch::Item& item, Batch& batch, Batch::Cut cut) {
    current_.totals.takeBack();
    batch.cut = cut;
    if (cut == Batch::Cut::Failed) batch.error = placeOf(item, batch) + current_.rejection().text();
    if (cut == Batch::Cut::Ended) {
        batch.error = placeOf(item, batch) + "ended by the script: " + current_.jobEnd;
    }
    return false;
}

bool RecordWorker::evaluateQuery(bool& holds) {
    *dates_ = {};
    current_.readsNoDate = false;
    if (!interpreter_->evaluateQuery(holds)) return false;
    if (!holds || asksForDates_) return true;
    if (dates_->areCompared && dates_->areRead) holds = false;
    if (!holds || !current_.readsNoDate) return true;
    // No date is later than every date. A query that would not hold if it were earlier only holds
    // because of that.
    current_.noDate = FND::DateTime::min();
    const bool isEvaluated = interpreter_->evaluateQuery(holds);
    current_.noDate = {};
    return isEvaluated;
}

inline bool RecordWorker::execute(bool& holds) {
    if (options_.where) {
        if (!evaluateQuery(holds)) {
            holds = false;
            return false;
        }
        if (!holds) return true;
    }
    *dates_ = {};
    current_.readsNoDate = false;
    if (!interpreter_->execute()) return false;
    return !conditions_ || conditions_->holding(holding_);
}

inline bool RecordWorker::failsForDate() {
    if (!dates_->areCompared) [[likely]]
        return false;
    if (!current_.readsNoDate && !dates_->areRead) return false;
    dates_->areCompared = false;  // one failure is enough
    current_.fail("no date to compare; ask dateIsValid first",
                  current_.readsNoDate ? std::string_view(current_.noDateField) : "");
    return current_.isRejected();
}

std::string& RecordWorker::outputFor(Batch& batch) const {
    return current_.output.empty() || options_.isDryRun ? batch.output
                                                        : batch.outputs[current_.output];
}

void RecordWorker::writeExtra(SCR::Interpreter& running) {
    if (current_.isRejected() || failsForDate()) return;
    Batch* const batch = prints_.batch != nullptr ? prints_.batch
                         : deliverEnd_ != nullptr ? &end_
                                                  : nullptr;
    if (batch == nullptr) return running.logError("recordWrite: there is no record yet");
    // Writing moves the members that get other names or are left out; the script goes on with them.
    const bool isMoved = current_.json && !columns_.areUnchanged();
    std::string text(isMoved ? current_.json->text() : "");
    const bool isWritten = write(*batch);
    if (isMoved) {
        const std::size_t size = text.size();
        kept_ = std::move(text.append(JsonRecord::paddingCM, ' '));
        current_.json->take(std::string_view(kept_).substr(0, size));
    }
    if (!isWritten) return;
    ++batch->counts.extra;
    if (batch->output.size() + batch->outputSize <= maxOutputS) return;
    if (batch == &end_) {
        if (!(*deliverEnd_)(end_)) running.interrupt();
        end_.clearOutput();
    } else if (!(*prints_.deliver)()) {
        running.interrupt();
    }
}

bool RecordWorker::write(Batch& batch) {
    std::string& out = outputFor(batch);
    const std::size_t before = out.size();
    if (!columns_.areUnchanged()) {
        if (!columns_.write(current_, out)) {
            out.resize(before);
            return false;
        }
    } else if (current_.json) {
        out += current_.json->text();
    } else {
        current_.record.write(out);
    }
    const bool isWide = lineEndSize_ == 2 && options_.format == options_.outputFormat;
    out += isWide ? std::string_view("\r\n") : std::string_view("\n");
    if (!current_.output.empty()) batch.outputSize += out.size() - before;
    return true;
}

inline bool RecordWorker::copy(Batch& batch) {
    const bool isCopied = copies_ && lineEndSize_ != 0 && !current_.record.isChanged() &&
                          !current_.hasKey && current_.output.empty();
    if (!isCopied) return false;
    // The batch has its line end after it.
    batch.output.append(current_.original.data(), current_.original.size() + lineEndSize_);
    return true;
}

bool RecordWorker::writeFirst(Batch& batch) {
    const std::size_t begin = outputFor(batch).size();
    if (!write(batch)) return false;
    if (current_.hasKey && !options_.isDryRun) {
        batch.keyed.push_back({current_.output, begin, outputFor(batch).size(), current_.key});
    }
    return true;
}

void RecordWorker::writeConditions(std::string& out) const {
    const char* separator = "";
    for (const std::int32_t index : holding_) {
        out += separator;
        out += std::to_string(index);
        separator = " ";
    }
    out += '\n';
}

void RecordWorker::show(const Batch::Item& item, Batch& batch, std::size_t before) {
    before = std::min(before, batch.output.size());  // long prints were delivered meanwhile
    std::string result = batch.output.substr(before);
    if (!result.empty() && current_.hasKey && !shown_.add(current_.key).second) result.clear();
    batch.output.resize(before);
    const std::string number = std::to_string(current_.number);
    const std::string old = batch.text.substr(item.begin, item.size) + '\n';
    if (options_.only != 0 && options_.only != current_.number) return;
    if (options_.show) {
        using Result = Shown::Result;
        Shown shown{current_.number, Result::Changed, old, result};
        if (current_.isRejected()) {
            shown.result = Result::Rejected;
            shown.after = current_.rejection().text();
        } else if (result == old || result.empty()) {
            shown.result = result.empty() ? Result::Dropped : Result::Unchanged;
        }
        return options_.show(shown);
    }
    if (options_.only != 0) return;
    if (result == old) {
        batch.output += number + " = " + old;
        return;
    }
    batch.output += number + " - " + old;
    if (current_.isRejected()) {
        batch.output += number + " ! " + current_.rejection().text() + '\n';
    } else if (result.empty()) {
        batch.output += number + " dropped\n";
    } else {
        batch.output += number + " + " + result;
    }
}

bool RecordWorker::run(const Batch::Item& item, Batch& batch) {
    const char* malformed =
        current_.begin(batch.firstNumber + static_cast<std::int64_t>(batch.next),
                       std::string_view(batch.text).substr(item.begin, item.size));
    if (item.reason != nullptr) malformed = item.reason;
    lineEndSize_ = item.endSize;
    if (malformed == nullptr && !columns_.fits(current_)) {
        malformed = "it has more fields than there are names";
    }
    if (malformed != nullptr) {
        ++batch.counts.read;
        current_.reject(malformed);
        reject(item, current_.rejection(), batch);
        return true;
    }
    bool holds = true;
    if (options_.watch) options_.watch(current_.number);
    const bool ran = execute(holds);
    const bool wasStopped = interpreter_->wasStopped();
    if (wasStopped && current_.endsJob) return cut(item, batch, Batch::Cut::Ended);
    if (wasStopped && stop_.isRaised()) return cut(item, batch, Batch::Cut::Interrupted);
    if (!wasStopped && !ran) current_.fail("the script failed");
    if (holds) failsForDate();
    const bool isWanted = holds && !current_.isDropped && !current_.isRejected();
    bool isWritten = false;
    if (isWanted && !conditions_) isWritten = copy(batch) || writeFirst(batch);
    if (current_.hasFailed() && options_.onError == OnError::Stop) {
        return cut(item, batch, Batch::Cut::Failed);
    }
    ++batch.counts.read;
    if (current_.isRejected()) {
        reject(item, current_.rejection(), batch);
    } else if (!ran && !holds) {
        reject(item, {"the query failed", {}, {}}, batch);
    } else if (!isWanted) {
        ++batch.counts.dropped;
    } else if (conditions_) {
        writeConditions(batch.output);
        ++batch.counts.written;
    } else if (isWritten) {
        ++batch.counts.written;
    } else {
        reject(item, {"the format cannot hold it", {}, {}}, batch);  // kept, but not to be written
    }
    return true;
}

}  // namespace Records
