#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include "author/server/Server.h"
#include "scr/Limits.h"

namespace Playground {

using Author::Json;

/// What a page asks about scripts, each question a JSON object with its answer. Files are read and
/// written only where a question names them; scripts reach none, and nothing outside of the limits.
/// One thread.
class Session {
public:
    Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    /// Answers the question whose kind the member "ask" names: "author", "check", "run", "patterns"
    /// or "cases". A question that is none gets {"error": why}. The text is UTF-8.
    std::string answer(const std::string& question);
    /// Told now and then how many records a run has read.
    void progress(std::function<void(std::int64_t records)> tell) { progress_ = std::move(tell); }

private:
    Json author(const Json& question);
    Json records(const Json& question);
    Json run(const Json& question);

    Json records_;  // of the check, as "records" gave them
    Json sent_ = Json::array();
    std::function<void(std::int64_t)> progress_;
    std::unique_ptr<Author::Server> server_;
};

/// Which patterns match which texts, and which never are the first: see the manual of the page.
Json inspectPatterns(const Json& question);
/// The switches over patterns of a script.
Json casesOf(const Json& question);

}  // namespace Playground
