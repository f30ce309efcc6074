#include <algorithm>
#include <utility>

#include "cli/observe/Debugger.h"
#include "cli/script/MessageText.h"
#include "records/read/FieldNames.h"
#include "records/script/CurrentRecord.h"
#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/Interpreter.h"
#include "scr/Log.h"
#include "scr/run/RunControl.h"

// What a script that has stopped holds: its calls, variables, elements and fields, and the values
// of expressions.
namespace Cli {

std::string literalOf(std::string_view text) {
    std::string literal = "\"";
    for (const char byte : text) {
        if (byte == '"' || byte == '\\') literal += '\\';
        literal += byte == '\n' ? "\\n" : std::string(1, byte);
    }
    return literal + '"';
}

std::string Debugger::firstOf(const std::vector<SCR::Diagnostic>& messages) {
    return messages.empty() ? "it was stopped" : messages.front().headline();
}

std::vector<Debugger::Frame> Debugger::frames() const {
    std::vector<Frame> frames;
    for (auto call = calls_.rbegin(); call != calls_.rend(); ++call) {
        const SCR::ObservedSite& site = sites()[call->site];
        const std::string function = call->function == 0 ? "" : sites()[call->function].text;
        frames.push_back({function, source_.file(site.file).path, site.line, site.column});
    }
    return frames;
}

std::size_t Debugger::siteOf(std::size_t frame) const {
    return frame < calls_.size() ? calls_[calls_.size() - 1 - frame].site : SCR::ObservedSite::none;
}

namespace {

bool isIdentifier(std::string_view text) {
    return !text.empty() && (text[0] < '0' || text[0] > '9') &&
           std::all_of(text.begin(), text.end(),
                       [](unsigned char byte) { return std::isalnum(byte) != 0 || byte == '_'; });
}

std::int64_t elementsOf(const SCR::Variable& variable) {
    const int type = SCR::Node::baseType(variable.dataType());
    return type == SCR::TypeCode::Array
               ? static_cast<std::int64_t>(static_cast<const SCR::Array&>(variable).size())
           : type == SCR::TypeCode::Hash
               ? static_cast<std::int64_t>(static_cast<const SCR::Hash&>(variable).size())
               : -1;
}

Debugger::Item itemOf(const std::string& name, const SCR::Variable& variable) {
    Debugger::Item item;
    item.name = name;
    item.type = SCR::typeText(variable);
    item.value = SCR::valueText(variable);
    item.elements = elementsOf(variable);
    return item;
}

std::string expressionOf(const Debugger::Path& path) {
    std::string text = path.name;
    for (const auto& step : path.steps) {
        const auto* const index = std::get_if<unsigned long>(&step);
        text += index != nullptr ? '[' + std::to_string(*index) + ']'
                                 : '{' + literalOf(std::get<FND::String>(step)) + '}';
    }
    return text;
}

}  // namespace

std::vector<Debugger::Item> Debugger::variables(std::size_t frame) {
    std::vector<Item> items;
    for (const SCR::ObservedName& known : namesAt(siteOf(frame))) {
        items.push_back(itemOf(known.name, *known.variable));
        items.back().isGlobal = known.isGlobal;
        const bool isAssignable = SCR::Node::isLeft(known.variable->dataType());
        if (isAssignable) items.back().expression = known.name;
    }
    std::stable_sort(items.begin(), items.end(),
                     [](const Item& a, const Item& b) { return a.name < b.name; });
    return items;
}

SCR::Variable* Debugger::find(const Path& path) const {
    SCR::Variable* variable = nullptr;
    for (const SCR::ObservedName& known : namesAt(siteOf(path.frame))) {
        if (known.name == path.name) variable = known.variable;
    }
    for (const auto& step : path.steps) {
        if (variable == nullptr) break;
        const int type = SCR::Node::baseType(variable->dataType());
        const auto* const index = std::get_if<unsigned long>(&step);
        const auto* const key = std::get_if<FND::String>(&step);
        if (type == SCR::TypeCode::Array && index != nullptr) {
            auto& array = static_cast<SCR::Array&>(*variable);
            variable = *index < array.size() ? array.at(*index) : nullptr;
        } else if (type == SCR::TypeCode::Hash && key != nullptr) {
            auto& hash = static_cast<SCR::Hash&>(*variable);
            variable = hash.contains(*key) ? hash.find(*key) : nullptr;
        } else {
            variable = nullptr;
        }
    }
    return variable;
}

std::vector<Debugger::Item> Debugger::elements(const Path& path, std::size_t first,
                                               std::size_t count) {
    std::vector<Item> items;
    SCR::Variable* const variable = find(path);
    const std::int64_t size = variable != nullptr ? elementsOf(*variable) : -1;
    if (size < 0) return items;
    const auto last = std::min<std::size_t>(static_cast<std::size_t>(size), first + count);
    const bool isArray = SCR::Node::baseType(variable->dataType()) == SCR::TypeCode::Array;
    std::vector<const FND::String*> keys;
    if (!isArray) keys = static_cast<SCR::Hash&>(*variable).keys();
    for (std::size_t i = first; i < last; ++i) {
        Path inner = path;
        Item item;
        if (isArray) {
            inner.steps.emplace_back(static_cast<unsigned long>(i));
            auto& array = static_cast<SCR::Array&>(*variable);
            const bool isContainer = elementsOf(*array.defaultValue()) >= 0;
            item = itemOf("", isContainer ? *array.at(i) : *array.defaultValue());
            if (!isContainer) item.value = SCR::elementText(array, i);
            item.name = '[' + std::to_string(i) + ']';
        } else {
            inner.steps.emplace_back(*keys[i]);
            item = itemOf("", *static_cast<SCR::Hash&>(*variable).find(*keys[i]));
            item.name = "{\"" + readable(*keys[i]) + "\"}";
        }
        item.expression = expressionOf(inner);
        item.step = std::move(inner.steps.back());
        items.push_back(std::move(item));
    }
    return items;
}

std::vector<Debugger::Item> Debugger::fields() {
    std::vector<Item> items;
    if (!hasRecord()) return items;
    if (current_->json != nullptr) {
        items.push_back({"record", "", std::string(current_->json->text()), "", -1, false, 0UL});
        return items;
    }
    const std::vector<std::string>& names = names_->all();
    constexpr std::size_t most = 1000;
    for (std::size_t i = 0; i < most && (i < names.size() || current_->record.has(i)); ++i) {
        const std::string plain = 'f' + std::to_string(i + 1);
        Item item;
        item.name = i < names.size() ? names[i] : plain;
        item.type = "field";
        item.value = literalOf(current_->record.value(i));
        const bool isNamed = isIdentifier(item.name);
        // Another field may have that name.
        const long other = names_->index(plain);
        if (isNamed || other < 0 || other == static_cast<long>(i)) {
            item.expression = "edrString(" + (isNamed ? item.name : plain) + ')';
        }
        items.push_back(std::move(item));
    }
    return items;
}

Debugger::Answer Debugger::evaluate(const std::string& text, std::size_t frame) {
    Answer answer;
    if (interpreter_ == nullptr || !interpreter_->runControl().isRunning()) {
        answer.text = "the script has ended: its variables can be read, but nothing evaluated";
        return answer;
    }
    std::string expression = text;
    while (!expression.empty() && (expression.back() == ';' || expression.back() == ' ')) {
        expression.pop_back();
    }
    std::vector<std::string> failures;
    aside(failures, [&] {
        SCR::Expression compiled(*interpreter_, expression, siteOf(frame));
        answer.type = compiled.type();
        if (!compiled) {
            answer.text = firstOf(compiled.messages());
            return;
        }
        FND::String value;
        answer.isGood = compiled.evaluate(value);
        answer.text = value;
        if (compiled.container() != nullptr) answer.elements = elementsOf(*compiled.container());
        if (!compiled.messages().empty()) {
            answer.isGood = false;
            answer.text = firstOf(compiled.messages());
        }
    });
    if (!failures.empty()) {
        answer.isGood = false;
        answer.text = failures.front();
    }
    return answer;
}

Debugger::Answer Debugger::assign(const std::string& target, const std::string& value,
                                  std::size_t frame) {
    Answer answer = evaluate(target + " = (" + value + ')', frame);
    if (!answer.isGood) return answer;
    return evaluate(target, frame);
}

}  // namespace Cli
