#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace Records {

/// What a part of a job leaves for the job that merges the parts: the keys of records of which only
/// the first stays, with their places, and the totals.
class PartState {
public:
    struct Keyed {
        std::int64_t begin;  ///< In the output of the part, in bytes,
        std::int64_t size;   ///< with the line end.
        std::string_view key;
    };

    static std::string header();
    static void append(const Keyed& keyed, std::string& out);
    /// The totals, which come last.
    static void append(std::string_view totals, std::string& out);

    /// Takes the text of a state, which must live as long. False when it is damaged.
    bool read(std::string_view text);
    const std::vector<Keyed>& keyed() const { return keyed_; }
    std::string_view totals() const { return totals_; }

private:
    std::vector<Keyed> keyed_;
    std::string_view totals_;
};

}  // namespace Records
