// Arrays and hashes as host programs see them, and their memory. cases/containers.cases tests them
// in scripts.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <memory>
#include <new>
#include <random>
#include <string>
#include <vector>

#include "Allocations.h"
#include "Script.h"
#include "SmallStack.h"
#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/value/KeyHash.h"

namespace {

using SCR::Array;
using SCR::Hash;
using SCR::LongVariable;
using SCR::StringVariable;
using SCR::Variable;

long& longAt(Array& array, unsigned long index) {
    return static_cast<LongVariable*>(array.at(index))->value();
}

long& longAt(Hash& hash, const std::string& key) {
    return static_cast<LongVariable*>(hash.find(key))->value();
}

std::string& stringAt(Array& array, unsigned long index) {
    return static_cast<StringVariable*>(array.at(index))->value();
}

std::vector<std::string> keysOf(const Hash& hash) {
    std::vector<std::string> keys;
    for (const std::string* key : hash.keys()) keys.push_back(*key);
    return keys;
}

// A host's own class of variables, whose instances are counted.
class HostVariable final : public Variable {
public:
    explicit HostVariable(int value) : Variable(1000), value_(value) { ++instancesCM; }
    ~HostVariable() override { --instancesCM; }
    Variable* clone() const override { return new HostVariable(value_); }
    int value() const { return value_; }

    static int instancesCM;

private:
    int value_;
};
int HostVariable::instancesCM = 0;

template <class V>
bool equal(const Variable& a, const Variable& b) {
    return static_cast<const V&>(a).value() == static_cast<const V&>(b).value();
}

// A class of elements: a prototype, and whether two elements hold the same.
struct ElementKind {
    const char* name;
    std::function<std::unique_ptr<Variable>()> prototype;
    std::function<bool(const Variable&, const Variable&)> same;
};

const std::string longTextS(100, 'x');

template <class V, class Value>
ElementKind plain(const char* name, const Value& value) {
    return {name, [value] { return std::make_unique<V>(value); }, equal<V>};
}

std::vector<ElementKind> elementKinds() {
    return {
        plain<LongVariable>("Long", 7L),
        plain<SCR::DecimalVariable>("Decimal", FND::Decimal(5)),
        plain<StringVariable>("String", longTextS),
        plain<SCR::DateVariable>("Date", FND::DateTime::max()),
        plain<SCR::BoolVariable>("Bool", true),
        plain<SCR::NexidVariable>("Nexid", FND::Identifier(1, "/a", 2, 3)),
        plain<HostVariable>("host's", 11),
        {"Adt",
         [] {
             auto variable = std::make_unique<SCR::AdtVariable>(9L);
             variable->subType(longTextS);
             return variable;
         },
         [](const Variable& a, const Variable& b) {
             return equal<SCR::AdtVariable>(a, b) &&
                    static_cast<const SCR::AdtVariable&>(a).subType() ==
                        static_cast<const SCR::AdtVariable&>(b).subType();
         }},
        {"File", [] { return std::make_unique<SCR::FileVariable>(); },
         [](const Variable& a, const Variable& b) {
             return static_cast<const SCR::FileVariable&>(a).stream() == nullptr &&
                    static_cast<const SCR::FileVariable&>(b).stream() == nullptr;
         }},
        // Prototypes that already hold elements.
        {"Array",
         [] {
             auto array = std::make_unique<Array>(new StringVariable(longTextS));
             stringAt(*array, 5) = "five";
             return array;
         },
         [](const Variable& a, const Variable& b) {
             auto& first = const_cast<Array&>(static_cast<const Array&>(a));
             auto& second = const_cast<Array&>(static_cast<const Array&>(b));
             return first.size() == 6 && second.size() == 6 && stringAt(first, 5) == "five" &&
                    stringAt(second, 5) == "five" && stringAt(first, 0) == stringAt(second, 0);
         }},
        {"Hash",
         [] {
             auto hash = std::make_unique<Hash>(new LongVariable(3));
             longAt(*hash, "k") = 4;
             return hash;
         },
         [](const Variable& a, const Variable& b) {
             auto& first = const_cast<Hash&>(static_cast<const Hash&>(a));
             auto& second = const_cast<Hash&>(static_cast<const Hash&>(b));
             return keysOf(first) == keysOf(second) && longAt(first, "k") == longAt(second, "k");
         }},
    };
}

TEST(Container, ElementsOfEveryKindAreClonesOfThePrototype) {
    for (const ElementKind& kind : elementKinds()) {
        SCOPED_TRACE(kind.name);
        const auto model = kind.prototype();
        {
            Array array(kind.prototype().release());
            Hash hash(kind.prototype().release());
            EXPECT_EQ(array.containerType(), model->dataType());
            EXPECT_EQ(hash.containerType(), model->dataType());
            for (int round = 0; round < 2; ++round) {
                for (const unsigned long index : {0UL, 20UL, 5000UL}) {
                    Variable* const element = array.at(index);
                    EXPECT_EQ(element->dataType(), model->dataType());
                    EXPECT_TRUE(kind.same(*element, *model));
                    EXPECT_EQ(array.at(index), element);
                    Variable* const entry = hash.find(std::to_string(index));
                    EXPECT_TRUE(kind.same(*entry, *model));
                    EXPECT_EQ(hash.find(std::to_string(index)), entry);
                }
                EXPECT_EQ(array.size(), 5001U);
                EXPECT_EQ(hash.size(), 3U);

                const std::unique_ptr<Variable> arrayCopy(array.clone());
                const std::unique_ptr<Variable> hashCopy(hash.clone());
                array.clear();
                hash.clear();
                EXPECT_EQ(array.size() + hash.size(), 0U);
                auto& copy = static_cast<Array&>(*arrayCopy);
                EXPECT_EQ(copy.size(), 5001U);
                EXPECT_TRUE(kind.same(*copy.at(5000), *model));
                EXPECT_TRUE(kind.same(*copy.at(6000), *model));
                EXPECT_EQ(keysOf(static_cast<Hash&>(*hashCopy)),
                          (std::vector<std::string>{"0", "20", "5000"}));
            }
        }
    }
    EXPECT_EQ(HostVariable::instancesCM, 0);
}

TEST(Array, GrowsWithoutMovingElements) {
    Array array(new LongVariable);
    std::vector<Variable*> elements;
    for (long i = 0; i < 20000; ++i) {
        longAt(array, static_cast<unsigned long>(i)) = i;
        elements.push_back(array.at(static_cast<unsigned long>(i)));
    }
    for (long i = 0; i < 20000; ++i) {
        const auto index = static_cast<unsigned long>(i);
        ASSERT_EQ(array.at(index), elements[index]);
        ASSERT_EQ(array.existing<LongVariable>(index), elements[index]);
        ASSERT_EQ(longAt(array, index), i);
    }
    EXPECT_EQ(array.size(), 20000U);
    EXPECT_EQ(array.existing<LongVariable>(20000), nullptr);
}

TEST(Array, TakesMemoryForWhatIsUsed) {
    const long before = Allocations::bytesHeldCM;
    Array array(new LongVariable(8));
    longAt(array, (1UL << 28) - 1) = 1;
    EXPECT_EQ(array.size(), 1UL << 28);
    EXPECT_EQ(longAt(array, 12345678), 8);
    EXPECT_LT(Allocations::bytesHeldCM - before, 3 << 20);
    array.clear();
    EXPECT_LT(Allocations::bytesHeldCM - before, 8192);
}

TEST(Array, KeepsPlainValuesAsTheyAreUntilAVariableIsAskedFor) {
    constexpr unsigned long size = 100000;
    const std::size_t before = Allocations::bytesHeldCM;
    Array array(new SCR::BoolVariable(true));
    const auto value = [&](Array& of, unsigned long index) {
        return of.existingValue<SCR::BoolVariable>(index);
    };
    EXPECT_EQ(value(array, 0), nullptr);
    EXPECT_FALSE(array.make(size, size));
    for (unsigned long i = 0; i < size; ++i) {
        ASSERT_TRUE(array.make(i));
        EXPECT_TRUE(*value(array, i));
        *value(array, i) = i % 3 == 0;
    }
    EXPECT_EQ(array.existing<SCR::BoolVariable>(5), nullptr);
    EXPECT_LT(Allocations::bytesHeldCM - before, size + 16384);

    array.truncate(size - 5);
    const std::unique_ptr<Variable> copied(array.clone());
    auto& copy = static_cast<Array&>(*copied);
    const bool* const former = value(array, 9);
    ASSERT_NE(array.at(size - 1), nullptr);
    *value(array, 9) = false;
    EXPECT_TRUE(*former);
    *value(array, 9) = true;
    for (Array* const each : {&array, &copy}) {
        for (unsigned long i = 0; i < size - 5; ++i) ASSERT_EQ(*value(*each, i), i % 3 == 0) << i;
    }
    EXPECT_TRUE(*value(array, size - 5));
    EXPECT_EQ(array.existing<SCR::BoolVariable>(7), array.at(7));
    EXPECT_EQ(array.at(7)->dataType(), array.containerType());
    const std::unique_ptr<Variable> last(array.clone());
    EXPECT_EQ(*value(static_cast<Array&>(*last), 9), true);
    EXPECT_EQ(*value(static_cast<Array&>(*last), 10), false);
}

TEST(Array, TruncatedElementsComeBackAsClones) {
    for (const unsigned long size : {3UL, 8UL, 64UL, 200UL, 5000UL, 20000UL}) {
        for (const unsigned long left : {0UL, 1UL, 4UL, 60UL, 4096UL, 30000UL}) {
            SCOPED_TRACE(testing::Message() << size << " cut to " << left);
            Array array(new StringVariable("p"));
            for (unsigned long i = 0; i < size; ++i) stringAt(array, i) = std::to_string(i);
            array.truncate(left);
            const unsigned long kept = std::min(left, size);
            ASSERT_EQ(array.size(), kept);
            for (unsigned long i = 0; i < size + 10; ++i) {
                ASSERT_EQ(stringAt(array, i), i < kept ? std::to_string(i) : "p") << i;
            }
        }
    }
}

TEST(Array, RefillsWithoutAllocating) {
    Array array(new StringVariable);
    long last = 0;
    for (int round = 0; round < 3; ++round) {
        last = Allocations::madeCM;
        for (unsigned long i = 0; i < 50; ++i) stringAt(array, i).assign(30, 'f');
        array.truncate(20);
        for (unsigned long i = 20; i < 50; ++i) stringAt(array, i).assign(30, 'g');
        array.clear();
    }
    EXPECT_EQ(Allocations::madeCM, last);
    // Long texts are not kept for ever.
    stringAt(array, 0).assign(1 << 20, 'x');
    const long full = Allocations::bytesHeldCM;
    array.clear();
    EXPECT_LT(Allocations::bytesHeldCM, full - (1 << 20));
}

TEST(Container, HoldsNoMoreThanTheLimit) {
    Array array(new LongVariable);
    EXPECT_NE(array.at(9, 10), nullptr);
    EXPECT_EQ(array.at(10, 10), nullptr);
    EXPECT_EQ(array.at(Array::maxSizeCM), nullptr);
    const unsigned long huge = std::numeric_limits<unsigned long>::max();
    for (const unsigned long index : {Array::maxSizeCM, huge - 1, huge}) {
        EXPECT_EQ(array.at(index, huge), nullptr);
    }
    EXPECT_EQ(array.size(), 10U);
    EXPECT_NE(array.at(5, 3), nullptr) << "what is there stays";

    Hash hash(new LongVariable);
    EXPECT_NE(hash.find("a", 1), nullptr);
    EXPECT_EQ(hash.find("b", 1), nullptr);
    EXPECT_NE(hash.find("a", 0), nullptr);
    EXPECT_EQ(keysOf(hash), std::vector<std::string>{"a"});
}

TEST(Hash, DoesWhatAMapDoes) {
    std::mt19937 random(2);
    for (const unsigned numKeys : {3U, 40U, 3000U}) {
        Hash hash(new LongVariable);
        std::map<std::string, Variable*> map;
        for (int step = 0; step < 60000; ++step) {
            const unsigned number = random() % numKeys;
            std::string key(number % 23, 'k');
            for (unsigned left = number; left != 0; left /= 5) key += "a\0\x7F\x80\xFF"[left % 5];
            const auto known = map.find(key);
            ASSERT_EQ(hash.contains(key), known != map.end());
            Variable* const there = hash.existing<LongVariable>(key, SCR::keyHash(key));
            ASSERT_EQ(there, known != map.end() ? known->second : nullptr);
            switch (random() % 16) {
                default:
                    longAt(hash, key) = number;
                    if (known != map.end()) {
                        ASSERT_EQ(hash.find(key), known->second);
                    } else {
                        map[key] = hash.find(key);
                    }
                    break;
                case 0:
                case 1:
                case 2:
                case 3:
                case 4:
                    ASSERT_EQ(hash.remove(key), map.erase(key) > 0);
                    break;
                case 5:
                    if (random() % 500 != 0) break;
                    hash.clear();
                    map.clear();
                    break;
            }
            ASSERT_EQ(hash.size(), map.size());
        }
        std::vector<std::string> keys;
        for (const auto& [key, element] : map) {
            keys.push_back(key);
            EXPECT_EQ(hash.find(key), element);
        }
        EXPECT_EQ(keysOf(hash), keys);
    }
}

TEST(Hash, RemovesByAKeyOfItsOwn) {
    Hash hash(new StringVariable);
    static_cast<StringVariable*>(hash.find(longTextS))->value() = longTextS;
    EXPECT_TRUE(hash.remove(static_cast<StringVariable*>(hash.find(longTextS))->value()));
    hash.find(longTextS);
    EXPECT_TRUE(hash.remove(*hash.keys().front()));
    EXPECT_EQ(hash.size(), 0U);
}

// 4096 keys that differ in few bits fall evenly into 256 classes by any 8 bits of their hashes.
TEST(KeyHash, SpreadsSimilarKeys) {
    const std::vector<std::function<std::string(unsigned)>> families{
        [](unsigned i) { return "key" + std::to_string(i); },
        [](unsigned i) { return std::to_string(1000000000UL + i); },
        [](unsigned i) { return std::string(i, 'a'); },
        [](unsigned i) { return std::string(reinterpret_cast<const char*>(&i), sizeof i); },
        [](unsigned i) { return std::to_string(i << 4) + " and a tail beyond sixteen bytes"; },
        [](unsigned i) { return "a head beyond sixteen bytes, and " + std::to_string(i << 8); },
    };
    for (std::size_t family = 0; family < families.size(); ++family) {
        for (int shift = 0; shift <= 24; shift += 8) {
            std::array<int, 256> counts{};
            for (unsigned i = 0; i < 4096; ++i) {
                ++counts[SCR::keyHash(families[family](i)) >> shift & 0xFF];
            }
            // The mean is 16, the deviation 4.
            EXPECT_LT(*std::max_element(counts.begin(), counts.end()), 56) << family;
        }
    }
}

TEST(Container, TakesLittleMemoryPerElement) {
    {
        constexpr long count = 10'000'000;
        const long before = Allocations::bytesHeldCM;
        Array array(new LongVariable);
        for (unsigned long i = 0; i < count; ++i) longAt(array, i) = 1;
        EXPECT_LT(Allocations::bytesHeldCM - before, 32 * count);
    }
    constexpr long count = 1'000'000;
    const long before = Allocations::bytesHeldCM;
    Hash hash(new LongVariable);
    for (unsigned long i = 0; i < count; ++i) longAt(hash, std::to_string(1'000'000'000 + i)) = 1;
    EXPECT_LT(Allocations::bytesHeldCM - before, 120 * count);

    const long allocations = Allocations::madeCM;
    for (unsigned long i = 0; i < count; i += 10) {
        const std::string key = std::to_string(1'000'000'000 + i);
        ASSERT_NE(hash.find(key), nullptr);
        ASSERT_TRUE(hash.contains(key));
    }
    EXPECT_EQ(Allocations::madeCM, allocations) << "reading what is there allocates nothing";
}

TEST(Container, FewElementsTakeLittle) {
    const long before = Allocations::bytesHeldCM;
    Array array(new Array(new LongVariable));
    for (unsigned long i = 0; i < 1000; ++i) longAt(static_cast<Array&>(*array.at(i)), 0) = 1;
    EXPECT_LT((Allocations::bytesHeldCM - before) / 1000, 240);
    Hash hash(new Hash(new LongVariable));
    const long between = Allocations::bytesHeldCM;
    for (unsigned long i = 0; i < 1000; ++i) {
        longAt(static_cast<Hash&>(*hash.find(std::to_string(i))), "k") = 1;
    }
    EXPECT_LT((Allocations::bytesHeldCM - between) / 1000, 640);
}

TEST(ElementLimit, IsReportedOnceInAnExecution) {
    const auto result = Harness::run(
        R"(Long a[]; Long h{}; Long i;
           for (i = 0; i < 6; i = i + 1) { a[i] = i; h{longToStr(i)} = i; }
           logStdout(longToStr(arraySize(a)) + longToStr(a[9]) + longToStr(h{"2"}));)",
        {2, [](SCR::Interpreter& interpreter) {
             SCR::Limits limits;
             limits.elements = 3;
             interpreter.limits(limits);
         }});
    EXPECT_EQ(result.output, "302302");
    const std::string once =
        "array: no room for element '3'\nhash: no room beside '3' keys\n"
        "array: no room for element '9'\n";
    EXPECT_EQ(result.log, once + once);
}

// Sanitizers make frames many times larger.
constexpr std::size_t stackSizeS = KESTREL_SANITIZED ? 8 << 20 : 512 << 10;

// Containers of containers, 500 deep, of alternating kinds.
TEST(Container, NestsDeeplyOnASmallStack) {
    const auto innermost = [](Variable* variable) {
        for (int level = 499; level >= 0; --level) {
            variable = level % 2 == 0 ? static_cast<Array*>(variable)->at(1)
                                      : static_cast<Hash*>(variable)->find("key");
        }
        return static_cast<LongVariable*>(variable);
    };
    Harness::onSmallStack(stackSizeS, [&innermost] {
        std::unique_ptr<Variable> outer = std::make_unique<LongVariable>(1);
        for (int level = 0; level < 500; ++level) {
            if (level % 2 == 0) {
                outer = std::make_unique<Array>(outer.release());
            } else {
                outer = std::make_unique<Hash>(outer.release());
            }
        }
        innermost(outer.get())->value() = 5;
        const std::unique_ptr<Variable> copy(outer->clone());
        outer.reset();
        EXPECT_EQ(innermost(copy.get())->value(), 5);
        static_cast<Hash&>(*copy).clear();
    });
}

}  // namespace
