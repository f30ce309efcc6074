#include "scr/parser/Observing.h"

#include <algorithm>
#include <utility>

#include "scr/Interpreter.h"
#include "scr/Statement.h"
#include "scr/SwitchCase.h"
#include "scr/message/Quote.h"
#include "scr/parser/CustomLexer.h"
#include "scr/parser/ParseState.h"
#include "scr/tree/Observed.h"

namespace SCR {

namespace {

// In one line; a long text is cut.
FND::String shown(std::string_view text) {
    constexpr std::size_t most = 120;
    FND::String line;
    bool isBlank = false;
    for (const char byte : text.substr(0, 4 * most)) {
        if (byte == ' ' || byte == '\t' || byte == '\n' || byte == '\r') {
            isBlank = true;
            continue;
        }
        if (isBlank && !line.empty()) line += ' ';
        isBlank = false;
        line += byte;
    }
    if (line.size() <= most) return line;
    std::size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(line[end]) & 0xC0) == 0x80) --end;
    return line.substr(0, end) + "...";
}

int linesIn(std::string_view text) {
    return static_cast<int>(std::count(text.begin(), text.end(), '\n'));
}

}  // namespace

Observing::Observing(Interpreter& interpreter, ParserStack& stack, Observation& observation)
    : interpreter_(interpreter), stack_(stack), observation_(observation) {
    if (!observation.sites().empty()) return;  // a query after the script
    ObservedSite main;
    main.kind = ObservedSite::Kind::Function;
    main.line = main.column = main.lastLine = 1;
    if (counts()) main.count = observation.addCount();
    observation.add(std::move(main));
}

ObservedSite Observing::siteOf(Span text, ObservedSite::Kind kind) const {
    const CustomLexer& lexer = *parseContextG->lexer;
    ObservedSite site;
    site.kind = kind;
    site.file = lexer.fileName();
    site.function = function_;
    site.text = shown(text.text());
    site.line = site.lastLine = lexer.line();
    // The lexer has read on, rarely into another line.
    const std::string_view last = lexer.token();
    const char* const end = last.data() + last.size();
    for (const std::string_view part : lexer.parts()) {
        const bool isIn = text.begin >= part.data() && end <= part.data() + part.size();
        if (!isIn || text.begin > end) continue;
        const std::string_view read(text.begin, static_cast<std::size_t>(end - text.begin));
        if (read.find("#line") != std::string_view::npos) continue;
        site.line = std::max(1, lexer.line() - linesIn(read));
        site.lastLine = site.line + linesIn(text.text());
        const std::string_view before =
            part.substr(0, static_cast<std::size_t>(text.begin - part.data()));
        const std::size_t lineEnd = before.rfind('\n');
        site.column = static_cast<int>(before.size() -
                                       (lineEnd == std::string_view::npos ? 0 : lineEnd + 1) + 1);
    }
    return site;
}

// The statement that the open block belongs to.
std::size_t Observing::owner() {
    while (!open_.empty() && open_.back().depth > interpreter_.statementDepth()) open_.pop_back();
    return open_.empty() ? ObservedSite::none : open_.back().site;
}

void Observing::statement(Span first, Span last) {
    ObservedSite site = siteOf({first.begin, last.end}, ObservedSite::Kind::Statement);
    site.owner = owner();
    isCounted_ = false;
    if (counts()) {
        const Node* const block = interpreter_.topStatement();
        Run& run = runs_[block];
        const bool isList = dynamic_cast<const StatementList*>(block) != nullptr;
        if (branchCount_ != ObservedSite::none) {
            site.count = std::exchange(branchCount_, ObservedSite::none);
            isCounted_ = true;
        } else if (isList && run.count != ObservedSite::none && run.returns == returns_) {
            site.count = run.count;
            isCounted_ = true;
        } else {
            site.count = observation_.addCount();
        }
        run = {site.count, returns_};
    }
    if (hasEvents()) observation_.setScope(site, interpreter_.openBlocks());
    site_ = observation_.add(std::move(site));
    if (selector_ != ObservedSite::none) {
        observation_.siteAt(std::exchange(selector_, ObservedSite::none)).owner = site_;
    }
    for (const auto& call : calls_) *call = site_;
    calls_.clear();
}

void Observing::condition(Span text, bool isRepeated) {
    condition_ = text;
    isRepeated_ = isRepeated;
}

void Observing::tell(std::size_t fromTop, Span text, ObservedSite::Kind kind) {
    if (!hasValues() || stack_.dataSize() <= fromTop) return;
    const int type = fromTop == 0 ? stack_.topType() : stack_.typeBelow();
    if (kind == ObservedSite::Kind::Operand && Node::isConst(type)) return;
    stack_.wrapData(fromTop, [&](std::unique_ptr<Node> node, int word) {
        ObservedSite site = siteOf(text, kind);
        site.owner = owner();
        std::unique_ptr<Node> wrapped =
            observedValue(node, word, observation_, observation_.sites().size());
        if (wrapped == nullptr) return node;
        const std::size_t number = observation_.add(std::move(site));
        if (kind == ObservedSite::Kind::Selector) selector_ = number;
        return wrapped;
    });
}

void Observing::operands(Span left, Span right) {
    tell(1, left, ObservedSite::Kind::Operand);
    tell(0, right, ObservedSite::Kind::Operand);
}

void Observing::function(Span name) {
    ObservedSite site = siteOf(name, ObservedSite::Kind::Function);
    site.text = name.text();
    if (counts()) site.count = observation_.addCount();
    const FND::String key(name.text());
    function_ = observation_.add(std::move(site));
    observation_.siteAt(function_).function = function_;
    functions_[key] = function_;
}

void Observing::startBody() {
    const Node* const block = interpreter_.topStatement();
    if (counts()) runs_[block] = {observation_.siteAt(function_).count, returns_};
    if (!counts() && !hasEvents()) return;
    auto entry = std::make_unique<ObservedPlace>(ObservedMark(observation_, function_, true));
    if (interpreter_.addStatement(entry.get())) entry.release();
}

void Observing::label(Span text) {
    Node* const block = interpreter_.topStatement();
    if (dynamic_cast<SwitchCase*>(block) == nullptr) return;
    ObservedSite site = siteOf(text, ObservedSite::Kind::Case);
    site.owner = owner();
    Switch& open = switches_[block];
    if (counts()) {
        site.count = observation_.addCount();
        if (open.fallsThrough) {
            site.otherwise = open.run.count;
            if (open.run.returns != returns_) {
                site.otherwise = observation_.addCount();
                auto end = std::make_unique<CountedPlace>(observation_.countAt(site.otherwise));
                if (block->addStatement(end.get())) end.release();
            }
        }
        open.run = {site.count, returns_};
    }
    open.fallsThrough = true;
    label_ = observation_.add(std::move(site));
}

void Observing::labelled() {
    if (label_ == ObservedSite::none || (!counts() && !hasEvents())) return;
    branchCount_ = counts() ? observation_.siteAt(label_).count : ObservedSite::none;
    auto place = std::make_unique<ObservedPlace>(
        ObservedMark(observation_, std::exchange(label_, ObservedSite::none), true));
    if (interpreter_.addStatement(place.get())) place.release();
}

void Observing::breaks() {
    branchCount_ = ObservedSite::none;
    switches_[interpreter_.topStatement()].fallsThrough = false;
}

std::unique_ptr<Node> Observing::wrap(std::unique_ptr<Node> statement) {
    head_ = std::exchange(site_, ObservedSite::none);
    if (head_ == ObservedSite::none) return statement;
    return std::make_unique<ObservedStatement>(std::move(statement),
                                               ObservedMark(observation_, head_, !isCounted_));
}

std::unique_ptr<Node> Observing::wrapUpdate(std::unique_ptr<Node> update) {
    if (!observation_.keepsPosition() || hasEvents()) return update;
    return std::make_unique<ObservedStatement>(std::move(update),
                                               ObservedMark(observation_, site_, false));
}

std::unique_ptr<BoolNode> Observing::wrap(std::unique_ptr<BoolNode> condition) {
    if (condition_.begin == nullptr) return condition;
    ObservedSite site = siteOf(std::exchange(condition_, Span()), ObservedSite::Kind::Condition);
    site.owner = site_ != ObservedSite::none ? site_ : owner();
    if (counts()) {
        site.count = observation_.addCount();
        if (isRepeated_) site.otherwise = observation_.addCount();
    }
    for (const auto& call : calls_) *call = site.owner;
    calls_.clear();
    const std::size_t number = observation_.add(std::move(site));
    // That of a `do` comes after its body.
    if (site_ != ObservedSite::none) conditionSite_ = number;
    return std::make_unique<ObservedCondition>(std::move(condition), observation_, number,
                                               isRepeated_);
}

std::size_t Observing::functionNamed(const FND::String& name) {
    const auto known = functions_.find(name);
    if (known != functions_.end()) return known->second;
    // A query calls those of the script that was read before it.
    const auto& sites = observation_.sites();
    const auto found = std::find_if(sites.rbegin(), sites.rend(), [&](const ObservedSite& site) {
        return site.kind == ObservedSite::Kind::Function && site.function != 0 && site.text == name;
    });
    if (found == sites.rend()) return ObservedSite::none;
    return functions_[name] = static_cast<std::size_t>(sites.rend() - found) - 1;
}

std::unique_ptr<Node> Observing::wrapCall(std::unique_ptr<Node> call, int type,
                                          const FND::String& name) {
    if (!hasEvents() && !observation_.keepsPosition()) return call;
    const std::size_t function = functionNamed(name);
    if (function == ObservedSite::none) return call;
    calls_.push_back(std::make_shared<std::size_t>(0));
    return observedCall(std::move(call), type, observation_, function, calls_.back());
}

std::unique_ptr<Node> Observing::wrapArgument(std::unique_ptr<Node> value, int type,
                                              const FND::String& name) {
    if (!hasValues()) return value;
    ObservedSite site =
        siteOf({name.data(), name.data() + name.size()}, ObservedSite::Kind::Argument);
    std::unique_ptr<Node> wrapped =
        observedValue(value, type, observation_, observation_.sites().size());
    if (wrapped == nullptr) return value;
    observation_.add(std::move(site));
    return wrapped;
}

void Observing::opened(const Node* block) {
    if (dynamic_cast<const SwitchCase*>(block) != nullptr) switches_[block] = {};
    if (head_ == ObservedSite::none) {  // a plain block
        runs_[block] = {std::exchange(branchCount_, ObservedSite::none), returns_};
        return;
    }
    runs_[block] = {};
    open_.push_back({head_, interpreter_.statementDepth()});
    if (conditionSite_ == ObservedSite::none) return;
    branchCount_ = observation_.siteAt(std::exchange(conditionSite_, ObservedSite::none)).count;
}

}  // namespace SCR
