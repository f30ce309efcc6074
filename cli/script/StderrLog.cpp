#include "cli/script/StderrLog.h"

#include <algorithm>
#include <cstdio>
#include <string_view>
#include <utility>

#include "cli/Command.h"
#include "cli/script/MessageText.h"
#include "scr/message/Quote.h"

namespace Cli {

namespace {

// In pieces, since a message may be as long as a text that it shows.
void writePrintable(std::string_view text) {
    constexpr std::size_t pieceSize = 4096;
    std::string piece;
    for (std::size_t at = 0; at < text.size(); at += pieceSize) {
        piece.clear();
        SCR::appendPrintable(piece, text.substr(at, pieceSize));
        std::fwrite(piece.data(), 1, piece.size(), stderr);
    }
    std::fputc('\n', stderr);
}

}  // namespace

StderrLog::StderrLog(MessageStyle style) : style_(std::move(style)) {}

StderrLog::~StderrLog() {
    if (style_.form != MessageStyle::Form::Sarif) return;
    const std::string report = sarifReport(results_);
    std::fwrite(report.data(), 1, report.size(), stderr);
}

void StderrLog::log(const FND::String& message, FND::Status::Severity severity) {
    SCR::Diagnostic diagnostic;
    diagnostic.severity = severity;
    diagnostic.text = message;
    diagnose(diagnostic);
}

void StderrLog::diagnose(const SCR::Diagnostic& diagnostic) {
    // On a terminal that shows both, earlier prints of the script must come before the message.
    flushOutput(false);
    if (diagnostic.severity == FND::Status::Warning) {
        const std::vector<std::string>& off = style_.withoutWarnings;
        if (std::find(off.begin(), off.end(), diagnostic.code) != off.end()) return;
        if (!diagnostic.isDetail) ++warnings_;
    }
    const bool isPlain = diagnostic.place.line == 0 && diagnostic.explanation.empty() &&
                         diagnostic.notes.empty() && style_.form == MessageStyle::Form::Text;
    if (style_.form == MessageStyle::Form::Log || isPlain) {
        writePrintable(diagnostic.text);
        return;
    }
    if (diagnostic.isDetail) return;
    std::string text;
    switch (style_.form) {
        case MessageStyle::Form::Json:
            text = jsonOf(diagnostic, style_.script) + "\n";
            break;
        case MessageStyle::Form::Sarif:
            results_.push_back(sarifOf(diagnostic, style_.script));
            return;
        default:
            text = textOf(diagnostic, style_.script, style_.hasColour);
    }
    std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace Cli
