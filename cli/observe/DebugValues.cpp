#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "cli/observe/DebugAdapter.h"
#include "cli/script/MessageText.h"

// What an editor shows of a stopped script, and changes: its variables and the values of
// expressions.

namespace Cli {

int DebugAdapter::referenceTo(Reference::Kind kind, Debugger::Path path) {
    references_.push_back({kind, std::move(path)});
    return static_cast<int>(references_.size());
}

namespace {

std::size_t frameIn(const Author::Json& arguments, const Debugger& debugger) {
    const auto frame = valueOf<std::int64_t>(arguments, "frameId", 1) - 1;
    const auto count = static_cast<std::int64_t>(debugger.frames().size());
    if (frame < 0 || frame >= count) throw Refusal{"there is no such frame"};
    return static_cast<std::size_t>(frame);
}

}  // namespace

Author::Json DebugAdapter::scopes(const Author::Json& arguments) {
    const std::size_t frame = frameIn(arguments, debugger_);
    Author::Json list = Author::Json::array();
    const auto add = [&](const char* name, Reference::Kind kind) {
        list.push_back({{"name", name},
                        {"variablesReference", referenceTo(kind, {frame, "", {}})},
                        {"expensive", false}});
    };
    add("Locals", Reference::Kind::Locals);
    add("Globals", Reference::Kind::Globals);
    if (debugger_.hasRecord()) add("Record", Reference::Kind::Fields);
    return {{"scopes", list}};
}

std::vector<Debugger::Item> DebugAdapter::itemsOf(const Reference& reference, std::size_t first,
                                                  std::size_t count) {
    using What = Reference::Kind;
    if (reference.kind == What::Container) return debugger_.elements(reference.path, first, count);
    std::vector<Debugger::Item> items = reference.kind == What::Fields
                                            ? debugger_.fields()
                                            : debugger_.variables(reference.path.frame);
    if (reference.kind != What::Fields) {
        std::erase_if(items, [&](const Debugger::Item& item) {
            return item.isGlobal != (reference.kind == What::Globals);
        });
    }
    if (first >= items.size()) return {};
    items.erase(items.begin(), items.begin() + static_cast<std::ptrdiff_t>(first));
    if (count < items.size()) items.resize(count);
    return items;
}

Author::Json DebugAdapter::variables(const Author::Json& arguments) {
    const auto number = arguments.at("variablesReference").get<std::size_t>();
    if (number < 1 || number > references_.size()) throw Refusal{"there is no such reference"};
    const Reference reference = references_[number - 1];
    // Those who ask for all get so many.
    constexpr std::size_t most = 10000;
    const auto first = valueOf<std::size_t>(arguments, "start", 0);
    const auto asked = valueOf<std::size_t>(arguments, "count", 0);
    const std::size_t count = asked == 0 ? most : std::min(asked, most);
    Author::Json list = Author::Json::array();
    const std::vector<Debugger::Item> items = itemsOf(reference, first, count);
    for (std::size_t i = 0; i < items.size(); ++i) {
        const Debugger::Item& item = items[i];
        Author::Json json = {{"name", item.name},
                             {"value", readable(item.value)},
                             {"type", item.type},
                             {"variablesReference", 0}};
        if (!item.expression.empty()) json["evaluateName"] = item.expression;
        if (item.elements > 0) {
            Debugger::Path inner{reference.path.frame, item.name, {}};
            if (reference.kind == Reference::Kind::Container) {
                inner = reference.path;
                inner.steps.push_back(item.step);
            }
            json["variablesReference"] = referenceTo(Reference::Kind::Container, std::move(inner));
            json["indexedVariables"] = item.elements;
        }
        list.push_back(std::move(json));
    }
    return {{"variables", list}};
}

namespace {

Author::Json resultOf(const Debugger::Answer& answer, const char* key) {
    if (!answer.isGood) throw Refusal{readable(answer.text)};
    return {{key, readable(answer.text)}, {"type", answer.type}, {"variablesReference", 0}};
}

}  // namespace

Author::Json DebugAdapter::evaluate(const Author::Json& arguments) {
    const std::string expression = arguments.at("expression");
    const std::size_t frame = frameIn(arguments, debugger_);
    const Debugger::Answer answer = debugger_.evaluate(expression, frame);
    Author::Json json = resultOf(answer, "result");
    if (answer.elements <= 0) return json;
    for (const Debugger::Item& item : debugger_.variables(frame)) {
        if (item.name != expression) continue;
        json["variablesReference"] =
            referenceTo(Reference::Kind::Container, {frame, item.name, {}});
        json["indexedVariables"] = answer.elements;
    }
    return json;
}

Author::Json DebugAdapter::setVariable(const Author::Json& arguments) {
    const auto number = arguments.at("variablesReference").get<std::size_t>();
    const std::string name = arguments.at("name");
    if (number < 1 || number > references_.size()) throw Refusal{"there is no such reference"};
    const Reference reference = references_[number - 1];
    constexpr std::size_t most = 1000000;
    for (const Debugger::Item& item : itemsOf(reference, 0, most)) {
        if (item.name != name) continue;
        if (item.expression.empty()) throw Refusal{name + " cannot be changed"};
        return resultOf(
            debugger_.assign(item.expression, arguments.at("value"), reference.path.frame),
            "value");
    }
    throw Refusal{"there is no `" + readable(name) + "` here"};
}

Author::Json DebugAdapter::setExpression(const Author::Json& arguments) {
    return resultOf(debugger_.assign(arguments.at("expression"), arguments.at("value"),
                                     frameIn(arguments, debugger_)),
                    "value");
}

}  // namespace Cli
