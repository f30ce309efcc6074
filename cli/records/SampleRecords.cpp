#include "cli/records/SampleRecords.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "cli/records/RecordOptions.h"
#include "records/script/RecordExtension.h"

namespace Cli {
namespace {

// The name without what tells that the file is compressed.
std::string_view plainName(std::string_view path) {
    for (const std::string_view end : {".gz", ".zst"}) {
        if (path.ends_with(end)) path.remove_suffix(end.size());
    }
    return path;
}

}  // namespace

SampleRecords::SampleRecords(bool isJson, SCR::Log& log)
    : current_(Records::Layout(), isJson, Records::OnError::Keep, &log) {
    names_.addAll();
}

SampleRecords::~SampleRecords() { close(); }

void SampleRecords::close() {
    current_.leave();
    reader_.reset();
    if (descriptor_ >= 0) ::close(std::exchange(descriptor_, -1));
}

void SampleRecords::addTo(SCR::Interpreter& interpreter) {
    addRecordFunctions(interpreter, current_, names_);
}

bool SampleRecords::isJson(const std::string& path) {
    const std::string_view name = plainName(path);
    return name.ends_with(".jsonl") || name.ends_with(".json");
}

std::string SampleRecords::open(const std::vector<std::string>& paths) {
    number_ = 0;
    paths_.assign(paths.rbegin(), paths.rend());
    if (paths_.empty()) return "the file is missing";
    const std::string path = paths_.back();
    paths_.pop_back();
    names_ = {};
    return openFile(path, names_);
}

std::string SampleRecords::openFile(const std::string& path, Records::FieldNames& names) {
    close();
    descriptor_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    if (descriptor_ < 0) return path + ": " + std::strerror(errno);
    const std::string_view name = plainName(path);
    const bool hasColumns = name.ends_with(".csv") || name.ends_with(".tsv");
    Records::Layout layout;
    if (name.ends_with(".tsv")) layout = {'\t', false, false};
    if (!hasColumns) layout = {',', false, true};
    current_.record.layout(layout);
    reader_ = std::make_unique<Records::RecordReader>(descriptor_, layout, stopSignal());
    if (!hasColumns) {
        names.addAll();
        return {};
    }
    const std::optional<std::string> fault = nextOfFile();
    if (!fault || !fault->empty()) {
        const std::string why = fault ? *fault : "there is no line with names";
        close();
        return path + ": " + why;
    }
    for (std::size_t i = 0; current_.record.has(i); ++i) names.add(current_.record.value(i));
    current_.leave();
    --number_;
    return {};
}

std::optional<std::string> SampleRecords::next() {
    for (;;) {
        std::optional<std::string> fault = nextOfFile();
        if (fault || paths_.empty()) return fault;
        const std::string path = paths_.back();
        paths_.pop_back();
        Records::FieldNames names;
        std::string why = openFile(path, names);
        if (why.empty() &&
            (names.all() != names_.all() || isJson(path) != (current_.json != nullptr))) {
            why = path + ": its fields are others";
            close();
        }
        if (!why.empty()) {
            paths_.clear();
            return why;
        }
    }
}

std::optional<std::string> SampleRecords::nextOfFile() {
    if (!isOpen()) return std::nullopt;
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
