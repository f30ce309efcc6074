// How the results of workers, and of parts of a file, become one.

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <map>
#include <utility>

#include <fcntl.h>
#include <unistd.h>

#include "records/PartState.h"
#include "records/RecordJob.h"
#include "scr/Interpreter.h"

namespace Records {
namespace {

// A file that is read from its beginning, block by block.
class Blocks {
public:
    explicit Blocks(const std::string& path)
        : descriptor_(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        buffer_.resize(std::size_t{1} << 18);
    }
    Blocks(const Blocks&) = delete;
    Blocks& operator=(const Blocks&) = delete;
    ~Blocks() {
        if (descriptor_ >= 0) close(descriptor_);
    }
    // The next block, empty at the end and after a failure, with errno.
    std::string_view next() {
        errno = descriptor_ < 0 ? ENOENT : 0;
        if (descriptor_ < 0) return {};
        ssize_t count = 0;
        do {
            count = ::read(descriptor_, buffer_.data(), buffer_.size());
        } while (count < 0 && errno == EINTR);
        if (count >= 0) errno = 0;
        return {buffer_.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0))};
    }

private:
    const int descriptor_;
    std::string buffer_;
};

// Removes parts of `text`, which are in its order.
void erase(std::string& text, const std::vector<std::pair<std::size_t, std::size_t>>& parts) {
    std::size_t to = parts.front().first;
    for (std::size_t i = 0; i < parts.size(); ++i) {
        const std::size_t from = parts[i].second;
        const std::size_t end = i + 1 < parts.size() ? parts[i + 1].first : text.size();
        std::memmove(text.data() + to, text.data() + from, end - from);
        to += end - from;
    }
    text.resize(to);
}

}  // namespace

RecordJob::End RecordJob::dropRepeated(Batch& batch) {
    std::map<std::string*, std::vector<std::pair<std::size_t, std::size_t>>> repeated;
    std::size_t removed = 0;  // from the output of the job
    for (const Batch::Keyed& keyed : batch.keyed) {
        const bool isNamed = !keyed.output.empty();
        std::string& output = isNamed ? batch.outputs[keyed.output] : batch.output;
        const std::size_t size = keyed.end - keyed.begin;
        if (!keys_.add(keyed.key).second) {
            repeated[&output].emplace_back(keyed.begin, keyed.end);
            --batch.counts.written;
            ++batch.counts.dropped;
            if (!isNamed) removed += size;
        } else if (!options_.state.empty()) {
            const std::size_t begin = outputSize_ + keyed.begin - removed;
            PartState::append(
                {static_cast<std::int64_t>(begin), static_cast<std::int64_t>(size), keyed.key},
                state_);
        }
    }
    for (const auto& [output, parts] : repeated) erase(*output, parts);
    if (keys_.bytes() + state_.size() <= options_.tableBytes) return End::Done;
    error_ =
        "recordUnique: limit `tables' of " + std::to_string(options_.tableBytes) + " bytes passed";
    return End::Stopped;
}

RecordJob::End RecordJob::joinTotals(End end) {
    if (workers_.empty() || !workers_.front()->totals().areUsed()) return end;
    Totals& totals = workers_.front()->totals();
    for (std::size_t i = 1; i < workers_.size(); ++i) {
        workers_[i]->interpreter().skipEnd();
        const std::string wrong = totals.merge(workers_[i]->totals());
        if (wrong.empty() || end != End::Done) continue;
        error_ = "the totals of the workers: " + wrong;
        end = End::Stopped;
    }
    const bool isPart = !options_.state.empty();
    if (isPart || end != End::Done) workers_.front()->interpreter().skipEnd();
    if (!isPart || end != End::Done) return end;
    std::string text;
    totals.write(text);
    PartState::append(text, state_);
    RecordOutput file;
    if (file.open(options_.state, !options_.isWatchedOver) &&
        file.write(PartState::header() + state_) && file.finish()) {
        return end;
    }
    return fail(file);
}

RecordJob::End RecordJob::addPart(const PartFiles& part) {
    std::string text;
    if (!part.state.empty()) {
        Blocks file(part.state);
        for (std::string_view block = file.next(); !block.empty(); block = file.next()) {
            text += block;
        }
    }
    PartState state;
    if (!part.state.empty() && !state.read(text)) return fail(part.state + ": it is damaged");
    std::vector<PartState::Keyed> repeated;
    for (const PartState::Keyed& keyed : state.keyed()) {
        if (!keys_.add(keyed.key).second) repeated.push_back(keyed);
    }
    counts_.written -= static_cast<std::int64_t>(repeated.size());
    counts_.dropped += static_cast<std::int64_t>(repeated.size());
    std::int64_t at = 0;
    auto next = repeated.begin();
    Blocks records(part.records);
    std::string_view block;
    while (!(block = records.next()).empty()) {
        if (stop_.isRaised()) return End::Interrupted;
        while (!block.empty()) {
            const auto size = static_cast<std::int64_t>(block.size());
            const std::int64_t begin = next == repeated.end() ? INT64_MAX : next->begin;
            std::int64_t taken = 0;
            if (at < begin) {
                taken = std::min(size, begin - at);
                if (!output_.write(block.substr(0, static_cast<std::size_t>(taken)))) {
                    return fail(output_);
                }
            } else {
                taken = std::min(size, begin + next->size - at);
                if (at + taken == begin + next->size) ++next;
            }
            at += taken;
            block.remove_prefix(static_cast<std::size_t>(taken));
        }
    }
    if (errno != 0) return fail(part.records + ": " + std::strerror(errno));
    if (rejects_.isOpen()) {
        Blocks rejects(part.rejects);
        while (!(block = rejects.next()).empty()) {
            if (!rejects_.write(block)) return fail(rejects_);
        }
        if (errno != 0) return fail(part.rejects + ": " + std::strerror(errno));
    }
    if (part.state.empty()) return End::Done;
    const std::string wrong = workers_.front()->totals().read(state.totals());
    if (wrong.empty()) return End::Done;
    error_ = part.state + ": " + wrong;
    return End::Stopped;
}

RecordJob::End RecordJob::merge(SCR::Log& log, const Make& make, const Compile& compile,
                                const std::vector<PartFiles>& parts, const Counts& counts) {
    counts_ = counts;
    if (const End end = readTables(); end != End::Done) return end;
    if (const End end = openInput(); end != End::Done) return end;
    if (const End end = planColumns(options_.script); end != End::Done) return end;
    log_ = &log;
    make_ = make;
    compile_ = compile;
    watcher_.emplace(stop_);
    End end = addWorker();
    watcher_->allow(allowanceCM);
    if (end == End::Done) end = openOutputs();
    const bool isOpen = end == End::Done;
    for (const PartFiles& part : parts) {
        if (end == End::Done) end = addPart(part);
    }
    if (end != End::Done && !workers_.empty()) workers_.front()->interpreter().skipEnd();
    end = finishScripts(end);
    if (isOpen) end = finishOutputs(end);
    watcher_.reset();
    workers_.clear();
    return end;
}

}  // namespace Records
