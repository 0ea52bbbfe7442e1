#pragma once

// ClockSleep is the awaitable wait of the application's main-thread tasks, built on the injected
// Clock so that tests drive every wait with a fake clock (QCoro::sleepFor reads Qt's timers, which
// a fake cannot move). `bool completed = co_await sleepFor(clock, 650ms, token);` suspends the task
// until the clock's callback fires on the main thread and yields true, or until the token is
// cancelled and yields false. The resumption is always posted through the clock, never run inside
// cancel(), so the canceller finishes its own step first. The clock must outlive the wait; the
// awaitable itself may be a temporary.

#include <coroutine>
#include <cstdint>
#include <memory>
#include <optional>

#include "KelvoVoiceMac/session/CancellationToken.h"
#include "platform/Clock.h"

namespace kelvo::app {

class ClockSleep {
  public:
    ClockSleep(platform::Clock& clock, platform::Clock::Duration delay,
               std::optional<CancellationToken> token = std::nullopt);

    bool await_ready() const noexcept;
    void await_suspend(std::coroutine_handle<> awaiting);
    bool await_resume() noexcept;

  private:
    struct State {
        bool finished = false;
        bool completed = false;
        std::uint64_t timerId = 0;
    };

    platform::Clock& clock_;
    platform::Clock::Duration delay_;
    std::optional<CancellationToken> token_;
    std::shared_ptr<State> state_;
};

// Waits for delay on clock; true when the whole delay passed, false when token interrupted it.
inline ClockSleep sleepFor(platform::Clock& clock, platform::Clock::Duration delay,
                           std::optional<CancellationToken> token = std::nullopt) {
    return ClockSleep(clock, delay, std::move(token));
}

}  // namespace kelvo::app
