#include "cli/SampleRecords.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "cli/RecordOptions.h"
#include "records/RecordExtension.h"

namespace Cli {

SampleRecords::SampleRecords(bool isJson, SCR::Log& log)
    : current_(Records::Layout(), isJson, Records::OnError::Keep, &log) {
    names_.addAll();
}

SampleRecords::~SampleRecords() { close(); }

void SampleRecords::close() {
    current_.leave();
    reader_.reset();
    if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
    number_ = 0;
}

void SampleRecords::addTo(SCR::Interpreter& interpreter) {
    addRecordFunctions(interpreter, current_, names_);
}

bool SampleRecords::isJson(const std::string& path) {
    return path.ends_with(".jsonl") || path.ends_with(".json");
}

std::string SampleRecords::open(const std::string& path) {
    close();
    descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (descriptor_ < 0) return path + ": " + std::strerror(errno);
    const bool hasColumns = path.ends_with(".csv") || path.ends_with(".tsv");
    Records::Layout layout;
    if (path.ends_with(".tsv")) layout = {'\t', false, false};
    if (!hasColumns) layout = {',', false, true};
    current_.record.layout(layout);
    reader_ = std::make_unique<Records::RecordReader>(descriptor_, layout, stopSignal());
    names_ = {};
    if (!hasColumns) {
        names_.addAll();
        return {};
    }
    const std::optional<std::string> fault = next();
    if (!fault || !fault->empty()) {
        const std::string why = fault ? *fault : "there is no line with names";
        close();
        return path + ": " + why;
    }
    for (std::size_t i = 0; current_.record.has(i); ++i) names_.add(current_.record.value(i));
    current_.leave();
    number_ = 0;
    return {};
}

std::optional<std::string> SampleRecords::next() {
    using State = Records::RecordReader::State;
    State state = reader_->next();
    while (state == State::Waiting) {
        reader_->wait();
        state = reader_->next();
    }
    if (state == State::End || state == State::Interrupted) return std::nullopt;
    if (state == State::Failed) {
        return reader_->error().empty() ? std::strerror(errno) : reader_->error();
    }
    text_ = reader_->text();
    // The parser of JSON may read a little beyond the end.
    text_.append(Records::JsonRecord::paddingCM, ' ');
    const std::string_view text(text_.data(), text_.size() - Records::JsonRecord::paddingCM);
    const char* const malformed = current_.begin(++number_, text);
    if (state == State::Malformed) return reader_->reason();
    return malformed != nullptr ? malformed : "";
}

}  // namespace Cli
