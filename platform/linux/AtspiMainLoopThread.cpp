#include <atspi/atspi.h>

#include "platform/linux/AtspiMainLoopThread.h"

#include <future>
#include <memory>
#include <utility>

namespace kelvo::platform {

namespace {

gboolean runPostedWork(gpointer data) {
    (*static_cast<std::function<void()>*>(data))();
    return G_SOURCE_REMOVE;
}

void deletePostedWork(gpointer data) {
    delete static_cast<std::function<void()>*>(data);
}

}  // namespace

AtspiMainLoopThread::AtspiMainLoopThread(std::chrono::milliseconds callTimeout,
                                         std::chrono::milliseconds startupTimeout)
    : context_(g_main_context_new()),
      loop_(g_main_loop_new(context_, FALSE)),
      callTimeout_(callTimeout),
      startupTimeout_(startupTimeout) {
    std::promise<void> running;
    std::future<void> started = running.get_future();
    // The thread holds references of its own, so it can finish after this object when it was
    // destroyed from the loop thread.
    thread_ = std::thread([context = g_main_context_ref(context_), loop = g_main_loop_ref(loop_),
                           running = std::move(running)]() mutable {
        g_main_context_push_thread_default(context);
        running.set_value();
        g_main_loop_run(loop);
        g_main_context_pop_thread_default(context);
        g_main_loop_unref(loop);
        g_main_context_unref(context);
    });
    started.wait();
}

AtspiMainLoopThread::~AtspiMainLoopThread() {
    // Queued behind the work already posted, which therefore still runs.
    GMainLoop* loop = loop_;
    post([loop] { g_main_loop_quit(loop); });
    if (isLoopThread()) {
        thread_.detach();
    } else {
        thread_.join();
    }
    g_main_loop_unref(loop_);
    g_main_context_unref(context_);
}

void AtspiMainLoopThread::post(std::function<void()> work) {
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, runPostedWork, new std::function<void()>(std::move(work)),
                          deletePostedWork);
    g_source_attach(source, context_);
    g_source_unref(source);
}

bool AtspiMainLoopThread::isLoopThread() const noexcept {
    return std::this_thread::get_id() == thread_.get_id();
}

bool AtspiMainLoopThread::ensureConnected() {
    if (connected_) {
        return true;
    }
    const int status = atspi_init();
    if (status != 0 && status != 1) {
        // atspi_init() marks itself done even when the bus was unreachable; undo that so the
        // next request tries again.
        atspi_exit();
        return false;
    }
    // atspi_init() attaches the bus connection to the process's default context, which is the
    // Qt main thread's: two threads would then dispatch libatspi's messages (and deadlock).
    // Moving it, and every connection made later, to this thread's context must come after.
    atspi_set_main_context(context_);
    atspi_set_timeout(static_cast<int>(callTimeout_.count()),
                      static_cast<int>(startupTimeout_.count()));
    connected_ = true;
    return true;
}

}  // namespace kelvo::platform
