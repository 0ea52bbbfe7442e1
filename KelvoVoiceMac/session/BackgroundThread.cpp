#include "KelvoVoiceMac/session/BackgroundThread.h"

#include <QPromise>

#include <memory>
#include <thread>

namespace kelvo::app {

QFuture<void> runOnBackgroundThread(std::function<void()> work) {
    auto promise = std::make_shared<QPromise<void>>();
    QFuture<void> future = promise->future();
    promise->start();
    std::thread([promise, work = std::move(work)] {
        work();
        promise->finish();
    }).detach();
    return future;
}

}  // namespace kelvo::app
