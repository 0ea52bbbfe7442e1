#include <atspi/atspi.h>

#include "platform/linux/AtspiMainLoopThread.h"

#include <future>
#include <utility>

namespace kelvo::platform {

// Shared by the object, the thread and every posted piece of work, so work still queued when the
// object is destroyed from the loop thread finds it alive.
struct AtspiMainLoopThread::LoopState {
    LoopState(std::chrono::milliseconds call, std::chrono::milliseconds startup)
        : context(g_main_context_new()),
          spareContext(g_main_context_new()),
          callTimeout(call),
          startupTimeout(startup) {}
    ~LoopState() {
        // Once connected, libatspi keeps pointing at both contexts (it has no call to let go):
        // they stay alive for it, never iterated again.
        if (!connected) {
            g_main_context_unref(spareContext);
            g_main_context_unref(context);
        }
    }
    LoopState(const LoopState&) = delete;
    LoopState& operator=(const LoopState&) = delete;

    // atspi_set_main_context() moves every connection it knows to the context it is given, but
    // does nothing when that context is already the current one: a detour through a context
    // nobody iterates makes it move them home. Both calls happen here, between dispatches, so
    // no message is read meanwhile.
    void rehomeConnections() {
        if (connected) {
            atspi_set_main_context(spareContext);
            atspi_set_main_context(context);
        }
    }

    GMainContext* context;
    GMainContext* spareContext;
    std::chrono::milliseconds callTimeout;
    std::chrono::milliseconds startupTimeout;
    // Loop thread only.
    bool connected = false;
    bool quit = false;
};

namespace {

struct PostedWork {
    std::shared_ptr<void> state;  // keeps the loop state alive while queued
    std::function<void()> work;
};

gboolean runPostedWork(gpointer data) {
    static_cast<PostedWork*>(data)->work();
    return G_SOURCE_REMOVE;
}

void deletePostedWork(gpointer data) {
    delete static_cast<PostedWork*>(data);
}

}  // namespace

AtspiMainLoopThread::AtspiMainLoopThread(std::chrono::milliseconds callTimeout,
                                         std::chrono::milliseconds startupTimeout)
    : state_(std::make_shared<LoopState>(callTimeout, startupTimeout)) {
    std::promise<void> running;
    std::future<void> started = running.get_future();
    thread_ = std::thread([state = state_, running = std::move(running)]() mutable {
        g_main_context_push_thread_default(state->context);
        running.set_value();
        // Each dispatch may have opened a connection on the default context (a reply with a
        // peer-to-peer address): bring it home before the main thread starts reading it. Only
        // after a dispatch: moving the connections attaches sources, which wakes this context
        // once more, and rehoming after that empty wake-up too would spin here for ever.
        while (!state->quit) {
            if (g_main_context_iteration(state->context, TRUE)) {
                state->rehomeConnections();
            }
        }
        g_main_context_pop_thread_default(state->context);
    });
    started.wait();
}

AtspiMainLoopThread::~AtspiMainLoopThread() {
    // Queued behind the work already posted, which therefore still runs.
    LoopState* state = state_.get();
    post([state] { state->quit = true; });
    if (isLoopThread()) {
        thread_.detach();
    } else {
        thread_.join();
    }
}

void AtspiMainLoopThread::post(std::function<void()> work) {
    auto* posted = new PostedWork{state_, std::move(work)};
    GSource* source = g_idle_source_new();
    g_source_set_priority(source, G_PRIORITY_DEFAULT);
    g_source_set_callback(source, runPostedWork, posted, deletePostedWork);
    g_source_attach(source, state_->context);
    g_source_unref(source);
}

bool AtspiMainLoopThread::isLoopThread() const noexcept {
    return std::this_thread::get_id() == thread_.get_id();
}

bool AtspiMainLoopThread::ensureConnected() {
    if (state_->connected) {
        return true;
    }
    const int status = atspi_init();
    if (status != 0 && status != 1) {
        // atspi_init() marks itself done even when the bus was unreachable; undo that so the
        // next request tries again.
        atspi_exit();
        return false;
    }
    // atspi_init() attached the bus connection to the default context, the Qt main thread's.
    state_->connected = true;
    state_->rehomeConnections();
    atspi_set_timeout(static_cast<int>(state_->callTimeout.count()),
                      static_cast<int>(state_->startupTimeout.count()));
    return true;
}

}  // namespace kelvo::platform
