#pragma once

// QtClock is the production Clock: now() reads std::chrono::steady_clock and schedule() posts the
// callback to the thread of the QCoreApplication through a single-shot QTimer, so callbacks always
// run on the main thread, never inline. schedule() and cancel() are safe from any thread; the
// pending callbacks live in a mutex-guarded table so a cancel() racing a firing timer is decided
// in one place. Owned by the application's wiring; construct it after the QCoreApplication and
// destroy it before. Callbacks still pending at destruction are dropped.

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <unordered_map>

#include "platform/Clock.h"

class QObject;

namespace kelvo::platform {

class QtClock final : public Clock {
  public:
    QtClock();
    ~QtClock() override;

    QtClock(const QtClock&) = delete;
    QtClock& operator=(const QtClock&) = delete;

    TimePoint now() const override;
    std::uint64_t schedule(Duration delay, std::function<void()> callback) override;
    void cancel(std::uint64_t id) override;

  private:
    void fire(std::uint64_t id);

    // Timers are parented to this main-thread object so they die with the clock.
    std::unique_ptr<QObject> context_;
    std::mutex mutex_;
    std::uint64_t nextId_ = 1;
    std::unordered_map<std::uint64_t, std::function<void()>> pending_;
};

}  // namespace kelvo::platform
