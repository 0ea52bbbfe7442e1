#pragma once

// CancellationToken lets one main-thread party interrupt a wait that another started (a second Fn
// press interrupting the single-tap wait, for instance). Copies share one state: cancel() on any
// copy marks all of them and fires the one registered interruption action, at most once. Confined
// to the main thread, like the tasks that use it; no locking.

#include <functional>
#include <memory>

namespace kelvo::app {

class CancellationToken {
  public:
    CancellationToken();

    void cancel();
    bool isCancelled() const noexcept;

    // Registers the action cancel() runs; replaces an earlier one. Runs it at once when the token
    // is already cancelled. Used by waits, not by their callers.
    void onCancel(std::function<void()> action);
    void clearOnCancel();

  private:
    struct State {
        bool cancelled = false;
        std::function<void()> action;
    };
    std::shared_ptr<State> state_;
};

}  // namespace kelvo::app
