#include <memory>
#include <utility>
#include <vector>

#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/builtin/base/BuiltIn.h"
#include "scr/builtin/base/BuiltInNode.h"
#include "scr/message/Messages.h"
#include "scr/parser/ParseErrors.h"
#include "scr/tree/ElementAccess.h"
#include "scr/tree/Operand.h"
#include "scr/value/ElementClass.h"

namespace SCR {

namespace {

// A container is null when it does not exist, such as an element under a negative index.

struct ArraySize final : BuiltInNode<ArraySize, LongType(Array)> {
    static long value(Interpreter& /*interpreter*/, const Array* array) {
        return array != nullptr ? static_cast<long>(array->size()) : 0;
    }
};

struct ArrayClear final : BuiltInNode<ArrayClear, VoidType(Array)> {
    static void value(Interpreter& /*interpreter*/, Array* array) {
        if (array == nullptr) return;
        constexpr unsigned long piece = 4096;
        while (array->size() > piece && !ArrayElements::isPlain(*array)) {
            countWork(piece * sizeof(StringVariable));
            array->truncate(array->size() - piece);
        }
        array->clear();
    }
};

struct HashClear final : BuiltInNode<HashClear, VoidType(Hash)> {
    static void value(Interpreter& /*interpreter*/, Hash* hash) {
        if (hash == nullptr) return;
        hash->clearInPieces();
    }
};

// A question about a hash and a key. The key is evaluated before the hash.
template <class Question>
class KeyNode final : public BoolNode {
public:
    KeyNode(std::unique_ptr<HashNode> hash, std::unique_ptr<Node> key, bool copiesKey)
        : hash_(std::move(hash)), key_(std::move(key)), copiesKey_(copiesKey) {}

    bool result() override {
        if (copiesKey_) [[unlikely]]
            return resultByCopy();
        const FND::String& key = key_.value();
        return ask(key);
    }

private:
    [[gnu::noinline]] bool resultByCopy() {
        const HeldCopy<FND::String> key(key_.value());
        return ask(key.value());
    }

    bool ask(const FND::String& key) {
        countString(key.size());
        Hash* const hash = hash_->result();
        return hash != nullptr && Question::answer(*hash, key);
    }

    const std::unique_ptr<HashNode> hash_;
    const Operand<StringType> key_;
    const bool copiesKey_;  // evaluating the hash may change the text that the key refers to
};

template <class Question>
Node* keyNode(Interpreter& /*interpreter*/, ParserStack& stack, const FctDescr& /*descriptor*/) {
    const bool hashIsActive = stack.traits(1).mayRunScript();
    auto key = stack.pop<StringNode>();
    auto hash = stack.pop<HashNode>();
    return new KeyNode<Question>(std::move(hash), std::move(key), hashIsActive);
}

struct HashContains {
    static bool answer(const Hash& hash, const FND::String& key) { return hash.contains(key); }
};

struct HashRemove {
    static bool answer(Hash& hash, const FND::String& key) { return hash.remove(key); }
};

class HashKeys final : public LongNode {
public:
    HashKeys(Interpreter& interpreter, std::unique_ptr<HashNode> hash,
             std::unique_ptr<ArrayNode> array, bool copiesKeys)
        : hash_(std::move(hash)),
          array_(std::move(array)),
          source_(interpreter, *this),
          copiesKeys_(copiesKeys) {}

    static Node* factory(Interpreter& interpreter, ParserStack& stack, const FctDescr& descriptor) {
        const bool arrayIsActive = stack.traits(0).mayRunScript();
        auto array = stack.pop<ArrayNode>();
        auto hash = stack.pop<HashNode>();
        if (!holdsStrings(*array)) {
            SCR_YaccError(Messages::expectedStringArray(2, descriptor.name()));
            return nullptr;
        }
        return new HashKeys(interpreter, std::move(hash), std::move(array), arrayIsActive);
    }

    long result() override {
        const Hash* const hash = hash_->result();
        if (copiesKeys_) return resultByCopy(hash);
        Array* const array = array_->result();
        if (hash == nullptr || array == nullptr) return -1;
        const BufferCharge charge(sortingBytes(*hash));
        return store(*array, hash->keys());
    }

private:
    // The memory that `Hash::keys` takes.
    static std::size_t sortingBytes(const Hash& hash) { return hash.size() * 3 * sizeof(void*); }

    // Evaluating the array may run script code, which may destroy the hash.
    long resultByCopy(const Hash* hash) {
        using Copy = HeldCopy<FND::String>;
        const std::size_t size = hash != nullptr ? hash->size() : 0;
        const BufferCharge charge(size * (sizeof(Copy) + sizeof(void*)));
        std::vector<Copy> copies;
        copies.reserve(size);
        if (hash != nullptr) {
            const BufferCharge sorting(sortingBytes(*hash));
            for (const FND::String* key : hash->keys()) {
                copies.emplace_back(*key);
                countWork(sizeof(Copy));
            }
        }
        Array* const array = array_->result();
        if (hash == nullptr || array == nullptr) return -1;
        std::vector<const FND::String*> keys;
        keys.reserve(size);
        for (const Copy& copy : copies) keys.push_back(&copy.value());
        return store(*array, keys);
    }

    // Writes into existing elements, to reuse their memory.
    long store(Array& array, const std::vector<const FND::String*>& keys) {
        unsigned long count = 0;
        for (const FND::String* key : keys) {
            auto* element = ArrayElements::find<StringVariable>(array, count);
            if (element == nullptr) {
                element = static_cast<StringVariable*>(source_.make(array, count));
                if (element == nullptr) break;
            }
            SCR::store(element->value(), *key);
            countWork(sizeof(StringVariable));
            ++count;
        }
        array.truncate(count);
        return static_cast<long>(count);
    }

    const std::unique_ptr<HashNode> hash_;
    const std::unique_ptr<ArrayNode> array_;
    ElementSource source_;
    const bool copiesKeys_;
};

constexpr std::string_view arraySizeS =
    "The number of elements: one more than the highest index that was read or written since the "
    "array was empty.";

constexpr BuiltIn containerBuiltInsS[] = {
    {.number = 21,
     .signature = "Long size(Array array)",
     .factory = ArraySize::factory,
     .manual = arraySizeS,
     .example = "Long a[]; a[4] = 1; size(a) == 5"},
    {.number = 115,
     .signature = "Long arraySize(Array array)",
     .factory = ArraySize::factory,
     .manual = arraySizeS,
     .example = "Long a[]; Long first = a[0]; arraySize(a) == 1"},
    {.number = 116,
     .signature = "Void arrayClear(Array array)",
     .factory = ArrayClear::factory,
     .facts = {.replaces = 0},
     .manual = "Removes all elements.",
     .example = "Long a[]; a[4] = 1; arrayClear(a); arraySize(a) == 0"},
    {.number = 117,
     .signature = "Void hashClear(Hash hash)",
     .factory = HashClear::factory,
     .facts = {.replaces = 0},
     .manual = "Removes all keys with their elements.",
     .example = R"(Long h{}; h{"a"} = 1; hashClear(h); hashContains(h, "a") == false)"},
    {.number = 118,
     .signature = "Bool hashContains(Hash hash, String key)",
     .factory = keyNode<HashContains>,
     .facts = {.asksForKey = true},
     .manual = "Whether the hash has the key, which reading or writing an element makes and this "
               "function does not. `key` is evaluated first.",
     .example = R"(Long h{}; h{"a"} = 1; hashContains(h, "a"))"},
    {.number = 119,
     .signature = "Long hashKeys(Hash hash, Array keys)",
     .factory = HashKeys::factory,
     .facts = {.replaces = 1},
     .manual = "Replaces the elements of `keys`, an array of Strings, by the keys of the hash in "
               "ascending order of their bytes and gives their number; -1 when there is no hash or "
               "no array, as under a negative index.",
     .example = R"(Long h{}; String k[]; h{"b"} = 1; h{"a"} = 2;
hashKeys(h, k) == 2 and k[0] == "a" and k[1] == "b")"},
    {.number = 120,
     .signature = "Bool hashRemove(Hash hash, String key)",
     .factory = keyNode<HashRemove>,
     .facts = {.changes = 0},
     .manual = "Removes the key with its element; false when the hash does not have it. `key` is "
               "evaluated first.",
     .example = R"(Long h{}; h{"a"} = 1; hashRemove(h, "a") and hashRemove(h, "a") == false)"},
};

}  // namespace

std::span<const BuiltIn> containerBuiltIns() { return containerBuiltInsS; }

}  // namespace SCR
