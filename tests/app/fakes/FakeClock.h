#pragma once

// FakeClock is a manual Clock for tests: time moves only through advance(), and scheduled
// callbacks run only from advance() or runPending(), in due-time order (ties in scheduling order),
// each with now() set to its due time. Callbacks scheduled while running are honoured in the same
// call when they fall due. schedule()/cancel() may be called from any thread; advance() and
// runPending() are called by the test on its main thread.

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <utility>

#include "platform/Clock.h"

namespace kelvo::test {

class FakeClock final : public platform::Clock {
  public:
    FakeClock();

    TimePoint now() const override;
    std::uint64_t schedule(Duration delay, std::function<void()> callback) override;
    void cancel(std::uint64_t id) override;

    // Moves time forward by delta, running every callback that falls due on the way.
    void advance(Duration delta);
    // Runs every callback already due (zero-delay ones included) without moving time.
    void runPending();
    // Number of callbacks still waiting.
    std::size_t pendingCount() const;

  private:
    bool runOneDueBy(TimePoint limit);

    mutable std::mutex mutex_;
    TimePoint now_;
    std::uint64_t nextId_ = 1;
    // (due time, id) orders by time first and scheduling order second.
    std::map<std::pair<TimePoint, std::uint64_t>, std::function<void()>> queue_;
};

}  // namespace kelvo::test
