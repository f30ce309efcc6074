#include "scr/run/NodeMemory.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <new>
#include <utility>

#include <sys/mman.h>

#include "fnd/ForkGuard.h"
#include "scr/run/MemoryCharge.h"

namespace SCR {

namespace NodeMemory {

namespace {

// Off by default under sanitizers, so that they see each allocation.
constexpr bool poolsNodesS = KESTREL_NODE_POOL != 0;

constexpr std::size_t pageSizeS = 4096;
constexpr std::size_t firstBlockSizeS = pageSizeS;
// The size that processors map as one page, so that the system is entered only once for it.
constexpr std::size_t lastBlockSizeS = 512 * pageSizeS;
// Larger objects have memory of their own.
constexpr std::size_t largestS = 512;
constexpr std::size_t unitS = 8;

struct Block;

// Stands at the start of each page of a block; aligned so that every type can follow.
struct alignas(16) PageHead {
    Block* block;
};

// Lies in the first page of the block, after its head.
struct alignas(16) Block {
    Pool* pool;  // null once its scope has ended, and outside of every scope
    Block* next;
    std::size_t size;
    // The number of objects in it, less those that its pool has not counted yet.
    std::size_t used = 0;
    bool isShared = false;
};

// An object that was given back.
struct Free {
    Free* next;
};

// The distance of an address from the multiple of `alignment` below it.
std::size_t offset(const std::byte* place, std::size_t alignment) {
    return reinterpret_cast<std::uintptr_t>(place) % alignment;
}

Block* blockOf(void* memory) {
    const auto address = reinterpret_cast<std::uintptr_t>(memory);
    return reinterpret_cast<PageHead*>(static_cast<std::byte*>(memory) - address % pageSizeS)
        ->block;
}

// A block of the last size lies at a multiple of that size.
std::align_val_t alignmentOf(std::size_t size) {
    return std::align_val_t(size == lastBlockSizeS ? size : pageSizeS);
}

void freeBlock(Block* block) noexcept {
    ::operator delete(reinterpret_cast<PageHead*>(block) - 1, alignmentOf(block->size));
}

}  // namespace

class Pool {
public:
    Pool() = default;
    Pool(const Pool&) = delete;
    Pool& operator=(const Pool&) = delete;
    ~Pool() {
        countFresh();
        while (blocks_ != nullptr) {
            Block* const block = std::exchange(blocks_, blocks_->next);
            block->pool = nullptr;
            if (block->used == 0) freeBlock(block);
        }
    }

    // For objects of `units` times 8 bytes.
    void* take(std::size_t units) {
        Free*& free = free_[units];
        if (free != nullptr) {
            void* const memory = std::exchange(free, free->next);
            ++blockOf(memory)->used;
            return memory;
        }
        // Only objects whose size is a multiple of 16 may need an alignment of 16.
        if (units % 2 == 0) next_ += offset(next_, 16);
        const std::size_t size = units * unitS;
        if (size > static_cast<std::size_t>(pageEnd_ - next_)) [[unlikely]]
            startPage();
        ++fresh_;
        return std::exchange(next_, next_ + size);
    }

    void give(void* memory, std::size_t units) noexcept {
        free_[units] = new (memory) Free{free_[units]};
    }

private:
    // The rest of the page that is being filled; empty at first.
    std::byte* next_ = nullptr;
    std::byte* pageEnd_ = nullptr;
    std::byte* blockEnd_ = nullptr;
    std::size_t nextSize_ = firstBlockSizeS;
    Block* blocks_ = nullptr;
    std::size_t fresh_ = 0;  // objects in the first block that the block does not count yet
    std::array<Free*, largestS / unitS + 1> free_{};

    void countFresh() {
        if (blocks_ != nullptr) blocks_->used += std::exchange(fresh_, 0);
    }

    [[gnu::noinline]] void startPage() {
        if (pageEnd_ == blockEnd_) {
            startBlock();
        } else {
            new (pageEnd_) PageHead{blocks_};
            next_ = pageEnd_ + sizeof(PageHead);
            pageEnd_ += pageSizeS;
        }
    }

    void startBlock() {
        countFresh();
        const std::size_t size = nextSize_;
        chargeBuffer(size);
        void* const memory = ::operator new(size, alignmentOf(size));
        // Only a hint; without it things are merely slower.
        if (size == lastBlockSizeS) ::madvise(memory, size, MADV_HUGEPAGE);
        auto* const head = new (memory) PageHead{};
        blocks_ = head->block = new (head + 1) Block{this, blocks_, size};
        next_ = reinterpret_cast<std::byte*>(blocks_ + 1);
        pageEnd_ = static_cast<std::byte*>(memory) + pageSizeS;
        blockEnd_ = static_cast<std::byte*>(memory) + size;
        nextSize_ = std::min(2 * size, lastBlockSizeS);
    }
};

namespace {

[[gnu::tls_model("initial-exec")]] thread_local Pool* currentS = nullptr;
[[gnu::tls_model("initial-exec")]] thread_local int scopesS = 0;

// A block for objects of one size, taken outside of every scope.
struct SharedBlock : Block {
    SharedBlock* previous = nullptr;
    Free* free = nullptr;
    std::byte* fresh = nullptr;  // the first address never used
    std::byte* end = nullptr;

    bool isFull(std::size_t pieceSize) const {
        return free == nullptr && static_cast<std::size_t>(end - fresh) < pieceSize;
    }
};

// Objects taken outside of every scope, by any thread. Blocks are freed as soon as they are empty.
class SharedBlocks {
public:
    void* take(std::size_t units) {
        const std::size_t size = units * unitS;
        const std::lock_guard lock(mutex_);
        SharedBlock*& first = open_[units];
        if (first == nullptr) first = makeBlock(size);
        SharedBlock& block = *first;
        void* memory = block.free;
        if (memory != nullptr) {
            block.free = block.free->next;
        } else {
            memory = block.fresh;
            block.fresh += size;
        }
        ++block.used;
        if (block.isFull(size)) unlink(block, first);
        return memory;
    }

    void give(SharedBlock& block, void* memory, std::size_t units) noexcept {
        const std::lock_guard lock(mutex_);
        SharedBlock*& first = open_[units];
        if (block.isFull(units * unitS)) link(block, first);
        block.free = new (memory) Free{block.free};
        if (--block.used == 0) {
            unlink(block, first);
            freeBlock(&block);
        }
    }

private:
    static SharedBlock* makeBlock(std::size_t size) {
        void* const memory = ::operator new(pageSizeS, alignmentOf(pageSizeS));
        auto* const head = new (memory) PageHead{};
        auto* const block = new (head + 1) SharedBlock{{nullptr, nullptr, pageSizeS, 0, true}};
        head->block = block;
        block->end = static_cast<std::byte*>(memory) + pageSizeS;
        block->fresh = reinterpret_cast<std::byte*>(block + 1);
        if (size % 16 == 0) block->fresh += offset(block->fresh, 16);
        return block;
    }

    static void link(SharedBlock& block, SharedBlock*& first) noexcept {
        block.next = first;
        if (first != nullptr) first->previous = &block;
        block.previous = nullptr;
        first = &block;
    }

    static void unlink(SharedBlock& block, SharedBlock*& first) noexcept {
        auto* const next = static_cast<SharedBlock*>(block.next);
        if (next != nullptr) next->previous = block.previous;
        if (block.previous != nullptr) {
            block.previous->next = next;
        } else {
            first = next;
        }
    }

    std::mutex mutex_;
    FND::ForkGuard guard_{FND::ForkGuard::Rank::NodeMemory, mutex_};
    std::array<SharedBlock*, largestS / unitS + 1>
        open_{};  // with room, by the size of the objects
};

// Never destroyed: objects may be given back while the process ends.
SharedBlocks& sharedBlocks() {
    alignas(SharedBlocks) static std::byte memory[sizeof(SharedBlocks)];
    static auto* const blocks = new (memory) SharedBlocks;
    return *blocks;
}

// Made while the library is loaded, so that a fork never finds it half made.
[[maybe_unused]] const SharedBlocks& sharedBlocksS = sharedBlocks();

std::size_t unitsOf(std::size_t bytes) { return (bytes + unitS - 1) / unitS; }

// Gives back an object that belongs to an outer scope, or to none.
[[gnu::noinline]] void giveOther(Block* block, void* memory, std::size_t units) noexcept {
    if (block->isShared) {
        sharedBlocks().give(*static_cast<SharedBlock*>(block), memory, units);
    } else {
        --block->used;
        block->pool->give(memory, units);
    }
}

}  // namespace

void* take(std::size_t bytes) {
    if (!poolsNodesS || bytes > largestS) {
        if (scopesS > 0) chargeBuffer(bytes);
        return ::operator new(bytes);
    }
    const std::size_t units = unitsOf(bytes);
    return currentS != nullptr ? currentS->take(units) : sharedBlocks().take(units);
}

void give(void* memory, std::size_t bytes) noexcept {
    if (!poolsNodesS || bytes > largestS) {
        ::operator delete(memory);
        return;
    }
    const std::size_t units = unitsOf(bytes);
    Block* const block = blockOf(memory);
    if (block->pool == nullptr && !block->isShared) {
        if (--block->used == 0) freeBlock(block);
    } else if (block->pool == currentS && currentS != nullptr) {
        --block->used;
        currentS->give(memory, units);
    } else {
        giveOther(block, memory, units);
    }
}

Scope::Scope() : pool_(poolsNodesS ? new Pool : nullptr), outer_(std::exchange(currentS, pool_)) {
    ++scopesS;
}

Scope::~Scope() {
    --scopesS;
    currentS = outer_;
    delete pool_;
}

}  // namespace NodeMemory

void* InNodeMemory::operator new(std::size_t bytes) { return NodeMemory::take(bytes); }

void InNodeMemory::operator delete(void* object, std::size_t bytes) noexcept {
    NodeMemory::give(object, bytes);
}

void* InNodeMemory::operator new(std::size_t bytes, std::align_val_t alignment) {
    return ::operator new(bytes, alignment);
}

void InNodeMemory::operator delete(void* object, std::size_t /*bytes*/,
                                   std::align_val_t alignment) noexcept {
    ::operator delete(object, alignment);
}

void* InNodeMemory::operator new(std::size_t bytes, const std::nothrow_t& /*nothrow*/) noexcept {
    try {
        return NodeMemory::take(bytes);
    } catch (...) {
        return nullptr;
    }
}

}  // namespace SCR
