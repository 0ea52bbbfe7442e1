#include "KelvoVoiceMac/session/ClockSleep.h"

#include <utility>

namespace kelvo::app {

ClockSleep::ClockSleep(platform::Clock& clock, platform::Clock::Duration delay,
                       std::optional<CancellationToken> token)
    : clock_(clock), delay_(delay), token_(std::move(token)), state_(std::make_shared<State>()) {}

bool ClockSleep::await_ready() const noexcept {
    return token_ && token_->isCancelled();
}

void ClockSleep::await_suspend(std::coroutine_handle<> awaiting) {
    auto state = state_;
    state->timerId = clock_.schedule(delay_, [state, awaiting] {
        if (state->finished) {
            return;
        }
        state->finished = true;
        state->completed = true;
        awaiting.resume();
    });
    if (token_) {
        platform::Clock* clock = &clock_;
        token_->onCancel([state, awaiting, clock] {
            if (state->finished) {
                return;
            }
            state->finished = true;
            clock->cancel(state->timerId);
            clock->schedule(platform::Clock::Duration::zero(), [awaiting] { awaiting.resume(); });
        });
    }
}

bool ClockSleep::await_resume() noexcept {
    if (token_) {
        token_->clearOnCancel();
    }
    return state_->completed;
}

}  // namespace kelvo::app
