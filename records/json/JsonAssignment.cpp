#include <simdjson.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "records/json/JsonRecord.h"

// Values of a record are replaced, added and removed in its text; the rest keeps its bytes.

namespace Records {

// Moves the noted places from `first` to `last` by `distance`, which may be negative.
void JsonRecord::shift(std::size_t first, std::size_t last, std::size_t distance) {
    const auto move = [&](std::size_t& place) {
        if (place >= first && place <= last) place += distance;
    };
    auto member = std::partition_point(members_.begin(), members_.end(),
                                       [&](const Member& m) { return m.valueEnd < first; });
    for (; member != members_.end() && member->valueBegin <= last; ++member) {
        move(member->valueBegin);
        move(member->valueEnd);
    }
    for (Cursor& cursor : cursors_) {
        if (cursor.array == noneCM) continue;
        move(cursor.array);
        move(cursor.child.begin);
        move(cursor.child.valueBegin);
        move(cursor.child.valueEnd);
        move(cursor.child.previousEnd);
    }
    move(edit_.begin);
    move(edit_.end);
}

// Makes room for `size` bytes at `at`, after a child or a bracket, and for later insertions.
void JsonRecord::openGap(std::size_t at, std::size_t size) {
    const std::size_t old = text_.size();
    const std::size_t gap = size + old / 4 + 64;
    const bool isOwn = text_.data() == own_.data();
    if (own_.size() < old + gap) {
        charge_.grow(own_, old + gap);
        own_.resize(old + gap);
    }
    const char* const from = isOwn ? own_.data() : text_.data();
    std::memmove(own_.data() + at + gap, from + at, old - at);
    if (!isOwn) std::memcpy(own_.data(), from, at);
    text_ = std::string_view(own_.data(), old + gap);
    shift(at + 1, old, gap);
    gapBegin_ = at;
    gapEnd_ = at + gap;
}

// Moves the gap to `to`, which is after a child or a bracket.
void JsonRecord::moveGap(std::size_t to) {
    const std::size_t size = gapEnd_ - gapBegin_;
    if (to < gapBegin_) {
        const std::size_t moved = gapBegin_ - to;
        std::memmove(own_.data() + gapEnd_ - moved, own_.data() + to, moved);
        shift(to + 1, gapBegin_, size);
        gapBegin_ = to;
    } else if (to > gapBegin_) {
        const std::size_t moved = to - gapEnd_;
        std::memmove(own_.data() + gapBegin_, own_.data() + gapEnd_, moved);
        shift(gapEnd_, to, std::size_t{0} - size);
        gapBegin_ += moved;
    }
    gapEnd_ = gapBegin_ + size;
}

void JsonRecord::closeGap() {
    if (gapBegin_ == noneCM) return;
    const std::size_t size = gapEnd_ - gapBegin_;
    const std::size_t old = text_.size();
    std::memmove(own_.data() + gapBegin_, own_.data() + gapEnd_, old - gapEnd_);
    shift(gapEnd_, old, std::size_t{0} - size);
    text_ = std::string_view(own_.data(), old - size);
    gapBegin_ = gapEnd_ = noneCM;
}

// Puts `bytes` in place of a value, or between two values.
void JsonRecord::replace(std::size_t begin, std::size_t end, std::string_view bytes) {
    edit_ = {begin, end};
    if (gapBegin_ != noneCM && gapEnd_ - gapBegin_ > bytes.size()) {
        moveGap(end);
    } else {
        closeGap();
        openGap(edit_.end, bytes.size());
    }
    const auto [from, to] = edit_;
    std::memcpy(own_.data() + from, bytes.data(), bytes.size());
    gapBegin_ = from + bytes.size();
    own_[gapBegin_] = ' ';
    if (from == to) return;
    for (Cursor& cursor : cursors_) {
        if (cursor.array >= from && cursor.array < to) cursor = {};
    }
    // Containers that ended there have a new end.
    shift(to, to, gapBegin_ - to);
}

const char* JsonRecord::assign(long number, std::span<const long> indices, std::string_view value) {
    Path& path = paths_[static_cast<std::size_t>(number)];
    const Place place = locate(path, indices);
    const auto isNull = [&] { return text_[place.child.valueBegin] == 'n'; };
    if (place.child.isFound && !place.isBroken) {
        replace(place.child.valueBegin, place.child.valueEnd, value);
        return nullptr;
    }
    if (place.isBroken && !isNull()) return "its path leads through what is no object or array";
    // The missing part of a path: below the names one array per index.
    const bool isElement = !place.isBroken && text_[place.container] == '[';
    std::size_t index = place.index;
    const long count = static_cast<long>(place.child.count);
    if (isElement && indices[index++] != count) return "an index is beyond the end of its array";
    const bool isMember = !place.isBroken && !isElement;
    added_.clear();
    std::string closing;
    std::size_t valueBegin = 0;  // of the value for the first name, in added_
    for (std::size_t i = place.name; i < path.names.size(); ++i) {
        if (!isMember || i != place.name) {
            added_ += '{';
            closing += '}';
        }
        appendQuoted(path.names[i], added_);
        added_ += ':';
        if (i == place.name) valueBegin = added_.size();
    }
    for (; index < indices.size(); ++index) {
        if (indices[index] != 0) return "an index is beyond the end of its array";
        added_ += '[';
        closing += ']';
    }
    charge_.grow(added_, added_.size() + value.size() + closing.size() + 1);
    added_ += value;
    added_.append(closing.rbegin(), closing.rend());
    if (place.isBroken) {
        replace(place.child.valueBegin, place.child.valueEnd, added_);
        return nullptr;
    }
    if (count != 0) added_.insert(0, 1, ',');
    const bool isTop = isMember && place.name == 0;
    if (isElement) {
        Cursor& cursor = cursorOf(place.container);
        if (cursor.elements != noneCM) ++cursor.elements;
    }
    replace(place.child.previousEnd, place.child.previousEnd, added_);
    if (isTop) {
        const std::size_t begin = edit_.begin + (count != 0 ? 1 : 0) + valueBegin;
        path.member = members_.size();
        path.shape = shape_ = ++shapes_;
        members_.push_back({path.names.front(), begin, gapBegin_});
    }
    return nullptr;
}

const char* JsonRecord::assignText(long path, std::span<const long> indices,
                                   std::string_view text) {
    if (!simdjson::validate_utf8(text.data(), text.size())) return "the text is no UTF-8";
    scratch_.clear();
    charge_.grow(scratch_, JsonText::quotedSize(text));
    appendQuoted(text, scratch_);
    return assign(path, indices, scratch_);
}

void JsonRecord::erase(std::span<const Range> ranges) {
    closeGap();
    added_.clear();
    charge_.grow(added_, text_.size());
    std::size_t from = 0;
    for (const Range& range : ranges) {
        added_.append(text_, from, range.begin - from);
        from = range.end;
    }
    added_.append(text_, from);
    std::size_t erased = 0;
    auto next = ranges.begin();
    const auto move = [&](std::size_t& place) {
        for (; next != ranges.end() && next->end <= place; ++next)
            erased += next->end - next->begin;
        place -= erased;
    };
    for (Member& member : members_) {
        move(member.valueBegin);
        move(member.valueEnd);
    }
    own_.swap(added_);
    text_ = own_;
    cursors_.fill({});
}

void JsonRecord::remove(long number, std::span<const long> indices) {
    Path& path = paths_[static_cast<std::size_t>(number)];
    closeGap();
    const Place place = locate(path, indices);
    if (!place.child.isFound || place.isBroken) return;
    std::string scratch;
    std::string_view key;
    std::string name;
    const bool isMember = text_[place.container] == '{';
    const bool isTop = place.container == skipSpace(0);
    if (isTop) {
        name = members_[path.member].name;
        std::erase_if(members_, [&](const Member& member) { return member.name == name; });
        shape_ = ++shapes_;
    } else if (isMember) {
        std::size_t begin = place.child.begin;
        readKey(begin, scratch, key);
        name = key;
    }
    // Each removed child takes the comma before it along, or the comma after it if no child before
    // it stays.
    std::vector<Range> ranges;
    bool isFirst = true;
    std::size_t index = 0;
    std::size_t previousEnd = place.container + 1;
    for (std::size_t i = skipSpace(previousEnd); text_[i] != '}' && text_[i] != ']'; ++index) {
        const std::size_t begin = i;
        bool goes = index == place.child.count;
        if (isMember) {
            readKey(i, scratch, key);
            goes = key == name;
            i = skipSpace(skipSpace(i) + 1);
        }
        const std::size_t end = skipValue(i);
        i = skipSpace(end);
        const bool isLast = text_[i] != ',';
        if (!isLast) i = skipSpace(i + 1);
        if (goes && isFirst) {
            ranges.push_back({begin, isLast ? end : i});
        } else if (goes) {
            ranges.push_back({previousEnd, end});
        }
        isFirst = isFirst && goes;
        previousEnd = end;
    }
    erase(ranges);
}

}  // namespace Records
