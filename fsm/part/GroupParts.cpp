#include "fsm/part/GroupParts.h"

#include <numeric>
#include <string>

#include "fsm/part/BitPart.h"
#include "fsm/part/LiteralPart.h"
#include "fsm/part/StreamPart.h"
#include "fsm/part/TablePart.h"
#include "fsm/part/WordPart.h"
#include "fsm/pattern/Characters.h"
#include "fsm/store/Archive.h"

namespace FSM {

namespace {

std::unique_ptr<Part> emptyPart(Part::Kind kind) {
    switch (kind) {
        case Part::Kind::Tables:
            return std::make_unique<TablePart>();
        case Part::Kind::Literals:
            return std::make_unique<LiteralPart>();
        case Part::Kind::Words:
            return std::make_unique<WordPart>();
        case Part::Kind::Bits:
            return std::make_unique<BitPart>();
        case Part::Kind::Streams:
            return std::make_unique<StreamPart>();
    }
    return nullptr;
}

std::size_t sum(const std::vector<std::unique_ptr<Part>>& parts,
                std::size_t (Part::*count)() const) {
    return std::accumulate(
        parts.begin(), parts.end(), std::size_t{0},
        [&](std::size_t all, const auto& part) { return all + (*part.*count)(); });
}

}  // namespace

bool GroupParts::match(std::string_view text, Found& found) const {
    if (options.ignoresCase || options.isUtf8) return matchOtherwise(text, found);
    bool isInside = false;
    for (const auto& part : parts) isInside = part->match(text, found) || isInside;
    return isInside;
}

// Automata know characters and their cases, if they are not made for UTF-8 alone. Words are kept in
// one case and take any bytes between them, so they need a text of one case, and one in UTF-8.
bool GroupParts::matchOtherwise(std::string_view text, Found& found) const {
    thread_local std::string foldedS;
    std::string_view wordText = text;
    bool isPrepared = false;
    bool fitsWords = true;
    if (needsUtf8) {
        if (!options.takesNul) text = text.substr(0, text.find('\0'));
        if (!isUtf8(text)) {
            for (const auto& part : parts) part->addNegated(found);
            return false;
        }
    }
    bool isInside = false;
    for (const auto& part : parts) {
        if (!part->holdsWords()) {
            isInside = part->match(text, found) || isInside;
            continue;
        }
        if (!isPrepared) {
            isPrepared = true;
            if (!options.takesNul) wordText = text.substr(0, text.find('\0'));
            // Where it matters which texts leave, these parts hold words alone.
            fitsWords = needsUtf8 || !options.isUtf8 || acceptsEmpty || isUtf8(wordText);
            if (fitsWords && options.ignoresCase) {
                foldCase(wordText, options, foldedS);
                wordText = foldedS;
            }
        }
        if (fitsWords) isInside = part->match(wordText, found) || isInside;
    }
    return isInside;
}

const Table* GroupParts::onlyTable() const {
    if (needsUtf8 || parts.size() != 1 || parts[0]->kind() != Part::Kind::Tables) return nullptr;
    return static_cast<const TablePart*>(parts[0].get())->only();
}

const Table* GroupParts::onlyTailed() const {
    if (needsUtf8 || parts.size() != 1 || parts[0]->kind() != Part::Kind::Tables) return nullptr;
    return static_cast<const TablePart*>(parts[0].get())->onlyTailed();
}

const LiteralPart* GroupParts::onlyLiterals() const {
    const bool isPlain = !options.ignoresCase && !options.isUtf8;
    if (!isPlain || parts.size() != 1 || parts[0]->kind() != Part::Kind::Literals) return nullptr;
    return static_cast<const LiteralPart*>(parts[0].get());
}

bool GroupParts::archive(Archive& archive) {
    std::uint64_t count = parts.size();
    archive.value(count);
    archive.options(options);
    archive.flag(acceptsEmpty);
    archive.flag(needsUtf8);
    for (std::size_t i = 0; archive.isGood() && i < count; ++i) {
        Part::Kind kind = archive.isReading() ? Part::Kind{} : parts[i]->kind();
        archive.value(kind);
        if (archive.isReading()) {
            parts.push_back(emptyPart(kind));
            if (parts[i] == nullptr) return false;
        }
        if (!parts[i]->archive(archive)) return false;
    }
    return archive.isGood();
}

std::size_t GroupParts::automatonCount() const { return sum(parts, &Part::automatonCount); }

std::size_t GroupParts::stateCount() const { return sum(parts, &Part::stateCount); }

std::size_t GroupParts::memory() const { return sum(parts, &Part::memory); }

}  // namespace FSM
