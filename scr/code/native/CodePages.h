#pragma once

#include <sys/mman.h>
#include <unistd.h>

#include <cstddef>
#include <utility>

namespace SCR::Code {

/// Memory with code: written once, then executed only. It belongs to this process alone.
class CodePages {
public:
    CodePages() = default;
    CodePages(CodePages&& other) noexcept
        : start_(std::exchange(other.start_, nullptr)), size_(other.size_) {}
    CodePages& operator=(CodePages&&) = delete;
    ~CodePages() {
        if (start_ != nullptr) munmap(start_, size_);
    }

    void* reserve(std::size_t size) {
        const auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
        size_ = (size + page - 1) / page * page;
        void* const mapped =
            mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        start_ = mapped != MAP_FAILED ? mapped : nullptr;
        return start_;
    }
    std::size_t size() const { return size_; }
    bool makeExecutable() const { return mprotect(start_, size_, PROT_READ | PROT_EXEC) == 0; }

private:
    void* start_ = nullptr;
    std::size_t size_ = 0;
};

}  // namespace SCR::Code
