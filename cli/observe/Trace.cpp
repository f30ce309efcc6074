#include "cli/observe/Trace.h"

#include <utility>

#include "cli/script/MessageText.h"
#include "records/json/JsonRecord.h"
#include "scr/Output.h"

namespace Cli {
namespace {

using Kind = SCR::ObservedSite::Kind;

// Where the texts of statements begin.
constexpr std::size_t columnS = 16;

std::string jsonOf(std::string_view text) {
    std::string jsonOf;
    Records::appendText(readable(text), jsonOf);
    return jsonOf;
}

const char* roleOf(Kind kind) {
    return kind == Kind::Assigned   ? "assigned"
           : kind == Kind::Argument ? "argument"
           : kind == Kind::Returned ? "returned"
           : kind == Kind::Selector ? "selector"
                                    : "operand";
}

}  // namespace

Trace::Trace(SourceText source, bool isJson, std::size_t mostBytes)
    : Observation(eventsCM), source_(std::move(source)), isJson_(isJson), mostBytes_(mostBytes) {}

void Trace::finish() {
    flushValues();
    depth_ = 0;
}

std::string Trace::placeOf(const SCR::ObservedSite& site) const {
    std::string path = source_.file(site.file).path;
    if (path.empty()) path = site.file;
    const std::size_t slash = path.rfind('/');
    if (slash != std::string::npos) path.erase(0, slash + 1);
    return path + ":" + std::to_string(site.line);
}

bool Trace::isFull() {
    if (written_ <= mostBytes_) return false;
    if (!std::exchange(isCut_, true)) line(isJson_ ? "{\"event\":\"cut\"}" : "... and so on");
    return true;
}

void Trace::line(std::string text) {
    text += '\n';
    written_ += text.size();
    SCR::standardOutput().write(text);
}

void Trace::detail(const std::string& text) {
    line(std::string(columnS + 2 * depth_, ' ') + "-> " + text);
}

void Trace::flushValues(const std::string& prefix) {
    std::string text = prefix;
    const char* separator = prefix.empty() ? "" : ": ";
    for (const Value& value : values_) {
        const SCR::ObservedSite& site = sites()[value.site];
        const bool isRead = site.kind == Kind::Operand || site.kind == Kind::Selector;
        text += separator;
        if (site.kind == Kind::Returned) {
            text += "returns ";
        } else {
            text += readable(site.text) + (isRead ? " is " : " = ");
        }
        text += readable(value.text);
        separator = ", ";
    }
    values_.clear();
    if (!text.empty() && !isFull()) detail(text);
}

void Trace::add(const char* event, const SCR::ObservedSite& site, const std::string& more) {
    if (isFull()) return;
    std::string path = source_.file(site.file).path;
    line(std::string("{\"event\":\"") + event + "\",\"depth\":" + std::to_string(depth_) +
         ",\"file\":" + jsonOf(path.empty() ? site.file : path) +
         ",\"line\":" + std::to_string(site.line) + ",\"text\":" + jsonOf(site.text) + more + '}');
}

void Trace::failed(const std::string& reason) {
    if (!isJson_) flushValues();
    if (isFull()) return;
    if (!isJson_) return detail("rejected: " + readable(reason));
    line("{\"event\":\"failure\",\"depth\":" + std::to_string(depth_) +
         ",\"text\":" + jsonOf(reason) + '}');
}

void Trace::statement(std::size_t site) {
    const SCR::ObservedSite& at = sites()[site];
    if (isJson_) return add("statement", at);
    flushValues();
    if (isFull()) return;
    std::string place = placeOf(at);
    place += std::string(place.size() < columnS ? columnS - place.size() : 1, ' ');
    line(place + std::string(2 * depth_, ' ') + readable(at.text));
}

void Trace::condition(std::size_t site, bool holds) {
    const SCR::ObservedSite& at = sites()[site];
    if (isJson_) return add("condition", at, holds ? ",\"holds\":true" : ",\"holds\":false");
    flushValues(holds ? "true" : "false");
}

void Trace::chosen(std::size_t site) {
    const SCR::ObservedSite& at = sites()[site];
    if (isJson_) return add("case", at);
    flushValues();
    if (isFull()) return;
    detail((at.text == "default" ? "" : "case ") + readable(at.text) + ", line " +
           std::to_string(at.line));
}

void Trace::value(std::size_t site, const FND::String& text) {
    const SCR::ObservedSite& at = sites()[site];
    if (isJson_) {
        return add("value", at,
                   std::string(",\"role\":\"") + roleOf(at.kind) + "\",\"value\":" + jsonOf(text));
    }
    if (!isCut_) values_.push_back({site, text});
}

void Trace::entered(std::size_t site) {
    if (isJson_) {
        if (site != 0) add("call", sites()[site]);
    } else {
        flushValues();
    }
    // Functions that the command calls are not in another.
    constexpr std::size_t deepest = 30;
    if (site != 0 && depth_ < deepest) ++depth_;
}

void Trace::left(std::size_t site) {
    flushValues();
    if (depth_ > 0) --depth_;
    if (isJson_) add("return", sites()[site]);
}

}  // namespace Cli
