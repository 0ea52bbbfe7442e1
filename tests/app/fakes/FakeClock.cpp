#include "fakes/FakeClock.h"

#include <chrono>

namespace kelvo::test {

FakeClock::FakeClock() : now_(TimePoint{} + std::chrono::hours(1)) {}

FakeClock::TimePoint FakeClock::now() const {
    std::scoped_lock lock(mutex_);
    return now_;
}

std::uint64_t FakeClock::schedule(Duration delay, std::function<void()> callback) {
    std::scoped_lock lock(mutex_);
    if (delay < Duration::zero()) {
        delay = Duration::zero();
    }
    auto id = nextId_++;
    queue_.emplace(std::make_pair(now_ + delay, id), std::move(callback));
    return id;
}

void FakeClock::cancel(std::uint64_t id) {
    std::scoped_lock lock(mutex_);
    for (auto it = queue_.begin(); it != queue_.end(); ++it) {
        if (it->first.second == id) {
            queue_.erase(it);
            return;
        }
    }
}

bool FakeClock::runOneDueBy(TimePoint limit) {
    std::function<void()> callback;
    {
        std::scoped_lock lock(mutex_);
        auto it = queue_.begin();
        if (it == queue_.end() || it->first.first > limit) {
            return false;
        }
        if (it->first.first > now_) {
            now_ = it->first.first;
        }
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
    if (now_ < target) {
        now_ = target;
    }
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
