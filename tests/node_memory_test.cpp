#include "scr/run/NodeMemory.h"

#include "Test.h"

#include "Allocations.h"
#include "scr/Constant.h"
#include "scr/Interpreter.h"

namespace {

namespace NodeMemory = SCR::NodeMemory;

// Memory filled with a byte of its own, to see that nobody else writes to it.
class Piece {
public:
    Piece(std::size_t size, unsigned char fill)
        : size_(size), fill_(fill), bytes_(static_cast<unsigned char*>(NodeMemory::take(size))) {
        std::memset(bytes_, fill_, size_);
    }
    void give() {
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(bytes_) % (size_ % 16 == 0 ? 16 : 8), 0U);
        for (std::size_t i = 0; i < size_; ++i) ASSERT_EQ(bytes_[i], fill_);
        NodeMemory::give(bytes_, size_);
    }

private:
    std::size_t size_;
    unsigned char fill_;
    unsigned char* bytes_;
};

// Takes and gives back pieces at random; hands those that are left to `rest`.
void takeAndGive(unsigned seed, int steps, std::vector<Piece>& rest) {
    std::mt19937 engine(seed);
    for (int i = 0; i < steps; ++i) {
        if (!rest.empty() && engine() % 3 == 0) {
            std::swap(rest[engine() % rest.size()], rest.back());
            rest.back().give();
            rest.pop_back();
        } else {
            // Now and then larger than the pieces that share a block.
            const std::size_t size =
                engine() % 50 == 0 ? 500 + engine() % 5000 : 1 + engine() % 130;
            rest.emplace_back(size, static_cast<unsigned char>(engine()));
        }
    }
}

TEST(NodeMemoryTest, PiecesAreSeparateAndOutliveTheirScope) {
    std::vector<Piece> first;
    std::vector<Piece> nested;
    std::vector<Piece> outside;
    first.reserve(100000);
    nested.reserve(100000);
    outside.reserve(2000);
    const long heldByNone = Allocations::heldCM;
    takeAndGive(1, 2000, outside);
    const long held = Allocations::heldCM;
    {
        const NodeMemory::Scope scope;
        takeAndGive(2, 50000, first);
        {
            const NodeMemory::Scope inner;
            takeAndGive(3, 50000, nested);
            for (int i = 0; i < 100; ++i) {
                first.back().give();  // what belongs to the outer scope
                first.pop_back();
            }
        }
        takeAndGive(4, 20000, first);
    }
    EXPECT_GT(Allocations::heldCM, held);
    for (Piece& piece : nested) piece.give();
    for (Piece& piece : first) piece.give();
    EXPECT_EQ(Allocations::heldCM, held);
    for (Piece& piece : outside) piece.give();
    EXPECT_EQ(Allocations::heldCM, heldByNone);
}

TEST(NodeMemoryTest, ThreadsDoNotDisturbOneAnother) {
    std::vector<std::thread> threads;
    for (unsigned i = 0; i < 4; ++i) {
        threads.emplace_back([i] {
            std::vector<Piece> pieces;
            takeAndGive(i, 20000, pieces);  // shared by the threads
            {
                const NodeMemory::Scope scope;
                takeAndGive(10 + i, 20000, pieces);
            }
            takeAndGive(20 + i, 20000, pieces);
            for (Piece& piece : pieces) piece.give();
        });
    }
    for (std::thread& thread : threads) thread.join();
}

TEST(NodeMemoryTest, OverAlignedNodes) {
    struct alignas(64) Wide : SCR::LongNode {
        long result() override { return number; }
        long number = 5;
    };
    const std::unique_ptr<SCR::Node> node = std::make_unique<Wide>();
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(node.get()) % 64, 0U);
}

TEST(NodeMemoryTest, ScriptsGiveTheirMemoryBack) {
    SCR::Interpreter interpreter(nullptr);
    FND::String script = "Long sum;";
    for (int i = 0; i < 3000; ++i) {
        const FND::String number = std::to_string(i);
        script += "function Long f" + number + "(Long a) { Long b = a * " + number +
                  "; String s = \"x\"; if (b > 7) { return b; } return b + 1; }\n" +
                  "sum = sum + f" + number + "(2);";
    }
    const FND::String wrong = script + "sum = f1(\"text\");";
    long held = 0;
    for (int i = 0; i < 4; ++i) {
        ASSERT_TRUE(interpreter.compile(script));
        ASSERT_TRUE(interpreter.execute());
        ASSERT_TRUE(interpreter.compileQuery("f2(3) == 6 and sum > 3"));
        ASSERT_FALSE(interpreter.compile(wrong));
        ASSERT_TRUE(interpreter.compile("Long a = 1; a = a + 1;"));
        if (i == 0) held = Allocations::heldCM;
        EXPECT_EQ(Allocations::heldCM, held);
    }
}

}  // namespace
