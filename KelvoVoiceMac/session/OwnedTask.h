#pragma once

// OwnedTask is a coroutine that starts at once and whose frame belongs to the OwnedTask object:
// destroying it destroys the frame, also while the coroutine is suspended (QCoro::Task only marks
// a suspended frame for destruction when it finishes, so a reader waiting on a stream that never
// ends would be leaked with everything it holds). Only coroutines whose every suspension point can
// be abandoned safely may use it, such as a Channel reader (a destroyed reader withdraws its wait).
//
// `co_await task` from another coroutine resumes that coroutine when this one has finished, inline
// on the thread that finished it. One awaiter at most; created, awaited and destroyed on one
// thread. Exceptions must not escape the coroutine body (they terminate).

#include <coroutine>
#include <exception>
#include <utility>

namespace kelvo::app {

class OwnedTask {
  public:
    struct promise_type {
        std::coroutine_handle<> continuation;

        OwnedTask get_return_object() noexcept {
            return OwnedTask(std::coroutine_handle<promise_type>::from_promise(*this));
        }
        std::suspend_never initial_suspend() noexcept { return {}; }
        auto final_suspend() noexcept {
            struct ResumeContinuation {
                bool await_ready() noexcept { return false; }
                std::coroutine_handle<> await_suspend(
                    std::coroutine_handle<promise_type> finished) noexcept {
                    const auto next = finished.promise().continuation;
                    return next ? next : std::noop_coroutine();
                }
                void await_resume() noexcept {}
            };
            return ResumeContinuation{};
        }
        void return_void() noexcept {}
        void unhandled_exception() noexcept { std::terminate(); }
    };

    OwnedTask(OwnedTask&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
    OwnedTask& operator=(OwnedTask&& other) noexcept {
        if (this != &other) {
            reset();
            handle_ = std::exchange(other.handle_, nullptr);
        }
        return *this;
    }
    OwnedTask(const OwnedTask&) = delete;
    OwnedTask& operator=(const OwnedTask&) = delete;
    ~OwnedTask() { reset(); }

    bool isDone() const noexcept { return !handle_ || handle_.done(); }

    struct Awaiter {
        std::coroutine_handle<promise_type> handle;

        bool await_ready() const noexcept { return !handle || handle.done(); }
        void await_suspend(std::coroutine_handle<> awaiting) noexcept {
            handle.promise().continuation = awaiting;
        }
        void await_resume() const noexcept {}
    };
    Awaiter operator co_await() const noexcept { return Awaiter{handle_}; }

  private:
    explicit OwnedTask(std::coroutine_handle<promise_type> handle) noexcept : handle_(handle) {}
    void reset() noexcept {
        if (handle_) {
            std::exchange(handle_, nullptr).destroy();
        }
    }

    std::coroutine_handle<promise_type> handle_;
};

}  // namespace kelvo::app
