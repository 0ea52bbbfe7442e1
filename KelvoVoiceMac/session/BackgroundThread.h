#pragma once

// runOnBackgroundThread() runs blocking work (engine start-up, result readers, audio feeders) on a
// thread of its own and returns a QFuture that finishes when the work returns, so a main-thread
// task can `co_await` it through QCoro. A dedicated thread rather than Qt's global pool: these
// loops block for a whole dictation, and the pool of a 2-core machine has two threads. The work
// must not throw (catch and report inside it). The thread is detached: it may outlive the caller,
// so the work holds what it needs by value or weakly.

#include <QFuture>

#include <functional>

namespace kelvo::app {

QFuture<void> runOnBackgroundThread(std::function<void()> work);

}  // namespace kelvo::app
