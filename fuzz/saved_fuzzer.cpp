#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "fsm/Engine.h"
#include "fsm/EngineGroup.h"
#include "fsm/store/SavedFile.h"

namespace {

/// A file of this process, which lasts as long as it.
struct TemporaryFile {
    TemporaryFile() : path("/tmp/kestrel-fuzz-" + std::to_string(getpid())) {}
    ~TemporaryFile() { unlink(path.c_str()); }
    std::string path;
};

struct List {
    std::vector<std::string> patterns;
    std::size_t partLimit;
    bool isChanged;
};

// Lists that make each kind of parts, together and alone; the last file is that of an engine.
std::vector<std::string> contents(const std::string& file) {
    const std::vector<List> lists = {
        {{"ab", "abc.*", "longer than eight", ".*bca.*", ".*ab.*c.*", "a.*b"}, 50, false},
        {{"[ab]+c", "!b*", "a.*|c.*", "(ab|c)\n.*"}, 50, false},
        {{".*a.{30}b.*", "x{2,30}.*y.{20}"}, 50, false},
        // One table; one with tails apart; trees of words and searches for words alone.
        {{"[ab]+c", "ab.*", "c{3}"}, 0, false},
        {{".*ab.*", ".*bc.*", ".*ca.*", ".*bb.*", ".*cab.*", ".*y.*", ".*xx.*"}, 0, false},
        {{"ab", "abc.*", "longer.*", "c\nab.*"}, 50, false},
        {{".*bca.*", ".*ab.*c.*", "a.*b"}, 50, false},
        {{"[ab]+c", "abcabc", ".*ab.*", "a.*", "x[xy]*"}, 0, true}};
    std::vector<std::string> saved;
    FND::String error;
    const auto keep = [&](char kind) {
        FSM::SavedFile mapped;
        if (!error.empty() || !mapped.map(file, kind).empty()) std::abort();
        saved.emplace_back(mapped.content());
    };
    for (const List& list : lists) {
        FSM::EngineGroup group;
        group.partLimit(list.partLimit);
        group.isChangeable(list.isChanged);
        for (const std::string& pattern : list.patterns) group.insertPattern(pattern);
        if (!group.finalSetup()) std::abort();
        if (list.isChanged) {
            group.insertPattern("ab[a-c]*");
            group.insertPattern("longer.*");
            if (group.removePatterns(1) != 1 || !group.finalSetup()) std::abort();
        }
        if (!group.save(file, error)) std::abort();
        keep('g');
    }
    FSM::Engine engine;
    for (const std::string& pattern : lists[1].patterns) engine.insertPattern(pattern);
    if (!engine.finalSetup() || !engine.save(file, error)) std::abort();
    keep('e');
    return saved;
}

constexpr std::string_view textsS[] = {"",
                                       "ab",
                                       "abcabc",
                                       "longer than eight",
                                       "c\nab\n",
                                       "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab",
                                       "xxyxxxyxyxyxyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy"};

template <class Engine, class Match>
void tryOut(const std::string& file, Match match) {
    auto engine = std::make_unique<Engine>();
    if (!engine->load(file)) {
        if (engine->error().empty()) std::abort();
        return;
    }
    for (const std::string_view text : textsS) match(*engine, text);
}

}  // namespace

/// Loads files of automata in which bytes differ from those that were saved, with a checksum that
/// fits, and files of any bytes. What is not refused must be safe to match with. The first byte
/// chooses the file; every four after that are the place of a byte, three of them, and what it is
/// changed by.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const TemporaryFile fileS;
    static const std::vector<std::string> contentsS = contents(fileS.path);
    if (size == 0) return 0;
    const std::size_t chosen = data[0] % (contentsS.size() + 1);
    const std::string_view input(reinterpret_cast<const char*>(data) + 1, size - 1);
    if (chosen == contentsS.size()) {
        std::ofstream(fileS.path, std::ios::binary | std::ios::trunc) << input;
    } else {
        std::string content = contentsS[chosen];
        for (std::size_t i = 0; i + 4 <= input.size(); i += 4) {
            const auto byte = [&](std::size_t j) {
                return static_cast<std::uint8_t>(input[i + j]);
            };
            const std::size_t at =
                byte(0) + byte(1) * std::size_t{256} + byte(2) * std::size_t{65536};
            content[at % content.size()] ^= input[i + 3];
        }
        const char kind = chosen + 1 == contentsS.size() ? 'e' : 'g';
        if (!FSM::SavedFile::write(fileS.path, content, kind).empty()) std::abort();
    }
    std::vector<std::int32_t> paths;
    std::vector<std::size_t> ends;
    tryOut<FSM::EngineGroup>(fileS.path, [&](const FSM::EngineGroup& group, std::string_view text) {
        group.process(text, paths);
        group.firstPath(text);
        if (text.empty()) group.matchAll(textsS, ends, paths);
    });
    tryOut<FSM::Engine>(fileS.path, [&](const FSM::Engine& engine, std::string_view text) {
        paths = engine.process(text)->pathNumbers();
        if (engine.process(text.data()) == nullptr) std::abort();
    });
    return 0;
}
