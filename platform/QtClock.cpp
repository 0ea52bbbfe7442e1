#include "platform/QtClock.h"

#include <QCoreApplication>
#include <QMetaObject>
#include <QObject>
#include <QTimer>
#include <chrono>

namespace kelvo::platform {

QtClock::QtClock() : context_(std::make_unique<QObject>()) {
    if (auto* app = QCoreApplication::instance()) {
        context_->moveToThread(app->thread());
    }
}

QtClock::~QtClock() = default;

Clock::TimePoint QtClock::now() const {
    return std::chrono::steady_clock::now();
}

std::uint64_t QtClock::schedule(Duration delay, std::function<void()> callback) {
    std::uint64_t id = 0;
    {
        std::scoped_lock lock(mutex_);
        id = nextId_++;
        pending_.emplace(id, std::move(callback));
    }
    // Round up so a 0.5 ms wait is never turned into "fire now"; Qt timers have ms resolution.
    auto delayMs = std::chrono::ceil<std::chrono::milliseconds>(delay);
    if (delayMs.count() < 0) {
        delayMs = std::chrono::milliseconds(0);
    }
    QObject* context = context_.get();
    // The timer must be created on the context's thread; a queued invocation gets us there from
    // any caller thread, and also guarantees the callback is never run inside schedule().
    QMetaObject::invokeMethod(
        context,
        [this, context, id, delayMs] {
            auto* timer = new QTimer(context);
            timer->setSingleShot(true);
            timer->setTimerType(Qt::PreciseTimer);
            QObject::connect(timer, &QTimer::timeout, context, [this, timer, id] {
                timer->deleteLater();
                fire(id);
            });
            timer->start(delayMs);
        },
        Qt::QueuedConnection);
    return id;
}

void QtClock::cancel(std::uint64_t id) {
    std::scoped_lock lock(mutex_);
    pending_.erase(id);
}

void QtClock::fire(std::uint64_t id) {
    std::function<void()> callback;
    {
        std::scoped_lock lock(mutex_);
        auto it = pending_.find(id);
        if (it == pending_.end()) {
            return;
        }
        callback = std::move(it->second);
        pending_.erase(it);
    }
    callback();
}

}  // namespace kelvo::platform
