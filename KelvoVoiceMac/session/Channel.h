#pragma once

// Channel<T> is the closeable stream that carries audio buffers from the capture thread to the
// recogniser and recognition events from the recogniser to the main thread. Many writers, one
// reader. send() and close() may be called from any thread and never block for long: a send after
// close is ignored, close is idempotent. The reader drains everything that was sent before close
// and then sees the end (std::nullopt). Share it as std::shared_ptr<Channel<T>>; both ends hold
// the same object. It is unbounded unless made with a capacity: send() then waits while that many
// values are buffered, so that a writer which can outrun its reader (a file being decoded) is held
// back instead of filling memory; close() releases it (its value is dropped). Only a writer on a
// thread of its own may use a channel with a capacity.
//
// The reader end comes in two forms; use one of them per channel, from one thread at a time:
// - receive() blocks the calling thread; for worker threads (recogniser input, result readers).
// - `co_await channel.next()` suspends a coroutine (a QCoro::Task on the main thread, or any thread
//   that runs a Qt event loop) and resumes it on that same thread, posted through its event loop,
//   when a value or the end arrives. The resumption is never run inline inside send() or close(),
//   so a writer on the reader's thread finishes its own step first. Destroying a suspended reader
//   coroutine withdraws its wait safely.

#include <QObject>

#include <condition_variable>
#include <coroutine>
#include <deque>
#include <limits>
#include <memory>
#include <mutex>
#include <optional>
#include <utility>

namespace kelvo::app {

template <typename T>
class Channel {
  public:
    class NextAwaiter;

    Channel() = default;
    explicit Channel(std::size_t capacity) : capacity_(capacity) {}
    Channel(const Channel&) = delete;
    Channel& operator=(const Channel&) = delete;

    // Appends a value for the reader, waiting for room in a channel with a capacity; ignored once
    // the channel is closed.
    void send(T value) {
        std::unique_lock lock(mutex_);
        writable_.wait(lock, [this] { return buffered_.size() < capacity_ || closed_; });
        if (closed_) {
            return;
        }
        buffered_.push_back(std::move(value));
        wakeReaderLocked();
    }

    // Ends the stream: the reader sees what was already buffered, then the end.
    void close() {
        std::lock_guard lock(mutex_);
        if (closed_) {
            return;
        }
        closed_ = true;
        wakeReaderLocked();
        writable_.notify_all();
    }

    bool isClosed() const {
        std::lock_guard lock(mutex_);
        return closed_;
    }

    std::size_t bufferedCount() const {
        std::lock_guard lock(mutex_);
        return buffered_.size();
    }

    // Blocks until a value is available (returns it) or the channel is closed and drained
    // (returns std::nullopt).
    std::optional<T> receive() {
        std::unique_lock lock(mutex_);
        readable_.wait(lock, [this] { return !buffered_.empty() || closed_; });
        return takeLocked();
    }

    // Returns a buffered value at once, or std::nullopt when nothing is buffered right now (which
    // does not mean the end; see isClosed()).
    std::optional<T> tryReceive() {
        std::lock_guard lock(mutex_);
        return takeLocked();
    }

    // Awaitable form of receive() for coroutines; see the contract above.
    NextAwaiter next() { return NextAwaiter(*this); }

    class NextAwaiter {
      public:
        explicit NextAwaiter(Channel& channel) : channel_(channel) {}
        NextAwaiter(const NextAwaiter&) = delete;
        NextAwaiter& operator=(const NextAwaiter&) = delete;
        NextAwaiter(NextAwaiter&& other) noexcept : channel_(other.channel_) {}

        ~NextAwaiter() {
            std::lock_guard lock(channel_.mutex_);
            if (channel_.waiter_ == this) {
                channel_.waiter_ = nullptr;
            }
        }

        bool await_ready() {
            std::lock_guard lock(channel_.mutex_);
            return !channel_.buffered_.empty() || channel_.closed_;
        }

        bool await_suspend(std::coroutine_handle<> awaiting) {
            // The context object lives on the suspending thread, so a resumption posted to it runs
            // there; it dies with this awaiter, which drops a resumption still in flight.
            context_ = std::make_unique<QObject>();
            std::lock_guard lock(channel_.mutex_);
            if (!channel_.buffered_.empty() || channel_.closed_) {
                return false;
            }
            awaiting_ = awaiting;
            channel_.waiter_ = this;
            return true;
        }

        std::optional<T> await_resume() {
            std::lock_guard lock(channel_.mutex_);
            return channel_.takeLocked();
        }

      private:
        friend class Channel;

        // Called with the channel's mutex held; posting an event is thread-safe and quick.
        void resumeLater() {
            auto awaiting = awaiting_;
            QMetaObject::invokeMethod(
                context_.get(), [awaiting] { awaiting.resume(); }, Qt::QueuedConnection);
        }

        Channel& channel_;
        std::unique_ptr<QObject> context_;
        std::coroutine_handle<> awaiting_;
    };

  private:
    void wakeReaderLocked() {
        readable_.notify_one();
        if (waiter_ != nullptr) {
            auto* waiter = std::exchange(waiter_, nullptr);
            waiter->resumeLater();
        }
    }

    std::optional<T> takeLocked() {
        if (buffered_.empty()) {
            return std::nullopt;
        }
        std::optional<T> value(std::move(buffered_.front()));
        buffered_.pop_front();
        writable_.notify_one();
        return value;
    }

    const std::size_t capacity_ = std::numeric_limits<std::size_t>::max();
    mutable std::mutex mutex_;
    std::condition_variable readable_;
    std::condition_variable writable_;
    std::deque<T> buffered_;
    bool closed_ = false;
    NextAwaiter* waiter_ = nullptr;
};

}  // namespace kelvo::app
