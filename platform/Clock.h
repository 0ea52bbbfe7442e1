#pragma once

// Clock is the seam through which the application reads monotonic time and schedules deferred
// work, so that hold thresholds, tap windows and drain waits can be driven deterministically by a
// fake in tests. now() is a steady (monotonic) clock. schedule() may be called from any thread;
// the callback always runs later on the main thread, never inline inside schedule(), even for a
// zero delay. cancel() of an id that already ran or was cancelled is a no-op. Implementations are
// owned by whoever wires the application and must outlive every object that holds a reference.

#include <chrono>
#include <cstdint>
#include <functional>

namespace kelvo::platform {

class Clock {
  public:
    using TimePoint = std::chrono::steady_clock::time_point;
    using Duration = std::chrono::nanoseconds;

    virtual ~Clock() = default;

    virtual TimePoint now() const = 0;

    // Runs callback on the main thread after delay; may be called from any thread. Returns an id
    // for cancel().
    virtual std::uint64_t schedule(Duration delay, std::function<void()> callback) = 0;

    virtual void cancel(std::uint64_t id) = 0;
};

}  // namespace kelvo::platform
