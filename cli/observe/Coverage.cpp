#include "cli/observe/Coverage.h"

#include <algorithm>
#include <charconv>
#include <fstream>
#include <string_view>

#include "cli/observe/Observations.h"
#include "cli/observe/Page.h"
#include "cli/script/SourceText.h"

namespace Cli {
namespace {

using Kind = SCR::ObservedSite::Kind;

// The fields of a line, separated by commas; the last one takes the rest.
std::vector<std::string_view> fieldsOf(std::string_view text, std::size_t count) {
    std::vector<std::string_view> fields;
    while (fields.size() + 1 < count) {
        const std::size_t comma = text.find(',');
        if (comma == std::string_view::npos) break;
        fields.push_back(text.substr(0, comma));
        text.remove_prefix(comma + 1);
    }
    fields.push_back(text);
    return fields;
}

bool readNumber(std::string_view text, std::int64_t& number) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc() && end == text.data() + text.size();
}

}  // namespace

std::string Coverage::Share::text() const {
    return std::to_string(hit) + " of " + std::to_string(all) + " (" + percent(hit, all) + " %)";
}

Coverage::Coverage(const Observations& observations, const SourceText& source) {
    for (std::size_t site = 0; site < observations.sites().size(); ++site) {
        const SCR::ObservedSite& at = observations.sites()[site];
        const std::string& path = source.file(at.file).path;
        addSite(site, observations, files_[path.empty() ? at.file : path]);
    }
}

void Coverage::addSite(std::size_t site, const Observations& observations, File& file) {
    const SCR::ObservedSite& at = observations.sites()[site];
    const std::int64_t reached = observations.reached(site).all();
    switch (at.kind) {
        case Kind::Function:
            if (site != 0) file.functions[at.text] = {at.line, reached};
            break;
        case Kind::Statement: {
            std::int64_t& line = file.lines.try_emplace(at.line, 0).first->second;
            line = std::max(line, reached);
            break;
        }
        case Kind::Condition: {
            const std::int64_t otherwise = observations.otherwise(site).all();
            const bool isReached = reached + otherwise != 0;
            // The same in each run, whatever else is compiled with the file.
            std::int64_t block = 0;
            while (file.branches.contains({at.line, block, "true"})) ++block;
            const auto taken = [&](std::int64_t count) {
                return isReached ? std::optional(count) : std::nullopt;
            };
            file.branches[{at.line, block, "true"}] = taken(reached);
            file.branches[{at.line, block, "false"}] = taken(otherwise);
            break;
        }
        case Kind::Case: {
            const std::size_t owner = at.owner;
            const bool isOwned = owner != SCR::ObservedSite::none;
            const bool isReached = isOwned && observations.reached(owner).all() != 0;
            const std::int64_t block = isOwned ? observations.sites()[owner].line : 0;
            const std::string name = at.text == "default" ? at.text : "case " + at.text;
            file.branches[{at.line, block, name}] =
                isReached ? std::optional(reached) : std::nullopt;
            break;
        }
        default:
            break;
    }
}

std::string Coverage::lcov() const {
    std::string out;
    for (const auto& [path, file] : files_) {
        out += "TN:\nSF:" + path + '\n';
        std::int64_t hit = 0;
        for (const auto& [name, function] : file.functions) {
            out += "FN:" + std::to_string(function.line) + ',' + name + '\n';
        }
        for (const auto& [name, function] : file.functions) {
            out += "FNDA:" + std::to_string(function.calls) + ',' + name + '\n';
            hit += function.calls != 0 ? 1 : 0;
        }
        out +=
            "FNF:" + std::to_string(file.functions.size()) + "\nFNH:" + std::to_string(hit) + '\n';
        hit = 0;
        for (const auto& [branch, taken] : file.branches) {
            // Names of branches with a comma would be read as a count.
            std::string name = branch.name;
            std::replace(name.begin(), name.end(), ',', ';');
            out += "BRDA:" + std::to_string(branch.line) + ',' + std::to_string(branch.block) +
                   ',' + name + ',' + (taken ? std::to_string(*taken) : "-") + '\n';
            hit += taken.value_or(0) != 0 ? 1 : 0;
        }
        out +=
            "BRF:" + std::to_string(file.branches.size()) + "\nBRH:" + std::to_string(hit) + '\n';
        hit = 0;
        for (const auto& [line, count] : file.lines) {
            out += "DA:" + std::to_string(line) + ',' + std::to_string(count) + '\n';
            hit += count != 0 ? 1 : 0;
        }
        out += "LF:" + std::to_string(file.lines.size()) + "\nLH:" + std::to_string(hit) +
               "\nend_of_record\n";
    }
    return out;
}

bool Coverage::add(const std::string& path, const std::string& folder) {
    std::ifstream stream(path, std::ios::binary);
    if (!stream) return false;
    File* file = nullptr;
    for (std::string line; std::getline(stream, line);) {
        const std::string_view text(line);
        if (text.starts_with("SF:")) {
            const std::string name = line.substr(3);
            file = &files_[name.starts_with("/") ? name : folder + name];
        } else if (file == nullptr) {
            continue;
        } else if (text.starts_with("DA:")) {
            const auto fields = fieldsOf(text.substr(3), 2);
            std::int64_t at = 0;
            std::int64_t count = 0;
            if (fields.size() == 2 && readNumber(fields[0], at) && readNumber(fields[1], count)) {
                file->lines[at] += count;
            }
        } else if (text.starts_with("FN:") || text.starts_with("FNDA:")) {
            const bool isCount = text.starts_with("FNDA:");
            const auto fields = fieldsOf(text.substr(isCount ? 5 : 3), 2);
            std::int64_t number = 0;
            if (fields.size() != 2 || !readNumber(fields[0], number)) continue;
            Function& function = file->functions[std::string(fields[1])];
            if (isCount) {
                function.calls += number;
            } else {
                function.line = number;
            }
        } else if (text.starts_with("BRDA:")) {
            const auto fields = fieldsOf(text.substr(5), 3);
            const std::size_t comma = fields.size() == 3 ? fields[2].rfind(',') : std::string::npos;
            Branch branch;
            if (comma == std::string::npos || !readNumber(fields[0], branch.line) ||
                !readNumber(fields[1], branch.block)) {
                continue;
            }
            branch.name = fields[2].substr(0, comma);
            std::optional<std::int64_t>& taken = file->branches[branch];
            std::int64_t count = 0;
            if (readNumber(fields[2].substr(comma + 1), count)) taken = taken.value_or(0) + count;
        }
    }
    return true;
}

void Coverage::add(Shares& shares, const File& file) {
    const auto count = [](Share& share, bool isHit) {
        ++share.all;
        share.hit += isHit ? 1 : 0;
    };
    for (const auto& [line, times] : file.lines) count(shares.lines, times != 0);
    for (const auto& [name, function] : file.functions)
        count(shares.functions, function.calls != 0);
    for (const auto& [branch, taken] : file.branches) {
        count(branch.isCase() ? shares.cases : shares.branches, taken.value_or(0) != 0);
    }
}

std::string Coverage::summary() const {
    Shares shares;
    for (const auto& [path, file] : files_) add(shares, file);
    return "lines " + shares.lines.text() + ", branches " + shares.branches.text() + ", cases " +
           shares.cases.text();
}

std::string Coverage::page(const SourceText& source) const {
    std::string out = pageHead("Coverage");
    out +=
        "<p>Executed lines are green, those never executed red, and yellow ones have a condition "
        "that was always the same, or a case that was never chosen.</p>\n<table>\n<tr>"
        "<th class=l>file<th>lines<th class=l><th>branches<th>cases<th>functions</tr>\n";
    Shares all;
    std::size_t number = 0;
    const auto row = [&](const std::string& name, const Shares& shares) {
        const auto cell = [](const Share& share) {
            return "<td>" + (share.all == 0
                                 ? std::string("\u2013")
                                 : std::to_string(share.hit) + " / " + std::to_string(share.all));
        };
        out += "<tr><td class=l>" + name + cell(shares.lines) +
               "<td class=l><span class=meter><i style=\"width:" +
               percent(shares.lines.hit, shares.lines.all) + "%\"></i></span> " +
               percent(shares.lines.hit, shares.lines.all) + " %" + cell(shares.branches) +
               cell(shares.cases) + cell(shares.functions) + "</tr>\n";
    };
    for (const auto& [path, file] : files_) {
        Shares shares;
        add(shares, file);
        add(all, file);
        row("<a href=\"#f" + std::to_string(++number) + "\">" + escaped(path) + "</a>", shares);
    }
    if (files_.size() > 1) row("<b>all</b>", all);
    out += "</table>\n";
    number = 0;
    for (const auto& [path, file] : files_) {
        std::vector<std::string> lines;
        for (const auto& [name, known] : source.files()) {
            if (known.path == path) lines = known.lines;
        }
        if (lines.empty()) lines = linesOfFile(path);
        std::map<std::int64_t, std::vector<std::pair<Branch, std::int64_t>>> branches;
        for (const auto& [branch, taken] : file.branches) {
            branches[branch.line].emplace_back(branch, taken.value_or(0));
        }
        if (!file.lines.empty() &&
            lines.size() < static_cast<std::size_t>(file.lines.rbegin()->first))
            lines.resize(std::min<std::size_t>(static_cast<std::size_t>(file.lines.rbegin()->first),
                                               1000000));
        out += "<h2 id=f" + std::to_string(++number) + ">" + escaped(path) +
               "</h2>\n<div class=source><table>\n";
        bool isInComment = false;
        for (std::size_t i = 0; i < lines.size(); ++i) {
            const auto at = static_cast<std::int64_t>(i) + 1;
            const auto counted = file.lines.find(at);
            std::string marks;
            bool isPart = false;
            bool isTaken = false;
            for (const auto& [branch, taken] : branches[at]) {
                isPart = isPart || taken == 0;
                isTaken = isTaken || taken != 0;
                const std::string what = branch.isCase() ? "chosen" : branch.name;
                constexpr std::size_t mostShown = 400;
                if (marks.size() > mostShown) continue;
                marks += "<span class=\"mark " + std::string(taken != 0 ? "yesm" : "nom") + "\">" +
                         (taken != 0 ? what + " " + grouped(taken) + "\u00d7" : "never " + what) +
                         "</span>";
            }
            const bool isLine = counted != file.lines.end();
            const bool isHit = isLine ? counted->second != 0 : isTaken;
            const char* const kind = !isLine && marks.empty() ? ""
                                     : !isHit                 ? " class=no"
                                     : isPart                 ? " class=part"
                                                              : " class=yes";
            out += std::string("<tr") + kind + "><td class=n>" + std::to_string(at) + "<td>" +
                   (isLine ? grouped(counted->second) : "") + "<td class=l>" + marks +
                   "<td class=c>" + highlighted(lines[i], isInComment) + "</tr>\n";
        }
        out += "</table></div>\n";
    }
    return out + pageFoot();
}

bool Coverage::write(const std::string& path, const SourceText& source) const {
    return writeFile(path, path.ends_with(".html") ? page(source) : lcov());
}

}  // namespace Cli
