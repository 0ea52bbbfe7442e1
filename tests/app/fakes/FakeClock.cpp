#include "fakes/FakeClock.h"

#include <algorithm>
#include <chrono>

namespace kelvo::test {

FakeClock::FakeClock() : now_(TimePoint{} + std::chrono::hours(1)) {}

FakeClock::TimePoint FakeClock::now() const {
    std::scoped_lock lock(mutex_);
    return now_;
}

std::uint64_t FakeClock::schedule(Duration delay, std::function<void()> callback) {
    std::scoped_lock lock(mutex_);
    auto id = nextId_++;
    queue_.emplace(std::make_pair(now_ + std::max(delay, Duration::zero()), id),
                   std::move(callback));
    return id;
}

void FakeClock::cancel(std::uint64_t id) {
    std::scoped_lock lock(mutex_);
    std::erase_if(queue_, [id](const auto& entry) { return entry.first.second == id; });
}

bool FakeClock::runOneDueBy(TimePoint limit) {
    std::function<void()> callback;
    {
        std::scoped_lock lock(mutex_);
        auto it = queue_.begin();
        if (it == queue_.end() || it->first.first > limit) {
            return false;
        }
        now_ = std::max(now_, it->first.first);
        callback = std::move(it->second);
        queue_.erase(it);
    }
    callback();
    return true;
}

void FakeClock::advance(Duration delta) {
    TimePoint target;
    {
        std::scoped_lock lock(mutex_);
        target = now_ + delta;
    }
    while (runOneDueBy(target)) {
    }
    std::scoped_lock lock(mutex_);
    now_ = std::max(now_, target);
}

void FakeClock::runPending() {
    while (runOneDueBy(now())) {
    }
}

std::size_t FakeClock::pendingCount() const {
    std::scoped_lock lock(mutex_);
    return queue_.size();
}

}  // namespace kelvo::test
