#include "fsm/pattern/PatternList.h"

#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "fsm/pattern/PatternParser.h"

namespace FSM {

std::vector<std::int32_t> sortedOnce(std::vector<std::int32_t> paths) {
    std::sort(paths.begin(), paths.end());
    paths.erase(std::unique(paths.begin(), paths.end()), paths.end());
    return paths;
}

void Pattern::parse(const PatternOptions& options) {
    if (part != nullptr) return;
    FND::String error;
    part = parsePattern(text, options, error);
    if (part == nullptr) throw std::bad_alloc();
}

std::size_t lastNegated(const Pattern* first, std::size_t count) {
    for (std::size_t place = count; place-- > 0;) {
        if (first[place].isNegated()) return place;
    }
    return count - 1;
}

void Pattern::parseForUtf8(const PatternOptions& options) {
    FND::String error;
    part.reset();
    part = parsePattern(text, options, error, nullptr, true);
    if (part == nullptr) throw std::bad_alloc();
}

bool PatternList::insert(const FND::String& pattern, unsigned long pathNumber,
                         std::size_t byteLimit, bool keepsWords) {
    isUnparsed_ = false;
    unsigned long path = pathNumber == nextPathCM ? patterns_.size() : pathNumber;
    if (path > static_cast<unsigned long>(std::numeric_limits<std::int32_t>::max())) {
        error_ = "path number " + std::to_string(path) + " is above 2147483647";
        return false;
    }
    try {
        const std::size_t left = byteLimit - std::min(byteLimit, bytes_);
        std::size_t bytes = sizeof(Pattern) + blockBytes(pattern.size());
        if (bytes > left) throw NoStateRoom();
        std::unique_ptr<EnginePart> part;
        countWork(pattern.size() / 4 + 8);
        if (!keepsWords || !shape_.read(pattern, options_)) {
            const StateRoom room(left - bytes);
            part = parsePattern(pattern, options_, error_);
            isUnparsed_ = part == nullptr;
            if (isUnparsed_) return false;
            bytes += room.taken();
        }
        patterns_.push_back({std::move(part), static_cast<std::int32_t>(path), pattern});
        bytes_ += bytes;
    } catch (const NoStateRoom&) {
        error_ = limitError(static_cast<std::int32_t>(path), pattern, byteLimit, "bytes");
        return false;
    } catch (const std::bad_alloc&) {
        error_ = "FSM::EnginePart::operator new():no memory available";
        return false;
    }
    return true;
}

std::vector<std::int32_t> PatternList::paths() const {
    std::vector<std::int32_t> paths;
    paths.reserve(patterns_.size());
    for (const Pattern& pattern : patterns_) paths.push_back(pattern.path);
    return sortedOnce(std::move(paths));
}

std::vector<std::int32_t> PatternList::negatedPaths(const Pattern* first, std::size_t count) {
    std::vector<std::int32_t> paths;
    for (const Pattern* pattern = first; pattern != first + count; ++pattern) {
        if (pattern->isNegated()) paths.push_back(pattern->path);
    }
    return sortedOnce(std::move(paths));
}

FND::String PatternList::limitError(std::int32_t path, const FND::String& pattern,
                                    std::size_t limit, const char* units) {
    constexpr std::size_t bytesShown = 200;
    return "limit of " + std::to_string(limit) + " " + units + " passed at pattern " +
           std::to_string(path) + ": " + pattern.substr(0, bytesShown);
}

FND::String PatternList::limitError(const Pattern& guilty, const BuildLimits& limits,
                                    Limit passed) {
    if (passed == Limit::States) return limitError(guilty, limits.states, "states");
    if (passed == Limit::Bytes) return limitError(guilty, limits.bytes, "bytes");
    return limitError(guilty, limits.work, "steps of work");
}

Vector<Pattern> PatternList::take() {
    bytes_ = 0;
    return std::exchange(patterns_, {});
}

void PatternList::clear() {
    patterns_.clear();
    patterns_.shrink_to_fit();
    bytes_ = 0;
}

}  // namespace FSM
