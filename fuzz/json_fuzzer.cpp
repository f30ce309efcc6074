#include <simdjson.h>

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Check.h"
#include "records/json/JsonRecord.h"

namespace {

using Records::JsonRecord;
using Kind = JsonRecord::Kind;

using Fuzz::check;

// A JSON value, read byte by byte: the second opinion on the record's.
struct Node {
    Kind kind = Kind::Missing;
    std::string_view raw;
    std::string name;  // unescaped, of a member
    std::vector<Node> children;
};

class Parser {
public:
    explicit Parser(std::string_view text) : text_(text) {}

    std::optional<Node> object() {
        skipSpace();
        Node node;
        if (at() != '{' || !value(node, 0)) return std::nullopt;
        skipSpace();
        return i_ == text_.size() ? std::optional(std::move(node)) : std::nullopt;
    }

private:
    char at() const { return i_ < text_.size() ? text_[i_] : '\0'; }
    bool eat(char c) { return at() == c && i_ < text_.size() && (++i_, true); }
    void skipSpace() {
        while (i_ < text_.size() && std::strchr(" \t\r\n", at()) != nullptr && at() != '\0') ++i_;
    }
    bool digits() {
        const std::size_t from = i_;
        while (at() >= '0' && at() <= '9') ++i_;
        return i_ != from;
    }
    bool word(std::string_view word) {
        if (text_.substr(i_, word.size()) != word) return false;
        i_ += word.size();
        return true;
    }

    bool value(Node& node, int depth) {
        if (depth > 512) return false;
        const std::size_t from = i_;
        bool isSound = false;
        switch (at()) {
            case '{':
            case '[':
                isSound = container(node, depth);
                break;
            case '"':
                node.kind = Kind::String;
                isSound = string(nullptr);
                break;
            case 'n':
                node.kind = Kind::Null;
                isSound = word("null");
                break;
            case 't':
            case 'f':
                node.kind = Kind::Bool;
                isSound = word("true") || word("false");
                break;
            default:
                node.kind = Kind::Number;
                isSound = number();
        }
        node.raw = text_.substr(from, i_ - from);
        return isSound;
    }

    bool container(Node& node, int depth) {
        node.kind = at() == '{' ? Kind::Object : Kind::Array;
        const char end = at() == '{' ? '}' : ']';
        ++i_;
        skipSpace();
        if (eat(end)) return true;
        do {
            Node& child = node.children.emplace_back();
            skipSpace();
            if (node.kind == Kind::Object) {
                if (at() != '"' || !string(&child.name)) return false;
                skipSpace();
                if (!eat(':')) return false;
                skipSpace();
            }
            if (!value(child, depth + 1)) return false;
            skipSpace();
        } while (eat(','));
        return eat(end);
    }

    bool number() {
        eat('-');
        if (!eat('0') && !digits()) return false;
        if (eat('.') && !digits()) return false;
        if (!eat('e') && !eat('E')) return true;
        if (!eat('+')) eat('-');
        return digits();
    }

    // Four hexadecimal digits; -1 for others.
    long hex() {
        const std::string four(text_.substr(i_, 4));
        if (four.size() != 4 || four.find_first_not_of("0123456789abcdefABCDEF") != four.npos)
            return -1;
        i_ += 4;
        return std::strtol(four.c_str(), nullptr, 16);
    }

    bool string(std::string* out) {
        std::string scratch;
        std::string& text = out == nullptr ? scratch : *out;
        for (++i_; i_ < text_.size();) {
            const char c = text_[i_++];
            if (c == '"') return true;
            if (static_cast<unsigned char>(c) < ' ') return false;
            if (c != '\\') {
                text += c;
                continue;
            }
            const char letter = at();
            ++i_;
            if (letter != 'u') {
                constexpr std::string_view letters = "bfnrt\"\\/";
                constexpr std::string_view bytes = "\b\f\n\r\t\"\\/";
                const std::size_t place = letters.find(letter);
                if (place == letters.npos) return false;
                text += bytes[place];
                continue;
            }
            long code = hex();
            if (code < 0 || (code >= 0xDC00 && code < 0xE000)) return false;
            if (code >= 0xD800 && code < 0xE000) {
                if (!word("\\u")) return false;
                const long low = hex();
                if (low < 0xDC00 || low >= 0xE000) return false;
                code = 0x10000 + (code - 0xD800) * 0x400 + (low - 0xDC00);
            }
            const auto add = [&](long byte) { text += static_cast<char>(byte); };
            if (code >= 0x10000) add(0xF0 + (code >> 18));
            if (code >= 0x10000) add(0x80 + (code >> 12) % 64);
            if (code >= 0x800 && code < 0x10000) add(0xE0 + (code >> 12));
            if (code >= 0x800) add(0x80 + (code >> 6) % 64);
            if (code >= 0x80 && code < 0x800) add(0xC0 + (code >> 6));
            add(code < 0x80 ? code : 0x80 + code % 64);
        }
        return false;
    }

    std::string_view text_;
    std::size_t i_ = 0;
};

const Node* member(const Node& object, std::string_view name) {
    // The last member of a name counts.
    const Node* last = nullptr;
    for (const Node& child : object.children) {
        if (child.name == name) last = &child;
    }
    if (last != nullptr) return last;
    // "_" also matches a byte that identifiers cannot have.
    for (const Node& child : object.children) {
        bool fits = child.name.size() == name.size();
        for (std::size_t i = 0; fits && i < name.size(); ++i) {
            const char c = child.name[i];
            const bool isWord = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') ||
                                (c >= '0' && c <= '9') || c == '_' || c == '.';
            fits = name[i] == c || (name[i] == '_' && !isWord);
        }
        if (fits) last = &child;
    }
    return last;
}

struct Field {
    std::vector<std::string> names;
    std::vector<long> indices;
};

// The value of `field` in `object`; null when it is missing.
const Node* findNode(const Node& object, const Field& field) {
    const Node* node = &object;
    std::size_t name = 0;
    std::size_t index = 0;
    while (name < field.names.size() || index < field.indices.size()) {
        const long count = static_cast<long>(node->children.size());
        if (node->kind == Kind::Array && index < field.indices.size()) {
            long place = field.indices[index++];
            if (place < 0) place += count;
            if (place < 0 || place >= count) return nullptr;
            node = &node->children[static_cast<std::size_t>(place)];
        } else if (node->kind == Kind::Object && name < field.names.size()) {
            node = member(*node, field.names[name++]);
            if (node == nullptr) return nullptr;
        } else {
            return nullptr;
        }
    }
    return node;
}

// A text followed by exactly the bytes that must be readable after it.
class Padded {
public:
    explicit Padded(std::string_view text)
        : bytes_(new char[text.size() + JsonRecord::paddingCM]), size_(text.size()) {
        std::copy(text.begin(), text.end(), bytes_.get());
        std::fill_n(bytes_.get() + size_, JsonRecord::paddingCM, '}');
    }
    std::string_view text() const { return {bytes_.get(), size_}; }

private:
    std::unique_ptr<char[]> bytes_;
    std::size_t size_;
};

constexpr std::array<std::string_view, 8> pathsS{"a",   "b",     "a_b", "a.b",
                                                 "b.a", "a.b.c", "c.b", "list.a"};

Field fieldOf(std::size_t path, std::vector<long> indices) {
    Field field{{""}, std::move(indices)};
    for (const char c : pathsS[path]) {
        if (c == '.') {
            field.names.emplace_back();
        } else {
            field.names.back() += c;
        }
    }
    return field;
}

// The record, its paths, and the text that it should have.
class Door {
public:
    Door() {
        for (const std::string_view path : pathsS) {
            for (JsonRecord* record : {&record_, &again_}) record->add(path);
        }
    }

    // Whether `text` is a record; both opinions must agree.
    bool take(std::string_view text) {
        text_.emplace(text);
        const char* const error = record_.take(text_->text());
        const bool isSound =
            simdjson::validate_utf8(text.data(), text.size()) && Parser(text).object().has_value();
        check(isSound == (error == nullptr));
        check(record_.text() == (isSound ? text : "{}"));
        return isSound;
    }

    // Applies `operation` to field `path`.
    void step(std::size_t path, std::vector<long> indices, unsigned operation,
              std::string_view text) {
        constexpr std::array<std::string_view, 8> values{
            "null", "true", "-1.50e3", "\"x\\u00e9\"", "[1,[2]]", R"({"b":{"c":[]}})", "[]", "{}"};
        const Field field = fieldOf(path, std::move(indices));
        const long number = static_cast<long>(path);
        const std::string before(record_.text());
        const Node tree = *Parser(before).object();
        const Node* const node = findNode(tree, field);
        if (operation < values.size()) {
            const char* const error = record_.assign(number, field.indices, values[operation]);
            checkAssignment(field, before, tree, error == nullptr, values[operation]);
        } else if (operation < 10) {
            const char* const error = record_.assignText(number, field.indices, text);
            checkAssignment(field, before, tree, error == nullptr, {});
            if (error == nullptr) {
                check(record_.textOf(record_.find(number, field.indices)) == text);
            }
        } else if (operation < 14) {
            record_.remove(number, field.indices);
            checkRemoval(before, tree, node);
        }
        checkFields();
    }

private:
    // Another record that reads the output finds the same fields.
    void checkFields() {
        const Padded written(record_.text());
        check(again_.take(written.text()) == nullptr);
        const Node tree = *Parser(written.text()).object();
        for (std::size_t i = 0; i < pathsS.size(); ++i) {
            const long path = static_cast<long>(i);
            for (const std::vector<long>& indices : {std::vector<long>{}, {0}, {-1}, {1, 0}}) {
                const JsonRecord::Value value = record_.find(path, indices);
                const JsonRecord::Value same = again_.find(path, indices);
                check(value.kind == same.kind && value.raw == same.raw);
                check(record_.textOf(value) == again_.textOf(same));
                const Node* const node = findNode(tree, fieldOf(i, indices));
                check(value.kind == (node == nullptr ? Kind::Missing : node->kind));
                check(node == nullptr || value.raw == node->raw);
                const long count = node == nullptr || node->kind == Kind::Null ? 0
                                   : node->kind != Kind::Array
                                       ? -1
                                       : static_cast<long>(node->children.size());
                check(record_.elements(path, indices) == count);
            }
        }
    }

    void checkAssignment(const Field& field, const std::string& before, const Node& tree,
                         bool isDone, std::string_view value) {
        const std::string_view after = record_.text();
        if (!isDone) {
            check(after == before);
            return;
        }
        const std::optional<Node> now = Parser(after).object();
        check(now.has_value());
        const Node* const changed = findNode(*now, field);
        check(changed != nullptr && (value.empty() || changed->raw == value));
        if (const Node* const node = findNode(tree, field)) {
            const auto begin = static_cast<std::size_t>(node->raw.data() - before.data());
            check(after == before.substr(0, begin) + std::string(changed->raw) +
                               before.substr(begin + node->raw.size()));
            return;
        }
        // Added in one place, or for a null.
        std::size_t head = 0;
        while (head < before.size() && head < after.size() && before[head] == after[head]) ++head;
        std::size_t tail = 0;
        while (tail < before.size() - head && tail < after.size() - head &&
               before[before.size() - 1 - tail] == after[after.size() - 1 - tail]) {
            ++tail;
        }
        const std::string lost = before.substr(head, before.size() - head - tail);
        check(std::string_view("null").find(lost) != std::string_view::npos);
    }

    void checkRemoval(const std::string& before, const Node& tree, const Node* node) {
        const std::string_view after = record_.text();
        if (node == nullptr) {
            check(after == before);
            return;
        }
        const std::optional<Node> now = Parser(after).object();
        check(now.has_value());
        checkWithout(tree, *now, node);
    }

    // `now` is `old` without `gone` and the members of its name, byte for byte except for the space
    // and commas around them.
    static void checkWithout(const Node& old, const Node& now, const Node* gone) {
        check(old.kind == now.kind);
        if (old.raw == now.raw) return;
        std::size_t i = 0;
        const bool isMember = old.kind == Kind::Object && gone >= old.children.data() &&
                              gone < old.children.data() + old.children.size();
        for (const Node& child : old.children) {
            if (&child == gone || (isMember && child.name == gone->name)) continue;
            check(i < now.children.size() && now.children[i].name == child.name);
            checkWithout(child, now.children[i++], gone);
        }
        check(!old.children.empty() && i == now.children.size());
    }

    std::optional<Padded> text_;
    JsonRecord record_;
    JsonRecord again_;
};

}  // namespace

/// The first line of the input is a program for the record after it: three bytes per step, for the
/// field, its indices and the operation.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view input(reinterpret_cast<const char*>(data), size);
    const std::size_t end = input.find('\n');
    if (end == std::string_view::npos) return 0;
    const std::string_view steps = input.substr(0, end);
    Door door;
    if (!door.take(input.substr(end + 1))) return 0;
    static const std::vector<long> indicesS[] = {{}, {0}, {1}, {-1}, {0, 0}, {1, -2}, {2}, {-9}};
    for (std::size_t i = 0; i + 3 <= steps.size() && i < 24; i += 3) {
        const auto path = static_cast<unsigned char>(steps[i]) % pathsS.size();
        const auto indices = static_cast<unsigned char>(steps[i + 1]) % std::size(indicesS);
        const auto operation = static_cast<unsigned char>(steps[i + 2]) % 16U;
        door.step(path, indicesS[indices], operation, steps.substr(i));
    }
    return 0;
}
