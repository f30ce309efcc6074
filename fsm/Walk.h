#pragma once

#include <cstdint>
#include <memory>
#include <string_view>
#include <vector>

#include "fsm/Engine.h"
#include "fsm/Match.h"

namespace FSM {

/// Matches a text that comes in pieces, with the same results as if it came at once, wherever it is
/// cut. Used by one thread; any number of walks may use an engine, which must outlive them.
class KESTREL_API Walk {
public:
    /// Begins a text. `engine` is set up.
    explicit Walk(const Engine& engine);
    ~Walk();
    Walk(const Walk&) = delete;
    Walk& operator=(const Walk&) = delete;

    /// Begins another text.
    void begin();
    /// Continues the text. For the match of the whole text it ends at its first NUL.
    void feed(std::string_view piece);
    /// The same. Appends the matches that end in this piece, as `Find::AllEnds` gives them; places
    /// count from the beginning of the text. Only for an engine that searches.
    void feed(std::string_view piece, std::vector<Match>& matches);
    /// What `Engine::process` gives for the text so far. More of it may follow.
    const State* end() const;

private:
    struct Search;

    const Engine& engine_;
    std::uint32_t row_ = 0;
    bool isEnded_ = false;
    std::unique_ptr<Search> progress_;
};

}  // namespace FSM
