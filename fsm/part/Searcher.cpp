#include "fsm/part/Searcher.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "fsm/pattern/Characters.h"
#include "fsm/table/Determiniser.h"

namespace FSM {

namespace {

// Shorter words pass a filter that is of no use for long ones.
constexpr std::size_t shortestLongS = 4;

// Any bytes, then `part`.
std::unique_ptr<EnginePart> afterAnything(const EnginePart& part) {
    auto all = std::make_unique<EnginePart>(false);
    all->addCharacters(0, 255);
    all->makeZeroOrMore();
    EnginePart own(part);
    all->concatenate(own);
    return all;
}

}  // namespace

Limit Searcher::build(Vector<Pattern>& patterns, const PatternOptions& options,
                      const BuildLimits& limits) {
    if (takeWords(patterns, options)) return Limit::None;
    const StateRoom room(limits.bytes);
    try {
        for (Pattern& pattern : patterns) pattern.parse(options);
        return makeTables(patterns, limits);
    } catch (const NoStateRoom&) {
        return Limit::Bytes;
    }
}

// The automata of whole texts and those that tell where matches end and where they begin.
Limit Searcher::makeTables(Vector<Pattern>& patterns, const BuildLimits& limits) {
    Limit passed = makeTable(patterns, limits, whole_);
    if (passed != Limit::None) return passed;
    Vector<std::unique_ptr<EnginePart>> parts;
    for (Pattern& pattern : patterns) {
        parts.push_back(pattern.part->nonEmpty());
        pattern.part = afterAnything(*parts.back());
    }
    passed = makeTable(patterns, limits, ends_);
    if (passed != Limit::None) return passed;
    for (std::size_t i = 0; i < patterns.size(); ++i) {
        patterns[i].part = afterAnything(*parts[i]->reversed());
    }
    return makeTable(patterns, limits, begins_);
}

Limit Searcher::makeTable(const Vector<Pattern>& patterns, const BuildLimits& limits,
                          Table& table) {
    RawAutomaton raw;
    const Limit passed = determinise(patterns.data(), patterns.size(), limits, raw);
    if (passed != Limit::None) return passed;
    const bool isBuilt =
        table.build(std::move(raw), {}, {}, false, limits.bytes / sizeof(std::int32_t));
    return isBuilt ? Limit::None : Limit::Bytes;
}

bool Searcher::takeWords(const Vector<Pattern>& patterns, const PatternOptions& options) {
    // The cases of a character may differ in length.
    if (options.ignoresCase && options.isUtf8) return false;
    foldsWords_ = options.ignoresCase;
    struct Word {
        std::string text;
        std::int32_t path;
    };
    Shape shape;
    std::vector<Word> words;
    Charge charge;
    for (const Pattern& pattern : patterns) {
        if (!shape.read(pattern.text, options) || !shape.isLiteral() || shape.endsWild)
            return false;
        if (shape.bytes.empty()) continue;  // matches are never empty
        charge.take(sizeof(Word) + blockBytes(shape.bytes.size()));
        words.push_back({shape.bytes, pattern.path});
    }
    countWork(32 * words.size());
    std::sort(words.begin(), words.end(), [](const Word& a, const Word& b) {
        const bool isLong = a.text.size() >= shortestLongS;
        if (isLong != (b.text.size() >= shortestLongS)) return !isLong;
        return std::tie(a.text, a.path) < std::tie(b.text, b.path);
    });
    NumberLists::Maker lists;
    std::size_t next = 0;
    for (std::size_t kind = 0; kind < words_.size(); ++kind) {
        Vector<std::string_view> texts;
        Vector<NumberLists::Ref> refs;
        while (next < words.size() && (words[next].text.size() >= shortestLongS) == (kind == 1)) {
            texts.push_back(words[next].text);
            Vector<std::int32_t> paths;
            for (; next < words.size() && words[next].text == texts.back(); ++next) {
                if (paths.empty() || paths.back() != words[next].path) {
                    paths.push_back(words[next].path);
                }
            }
            refs.push_back(lists.add(paths));
        }
        words_[kind].scan = WordScan(texts);
        words_[kind].lists = Flat<NumberLists::Ref>(std::move(refs));
    }
    lists_ = NumberLists(lists.take());
    hasWords_ = true;
    return true;
}

// Calls visit(list, begin, end) for all words that begin at or after `from`.
template <class Visitor>
void Searcher::visitWords(std::string_view text, std::size_t from, Visitor visit) const {
    for (const Words& words : words_) {
        words.scan.scan(text, from, text.size(),
                        [&](std::uint32_t word, std::size_t begin, std::size_t end) {
                            visit(words.lists[word], begin, end);
                            return true;
                        });
    }
}

void Searcher::addEnds(Table::Row row, std::size_t end, std::vector<Match>& matches) const {
    for (const std::int32_t path : ends_.state(row)->pathNumbers()) {
        matches.push_back({Match::unknownCM, end, path});
    }
}

// The text in which words are searched, until the next call of this thread.
std::string_view Searcher::inOneCase(std::string_view text) const {
    if (!foldsWords_) return text;
    thread_local std::string foldedS;
    foldCase(text, {}, foldedS);
    return foldedS;
}

void Searcher::find(std::string_view text, Find what, std::vector<Match>& matches) const {
    if (what == Find::AllEnds) {
        Progress progress;
        findOn(progress, text, matches);
    } else if (hasWords_) {
        findLongestWords(text, matches);
    } else {
        findLongest(text, matches);
    }
}

void Searcher::findOn(Progress& progress, std::string_view piece,
                      std::vector<Match>& matches) const {
    const std::size_t first = matches.size();
    if (!hasWords_) {
        if (!progress.isBegun) progress.row = ends_.startRow();
        progress.isBegun = true;
        for (std::size_t i = 0; i < piece.size(); ++i) {
            progress.row = ends_.next(progress.row, piece[i]);
            addEnds(progress.row, progress.before + i + 1, matches);
        }
        progress.before += piece.size();
        return;
    }
    piece = inOneCase(piece);
    // Words may begin in the bytes kept of earlier pieces; those that end there are known.
    const std::size_t longest = std::max(words_[0].scan.longest(), words_[1].scan.longest());
    const auto search = [&](std::string_view text, std::size_t offset, std::size_t known) {
        visitWords(text, 0, [&](NumberLists::Ref list, std::size_t begin, std::size_t end) {
            if (end <= known) return;
            const auto add = [&](std::int32_t path) {
                matches.push_back({offset + begin, offset + end, path});
            };
            lists_.visit(list, add);
        });
    };
    if (!progress.tail.empty()) {
        const std::size_t known = progress.tail.size();
        const std::size_t offset = progress.before - known;
        const std::size_t taken = std::min(piece.size(), longest - 1);
        progress.tail.append(piece.substr(0, taken));
        // Only words that begin in the tail.
        const std::size_t from = matches.size();
        search(progress.tail, offset, known);
        matches.erase(
            std::remove_if(matches.begin() + static_cast<std::ptrdiff_t>(from), matches.end(),
                           [&](const Match& match) { return match.begin >= progress.before; }),
            matches.end());
    }
    search(piece, progress.before, 0);
    progress.before += piece.size();
    if (longest > 1) {
        const std::size_t kept = longest - 1;
        if (piece.size() >= kept) {
            progress.tail.assign(piece.substr(piece.size() - kept));
        } else {
            // The tail holds the piece already, unless it was empty before.
            if (progress.tail.empty()) progress.tail.assign(piece);
            if (progress.tail.size() > kept) {
                progress.tail.erase(0, progress.tail.size() - kept);
            }
        }
    }
    std::sort(matches.begin() + static_cast<std::ptrdiff_t>(first), matches.end(),
              [](const Match& a, const Match& b) {
                  return std::tie(a.end, a.begin, a.path) < std::tie(b.end, b.begin, b.path);
              });
}

void Searcher::findLongestWords(std::string_view text, std::vector<Match>& matches) const {
    // The best word at each place comes last of its scan; both scans are merged by their places.
    thread_local std::vector<Match> roomS;
    roomS.clear();
    visitWords(inOneCase(text), 0, [&](NumberLists::Ref list, std::size_t begin, std::size_t end) {
        std::int32_t lowest = -1;
        lists_.visit(list, [&](std::int32_t path) {
            if (lowest < 0) lowest = path;
        });
        if (!roomS.empty() && roomS.back().begin == begin) {
            roomS.back() = {begin, end, lowest};
        } else {
            roomS.push_back({begin, end, lowest});
        }
    });
    std::sort(roomS.begin(), roomS.end(), [](const Match& a, const Match& b) {
        return a.begin != b.begin ? a.begin < b.begin : a.end > b.end;
    });
    std::size_t done = 0;
    for (const Match& match : roomS) {
        if (match.begin < done) continue;
        matches.push_back(match);
        done = match.end;
    }
}

void Searcher::findLongest(std::string_view text, std::vector<Match>& matches) const {
    // Where matches begin, a bit for each place.
    thread_local std::vector<std::uint64_t> beginsS;
    beginsS.assign(text.size() / 64 + 1, 0);
    Table::Row row = begins_.startRow();
    for (std::size_t i = text.size(); i-- > 0;) {
        row = begins_.next(row, text[i]);
        if (begins_.firstPath(row) >= 0) beginsS[i / 64] |= std::uint64_t{1} << (i % 64);
    }
    for (std::size_t i = 0; i < text.size();) {
        const std::uint64_t left = beginsS[i / 64] >> (i % 64);
        if (left == 0) {
            i += 64 - i % 64;
            continue;
        }
        i += static_cast<unsigned>(__builtin_ctzll(left));
        Match match{i, i, -1};
        Table::Row at = whole_.startRow();
        for (std::size_t end = i; end < text.size();) {
            at = whole_.next(at, text[end++]);
            if (at == 0) break;
            if (whole_.firstPath(at) >= 0) match = {i, end, whole_.firstPath(at)};
        }
        if (match.path < 0) {
            ++i;  // only the empty text matches there
        } else {
            matches.push_back(match);
            i = match.end;
        }
    }
}

std::size_t Searcher::memory() const {
    if (!hasWords_) return ends_.memory() + begins_.memory() + whole_.memory();
    std::size_t bytes = lists_.bytes();
    for (const Words& words : words_) bytes += words.scan.bytes() + words.lists.bytes();
    return bytes;
}

}  // namespace FSM
