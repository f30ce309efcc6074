#include "records/RecordWorker.h"

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

void Batch::clear() {
    reuse(text);
    items.clear();
    next = 0;
    clearOutput();
    isCut = false;
    error.clear();
}

void Batch::clearOutput() {
    reuse(output);
    reuse(rejects);
    reports.clear();
    reportSize = 0;
    counts = {};
}

void Batch::add(std::string_view record, std::string_view lineEnd, std::int64_t line,
                const char* reason) {
    items.push_back({text.size(), record.size(), lineEnd.size(), line, reason});
    text += record;
}

RecordWorker::RecordWorker(const JobOptions& options, const FieldNames& names,
                           const StopSignal& stop)
    : options_(options), names_(names), stop_(stop), current_(options.layout, options.isJson) {}

RecordWorker::~RecordWorker() {
    current_.record.take({});
    if (current_.json) current_.json->take("");
    current_.original = {};
}

void RecordWorker::adopt(std::unique_ptr<SCR::Interpreter> interpreter) {
    interpreter_ = std::move(interpreter);
    addRecordFunctions(*interpreter_, current_, names_);
}

bool RecordWorker::compile() {
    if (options_.where && !interpreter_->compileQuery(*options_.where)) return false;
    if (!options_.conditions) return true;
    conditions_ = std::make_unique<SCR::ConditionList>(*interpreter_);
    return conditions_->compile(*options_.conditions);
}

void RecordWorker::reject(const Batch::Item& item, std::string_view reason, Batch& batch) const {
    ++batch.counts.rejected;
    const std::string place = options_.input + ":" + std::to_string(item.line) + ": ";
    if (options_.rejects.empty()) {
        batch.reports.push_back(place + std::string(reason));
        batch.reportSize += batch.reports.back().size();
        return;
    }
    std::string& out = batch.rejects;
    out += place;
    for (const char c : reason) out += c == '\n' || c == '\t' ? ' ' : c;
    out += '\t';
    out.append(batch.text, item.begin, item.size);
    out += '\n';
}

bool RecordWorker::process(Batch& batch) {
    // The parser may read a little beyond the end of a record.
    if (current_.json && batch.next == 0) batch.text.append(JsonRecord::paddingCM, ' ');
    while (batch.next < batch.items.size()) {
        if (stop_.isRaised() || !run(batch.items[batch.next], batch)) {
            batch.isCut = true;
            break;
        }
        ++batch.next;
        const bool isLarge =
            batch.output.size() + batch.rejects.size() + batch.reportSize > maxOutputS;
        if (isLarge && batch.next < batch.items.size()) return false;
    }
    return true;
}

bool RecordWorker::run(const Batch::Item& item, Batch& batch) {
    current_.number = batch.firstNumber + static_cast<std::int64_t>(batch.next);
    ++batch.counts.read;
    current_.original = std::string_view(batch.text).substr(item.begin, item.size);
    const char* malformed = item.reason;
    if (malformed == nullptr) {
        if (current_.json) {
            malformed = current_.json->take(current_.original);
        } else {
            current_.record.take(current_.original);
        }
    }
    if (malformed != nullptr) {
        reject(item, malformed, batch);
        return true;
    }
    current_.release();
    current_.isDropped = current_.isRejected = false;
    bool holds = true;
    bool ran = !options_.where || interpreter_->evaluateQuery(holds);
    if (ran && holds) ran = interpreter_->execute();
    if (conditions_ && ran && holds && !interpreter_->wasStopped()) {
        ran = conditions_->holding(holding_);
    }
    if (interpreter_->wasStopped()) {
        batch.error = options_.input + ":" + std::to_string(item.line) + ": the script was stopped";
        --batch.counts.read;
        return false;
    }
    if (current_.isRejected || !ran) {
        reject(item, current_.isRejected ? current_.reason : "the script failed", batch);
        return true;
    }
    if (!holds || current_.isDropped) {
        ++batch.counts.dropped;
        return true;
    }
    std::string& out = batch.output;
    if (conditions_) {
        const char* separator = "";
        for (const std::int32_t index : holding_) {
            out += separator;
            out += std::to_string(index);
            separator = " ";
        }
    } else {
        if (current_.json) {
            out += current_.json->text();
        } else {
            current_.record.write(out);
        }
        if (item.endSize == 2) out += '\r';
    }
    out += '\n';
    ++batch.counts.written;
    return true;
}

}  // namespace Records
