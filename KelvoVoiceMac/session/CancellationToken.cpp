#include "KelvoVoiceMac/session/CancellationToken.h"

#include <utility>

namespace kelvo::app {

CancellationToken::CancellationToken() : state_(std::make_shared<State>()) {}

void CancellationToken::cancel() {
    if (state_->cancelled) {
        return;
    }
    state_->cancelled = true;
    if (auto action = std::exchange(state_->action, nullptr)) {
        action();
    }
}

bool CancellationToken::isCancelled() const noexcept {
    return state_->cancelled;
}

void CancellationToken::onCancel(std::function<void()> action) {
    if (state_->cancelled) {
        action();
        return;
    }
    state_->action = std::move(action);
}

void CancellationToken::clearOnCancel() {
    state_->action = nullptr;
}

}  // namespace kelvo::app
