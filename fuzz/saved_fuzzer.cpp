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

// Lists that make each kind of parts; the last one is that of an engine.
std::vector<std::string> contents(const std::string& file) {
    const std::vector<std::vector<std::string>> lists = {
        {"ab", "abc.*", "longer than eight", ".*bca.*", ".*ab.*c.*", "a.*b"},
        {"[ab]+c", "!b*", "a.*|c.*", "(ab|c)\n.*"},
        {".*a.{30}b.*", "x{2,30}.*y.{20}"}};
    std::vector<std::string> saved;
    FND::String error;
    const auto keep = [&](char kind) {
        FSM::SavedFile mapped;
        if (!error.empty() || !mapped.map(file, kind).empty()) std::abort();
        saved.emplace_back(mapped.content());
    };
    for (const std::vector<std::string>& list : lists) {
        FSM::EngineGroup group;
        group.partLimit(50);
        for (const std::string& pattern : list) group.insertPattern(pattern);
        if (!group.finalSetup() || !group.save(file, error)) std::abort();
        keep('g');
    }
    FSM::Engine engine;
    for (const std::string& pattern : lists[1]) engine.insertPattern(pattern);
    if (!engine.finalSetup() || !engine.save(file, error)) std::abort();
    keep('e');
    return saved;
}

template <class Engine, class Match>
void tryOut(const std::string& file, Match match) {
    auto engine = std::make_unique<Engine>();
    if (!engine->load(file)) {
        if (engine->error().empty()) std::abort();
        return;
    }
    for (const std::string_view text :
         {"", "ab", "abcabc", "longer than eight", "c\nab\n", "aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaab",
          "xxyxxxyxyxyxyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyyy"}) {
        match(*engine, text);
    }
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
    tryOut<FSM::EngineGroup>(fileS.path, [&](const FSM::EngineGroup& group, std::string_view text) {
        group.process(text, paths);
        group.firstPath(text);
    });
    tryOut<FSM::Engine>(fileS.path, [&](const FSM::Engine& engine, std::string_view text) {
        paths = engine.process(text)->pathNumbers();
        if (engine.process(text.data()) == nullptr) std::abort();
    });
    return 0;
}
