#pragma once

// runOnAtspiThread() runs work on the libatspi thread; the future finishes there with work's
// result. A plain function rather than a coroutine, so the work (and the references it holds) is
// never a coroutine parameter; callers keep the future in a named variable and await that.

#include <QFuture>
#include <QPromise>
#include <memory>
#include <utility>

#include "platform/linux/AtspiMainLoopThread.h"

namespace kelvo::platform {

template <typename Result, typename Work>
QFuture<Result> runOnAtspiThread(AtspiMainLoopThread& thread, Work work) {
    auto promise = std::make_shared<QPromise<Result>>();
    QFuture<Result> future = promise->future();
    promise->start();
    thread.post([promise, work = std::move(work)]() mutable {
        promise->addResult(work());
        promise->finish();
    });
    return future;
}

}  // namespace kelvo::platform
