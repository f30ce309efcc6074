#include "fsm/store/SharedGroup.h"

#include <functional>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "fnd/ForkGuard.h"
#include "fnd/SeededHash.h"

namespace FSM {

namespace {

/// Charges a build to the budget of the one who asked for it, and nobody afterwards.
class BuildBudget final : public Budget {
public:
    void take(std::size_t bytes) override {
        if (builder_ != nullptr) builder_->take(bytes);
        taken_ += bytes;
    }
    void give(std::size_t bytes) noexcept override {
        if (builder_ != nullptr) builder_->give(bytes);
        taken_ -= bytes;
    }
    void work(std::size_t steps) override {
        if (builder_ != nullptr) builder_->work(steps);
    }

    void release() {
        if (builder_ != nullptr) builder_->give(taken_);
        builder_ = nullptr;
    }

private:
    Budget* builder_ = currentBudget();  // not owned
    std::size_t taken_ = 0;
};

}  // namespace

/// The groups of the process, by the content of their lists.
class SharedGroup::Cache {
public:
    // Never destroyed: scripts may outlive the other statics of the process.
    static Cache& instance() {
        static Cache& cache = *new Cache;
        return cache;
    }

    std::shared_ptr<const Held> find(const std::string& content) {
        const std::lock_guard guard(lock_);
        const auto found = groups_.find(content);
        return found == groups_.end() ? nullptr : found->second.lock();
    }
    /// Gives the group of the same content that another thread made meanwhile, or `held`.
    std::shared_ptr<const Held> insert(std::shared_ptr<const Held> held);
    /// Called when nobody holds the group of this content any more.
    void forget(const std::string& content) noexcept {
        const std::lock_guard guard(lock_);
        const auto found = groups_.find(content);
        // Another group of the same content may have taken its place.
        if (found != groups_.end() && found->first.data() == content.data()) erase(found);
    }

private:
    // Groups beyond these limits are not shared.
    static constexpr std::size_t mostGroupsCM = 4096;
    static constexpr std::size_t mostBytesCM = std::size_t{64} << 20;

    std::mutex lock_;
    FND::ForkGuard guard_{FND::ForkGuard::Rank::PatternGroups, lock_};
    // The contents lie in the groups.
    using Groups = std::unordered_map<std::string_view, std::weak_ptr<const Held>, FND::SeededHash,
                                      std::equal_to<>>;

    void erase(Groups::iterator group) {
        bytes_ -= group->first.size();
        groups_.erase(group);
    }

    Groups groups_;
    std::size_t bytes_ = 0;  // of their contents
};

struct SharedGroup::Held {
    explicit Held(std::string listed) : content(std::move(listed)) {}
    Held(const Held&) = delete;
    Held& operator=(const Held&) = delete;
    ~Held() { Cache::instance().forget(content); }

    std::size_t bytes() const { return sizeof *this + content.size() + group->memory(); }

    const std::string content;
    BuildBudget budget;  // of the group's memory
    std::unique_ptr<EngineGroup> group;
};

std::shared_ptr<const SharedGroup::Held> SharedGroup::Cache::insert(
    std::shared_ptr<const Held> held) {
    const std::string& content = held->content;
    const std::lock_guard guard(lock_);
    if (const auto found = groups_.find(content); found != groups_.end()) {
        if (std::shared_ptr<const Held> other = found->second.lock()) return other;
        erase(found);
    }
    if (groups_.size() < mostGroupsCM && content.size() <= mostBytesCM - bytes_) {
        groups_.emplace(content, held);
        bytes_ += content.size();
    }
    return held;
}

bool SharedGroup::take(std::unique_ptr<EngineGroup> group, FND::String& error) {
    held_ = nullptr;
    charge_ = Charge();
    try {
        std::string content = group->content();
        held_ = Cache::instance().find(content);
        if (held_ == nullptr) {
            const auto made = std::make_shared<Held>(std::move(content));
            {
                const BudgetScope scope(&made->budget);
                made->group = std::move(group);
                if (!made->group->finalSetup()) {
                    error = made->group->error();
                    return false;
                }
            }
            made->budget.release();
            held_ = Cache::instance().insert(made);
        }
        group_ = held_->group.get();
        charge_ = Charge(held_->bytes());
        return true;
    } catch (const std::bad_alloc&) {
        held_ = nullptr;
        error = "no memory available for the automata";
        return false;
    }
}

}  // namespace FSM
