// Arrays and hashes as host programs see them, and their memory. cases/containers.cases tests them
// in scripts.

#include "Allocations.h"
#include "Script.h"
#include "SmallStack.h"
#include "scr/Array.h"
#include "scr/Hash.h"
#include "scr/value/Elements.h"
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

const std::string longTextS(100, 'x');

// What a variable of any class holds.
std::string shown(Variable& variable) {
    if (auto* number = dynamic_cast<LongVariable*>(&variable))
        return std::to_string(number->value());
    if (auto* text = dynamic_cast<StringVariable*>(&variable)) return text->value();
    if (auto* array = dynamic_cast<Array*>(&variable)) {
        return std::to_string(array->size()) + shown(*array->at(5)) + shown(*array->at(0));
    }
    if (auto* hash = dynamic_cast<Hash*>(&variable)) {
        return keysOf(*hash).front() + shown(*hash->find("k"));
    }
    if (auto* decimal = dynamic_cast<SCR::DecimalVariable*>(&variable)) {
        return decimal->value().toPlainString();
    }
    if (auto* date = dynamic_cast<SCR::DateVariable*>(&variable)) {
        return std::to_string(date->value().secs());
    }
    if (auto* flag = dynamic_cast<SCR::BoolVariable*>(&variable)) return flag->value() ? "y" : "n";
    if (auto* id = dynamic_cast<SCR::NexidVariable*>(&variable)) return id->value().toString();
    if (auto* adt = dynamic_cast<SCR::AdtVariable*>(&variable)) {
        return std::to_string(adt->value()) + adt->subType();
    }
    if (auto* host = dynamic_cast<HostVariable*>(&variable)) return std::to_string(host->value());
    return dynamic_cast<SCR::FileVariable&>(variable).stream() == nullptr ? "closed" : "open";
}

// One of each class of elements; the containers hold something already.
std::vector<std::unique_ptr<Variable>> prototypes() {
    std::vector<std::unique_ptr<Variable>> all;
    all.emplace_back(new LongVariable(7));
    all.emplace_back(new SCR::DecimalVariable(FND::Decimal(5)));
    all.emplace_back(new StringVariable(longTextS));
    all.emplace_back(new SCR::DateVariable(FND::DateTime::max()));
    all.emplace_back(new SCR::BoolVariable(true));
    all.emplace_back(new SCR::NexidVariable(FND::Identifier(1, "/a", 2, 3)));
    all.emplace_back(new HostVariable(11));
    auto adt = std::make_unique<SCR::AdtVariable>(9L);
    adt->subType(longTextS);
    all.push_back(std::move(adt));
    all.emplace_back(new SCR::FileVariable);
    auto array = std::make_unique<Array>(new StringVariable(longTextS));
    stringAt(*array, 5) = "five";
    all.push_back(std::move(array));
    auto hash = std::make_unique<Hash>(new LongVariable(3));
    longAt(*hash, "k") = 4;
    all.push_back(std::move(hash));
    return all;
}

TEST(Container, ElementsOfEveryKindAreClonesOfThePrototype) {
    for (const auto& model : prototypes()) {
        const std::string content = shown(*model);
        SCOPED_TRACE(content);
        {
            Array array(model->clone());
            Hash hash(model->clone());
            EXPECT_EQ(array.containerType(), model->dataType());
            EXPECT_EQ(hash.containerType(), model->dataType());
            for (int round = 0; round < 2; ++round) {
                Variable* first = nullptr;
                for (const unsigned long index : {0UL, 20UL, 5000UL}) {
                    Variable* const element = array.at(index);
                    EXPECT_EQ(element->dataType(), model->dataType());
                    EXPECT_EQ(shown(*element), content);
                    EXPECT_EQ(array.at(index), element);
                    first = first == nullptr ? element : first;
                    EXPECT_EQ(array.at(0), first) << "elements stay where they are";
                    Variable* const entry = hash.find(std::to_string(index));
                    EXPECT_EQ(shown(*entry), content);
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
                EXPECT_EQ(shown(*copy.at(5000)), content);
                EXPECT_EQ(shown(*copy.at(6000)), content);
                EXPECT_EQ(keysOf(static_cast<Hash&>(*hashCopy)),
                          (std::vector<std::string>{"0", "20", "5000"}));
            }
        }
    }
    EXPECT_EQ(HostVariable::instancesCM, 0);
}

TEST(Array, TakesMemoryForWhatIsUsed) {
    const long before = Allocations::bytesHeldCM;
    Array array(new LongVariable(8));
    longAt(array, (1UL << 28) - 1) = 1;
    EXPECT_EQ(longAt(array, 12345678), 8);
    EXPECT_LT(Allocations::bytesHeldCM - before, 3 << 20);
    array.clear();
    Array outer(new Array(new LongVariable));
    for (unsigned long i = 0; i < 1000; ++i) longAt(static_cast<Array&>(*outer.at(i)), 0) = 1;
    EXPECT_LT((Allocations::bytesHeldCM - before) / 1000, 256);
}

TEST(Array, KeepsPlainValuesAsTheyAreUntilAVariableIsAskedFor) {
    constexpr unsigned long size = 100000;
    const std::size_t before = Allocations::bytesHeldCM;
    Array array(new SCR::BoolVariable(true));
    const auto value = [&](Array& of, unsigned long index) {
        return SCR::ArrayElements::findValue<SCR::BoolVariable>(of, index);
    };
    EXPECT_EQ(value(array, 0), nullptr);
    EXPECT_FALSE(array.make(size, size));
    for (unsigned long i = 0; i < size; ++i) {
        ASSERT_TRUE(array.make(i));
        EXPECT_TRUE(*value(array, i));
        *value(array, i) = i % 3 == 0;
    }
    EXPECT_EQ(SCR::ArrayElements::find<SCR::BoolVariable>(array, 5), nullptr);
    EXPECT_LT(Allocations::bytesHeldCM - before, 2 * size);

    array.truncate(size - 5);
    const std::unique_ptr<Variable> copied(array.clone());
    auto& copy = static_cast<Array&>(*copied);
    ASSERT_NE(array.at(size - 1), nullptr);
    Array dates(new SCR::DateVariable);
    ASSERT_TRUE(dates.make(9));
    const FND::DateTime* const former = SCR::ArrayElements::findValue<SCR::DateVariable>(dates, 9);
    static_cast<SCR::DateVariable*>(dates.at(9))->value() = FND::DateTime::now();
    EXPECT_FALSE(former->isValid());
    for (Array* const each : {&array, &copy}) {
        for (unsigned long i = 0; i < size - 5; ++i) ASSERT_EQ(*value(*each, i), i % 3 == 0) << i;
    }
    EXPECT_TRUE(*value(array, size - 5));
    EXPECT_EQ(SCR::ArrayElements::find<SCR::BoolVariable>(array, 7), array.at(7));
    EXPECT_EQ(array.at(7)->dataType(), array.containerType());
    const std::unique_ptr<Variable> last(array.clone());
    EXPECT_EQ(*value(static_cast<Array&>(*last), 9), true);
    EXPECT_EQ(*value(static_cast<Array&>(*last), 10), false);
}

TEST(Array, TruncatedElementsComeBackAsClones) {
    for (const unsigned long size : {3UL, 64UL, 5000UL, 20000UL}) {
        for (const unsigned long left : {0UL, 1UL, 60UL, 4096UL, 30000UL}) {
            Array array(new StringVariable("p"));
            for (unsigned long i = 0; i < size; ++i) stringAt(array, i) = std::to_string(i);
            array.truncate(left);
            ASSERT_EQ(array.size(), std::min(left, size));
            for (unsigned long i = 0; i < size + 10; ++i) {
                ASSERT_EQ(stringAt(array, i), i < std::min(left, size) ? std::to_string(i) : "p");
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
    EXPECT_EQ(array.at(1UL << 32), nullptr);
    const unsigned long huge = std::numeric_limits<unsigned long>::max();
    for (const unsigned long index : {1UL << 32, huge - 1, huge}) {
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
            Variable* const there =
                SCR::HashElements::find<LongVariable>(hash, key, SCR::keyHash(key));
            ASSERT_EQ(there, known != map.end() ? known->second : nullptr);
            const auto choice = random() % 16;
            if (choice < 5) {
                ASSERT_EQ(hash.remove(key), map.erase(key) > 0);
            } else if (choice == 5 && hash.size() > 0) {  // by a key of its own
                map.erase(*hash.keys().front());
                ASSERT_TRUE(hash.remove(*hash.keys().front()));
            } else if (choice == 6 && random() % 500 == 0) {
                hash.clear();
                map.clear();
            } else if (choice > 6) {
                longAt(hash, key) = number;
                ASSERT_EQ(hash.find(key), map.try_emplace(key, hash.find(key)).first->second);
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
    for (const auto& family : families) {
        for (int shift = 0; shift <= 24; shift += 8) {
            std::array<int, 256> counts{};
            for (unsigned i = 0; i < 4096; ++i) ++counts[SCR::keyHash(family(i)) >> shift & 0xFF];
            // The mean is 16, the deviation 4.
            EXPECT_LT(*std::max_element(counts.begin(), counts.end()), 56) << family(1);
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

// Sanitizers make frames many times as large.
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
