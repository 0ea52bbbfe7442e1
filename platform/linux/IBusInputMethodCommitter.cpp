#include "platform/linux/IBusInputMethodCommitter.h"

#include <ibus.h>

#include <QAbstractEventDispatcher>
#include <QCoroFuture>
#include <QFuture>
#include <QPromise>
#include <QTimer>
#include <cstring>
#include <functional>

namespace kelvo::platform {

namespace {

constexpr int timeoutMilliseconds = static_cast<int>(IBusInputMethodCommitter::callTimeout.count());
// The daemon's error text when nothing has the focus (ibusimpl.c, CurrentInputContext).
constexpr char noFocusedInputContextError[] = "No focused input context";

// ibus-daemon makes one input context of its own before any client's, "fake", and calls it the
// focused one whenever no client context has the focus (it keeps the global engine's state
// there). It belongs to no client, so a commit into it is lost: for us it means no focus. Context
// paths are numbered from 1 in order of creation (ibusimpl.c, bus_ibus_impl_init).
constexpr char daemonOwnInputContextPath[] = "/org/freedesktop/IBus/InputContext_1";

using AsyncResult = std::shared_ptr<GAsyncResult>;

void finishAsync(GObject*, GAsyncResult* result, gpointer data) {
    std::unique_ptr<QPromise<AsyncResult>> promise(static_cast<QPromise<AsyncResult>*>(data));
    g_object_ref(result);
    promise->addResult(AsyncResult(result, [](GAsyncResult* r) { g_object_unref(r); }));
    promise->finish();
}

// Starts a GLib asynchronous call and hands back its result as a future, which the Qt main loop
// resolves when GLib dispatches the callback on the main context.
QFuture<AsyncResult> runAsync(const std::function<void(GAsyncReadyCallback, gpointer)>& start) {
    auto* promise = new QPromise<AsyncResult>();
    QFuture<AsyncResult> future = promise->future();
    promise->start();
    start(&finishAsync, promise);
    return future;
}

std::string takeErrorMessage(GError* error) {
    std::string message = error ? error->message : "unknown error";
    g_clear_error(&error);
    return message;
}

// A panel service at the emoji extension's object path, exported on the daemon connection while
// it lives. The daemon only listens to the extension's path for CommitText.
class PanelExtensionService {
  public:
    explicit PanelExtensionService(GDBusConnection* connection)
        : service_(static_cast<IBusPanelService*>(
              g_object_new(IBUS_TYPE_PANEL_SERVICE, "object-path", IBUS_PATH_PANEL_EXTENSION_EMOJI,
                           "connection", connection, nullptr))) {
        g_object_ref_sink(service_);
    }
    ~PanelExtensionService() {
        // The daemon may have destroyed it already when the name went; destroying twice is safe.
        ibus_object_destroy(IBUS_OBJECT(service_));
        g_object_unref(service_);
    }
    PanelExtensionService(const PanelExtensionService&) = delete;
    PanelExtensionService& operator=(const PanelExtensionService&) = delete;

    void commitText(const std::string& text) {
        ibus_panel_service_commit_text(service_, ibus_text_new_from_string(text.c_str()));
    }

  private:
    IBusPanelService* service_;
};

}  // namespace

struct IBusInputMethodCommitter::Connection {
    IBusBus* bus = nullptr;
    // Exported while we hold the extension name, that is from a commit until releaseTimer fires.
    std::unique_ptr<PanelExtensionService> service;
    QTimer releaseTimer;

    void release() {
        if (service && bus && ibus_bus_is_connected(bus)) {
            ibus_bus_release_name_async(bus, IBUS_SERVICE_PANEL_EXTENSION_EMOJI,
                                        timeoutMilliseconds, nullptr, nullptr, nullptr);
        }
        service.reset();
    }
    ~Connection() {
        releaseTimer.stop();
        if (service && bus && ibus_bus_is_connected(bus)) {
            ibus_bus_release_name(bus, IBUS_SERVICE_PANEL_EXTENSION_EMOJI);
        }
        service.reset();
        if (bus) {
            g_object_unref(bus);
        }
    }
};

IBusInputMethodCommitter::IBusInputMethodCommitter() : connection_(std::make_shared<Connection>()) {
    ibus_init();
    connection_->bus = ibus_bus_new_async();
    connection_->releaseTimer.setSingleShot(true);
    connection_->releaseTimer.setInterval(nameHoldTime);
    Connection* connection = connection_.get();
    QObject::connect(&connection->releaseTimer, &QTimer::timeout,
                     [connection] { connection->release(); });
}

IBusInputMethodCommitter::~IBusInputMethodCommitter() = default;

std::string IBusInputMethodCommitter::unavailableReason() const {
    const QAbstractEventDispatcher* dispatcher = QAbstractEventDispatcher::instance();
    if (!dispatcher || !dispatcher->inherits("QEventDispatcherGlib")) {
        return "the Qt main loop does not run GLib (QT_NO_GLIB set?)";
    }
    if (!connection_->bus || !ibus_bus_is_connected(connection_->bus)) {
        return "ibus-daemon is not running";
    }
    return {};
}

QCoro::Task<bool> IBusInputMethodCommitter::hasFocusedInputContext(std::string* reason) {
    IBusBus* bus = connection_->bus;
    AsyncResult result = co_await runAsync([bus](GAsyncReadyCallback done, gpointer data) {
        ibus_bus_current_input_context_async(bus, timeoutMilliseconds, nullptr, done, data);
    });
    GError* error = nullptr;
    gchar* path = ibus_bus_current_input_context_async_finish(bus, result.get(), &error);
    if (!path) {
        *reason = takeErrorMessage(error);
        co_return false;
    }
    const bool isClients = std::strcmp(path, daemonOwnInputContextPath) != 0;
    *reason = isClients ? path : noFocusedInputContextError;
    g_free(path);
    co_return isClients;
}

QCoro::Task<InputMethodCommitter::Result> IBusInputMethodCommitter::commit(std::string text) {
    if (std::string reason = unavailableReason(); !reason.empty()) {
        co_return Result{Outcome::unavailable, std::move(reason)};
    }
    std::string focus;
    if (!co_await hasFocusedInputContext(&focus)) {
        if (focus.find(noFocusedInputContextError) != std::string::npos) {
            co_return Result{Outcome::noFocusedInputContext, "no focused input context"};
        }
        co_return Result{Outcome::unavailable, std::move(focus)};
    }
    // The bus may have gone while we waited.
    if (std::string reason = unavailableReason(); !reason.empty()) {
        co_return Result{Outcome::unavailable, std::move(reason)};
    }

    // Kept alive across the waits even if the committer's connection is replaced meanwhile.
    std::shared_ptr<Connection> connection = connection_;
    IBusBus* bus = connection->bus;
    connection->releaseTimer.stop();
    // A fresh service each time: the daemon destroys the one it knew when the name goes (to the
    // emoji picker, say) and nothing tells us.
    connection->service.reset();
    connection->service = std::make_unique<PanelExtensionService>(ibus_bus_get_connection(bus));
    AsyncResult requested = co_await runAsync([bus](GAsyncReadyCallback done, gpointer data) {
        ibus_bus_request_name_async(
            bus, IBUS_SERVICE_PANEL_EXTENSION_EMOJI,
            IBUS_BUS_NAME_FLAG_REPLACE_EXISTING | IBUS_BUS_NAME_FLAG_ALLOW_REPLACEMENT,
            timeoutMilliseconds, nullptr, done, data);
    });
    GError* error = nullptr;
    guint reply = ibus_bus_request_name_async_finish(bus, requested.get(), &error);
    if (error) {
        connection->service.reset();
        co_return Result{Outcome::unavailable,
                         "cannot take the panel extension name: " + takeErrorMessage(error)};
    }
    constexpr guint primaryOwner = 1;
    constexpr guint alreadyOwner = 4;
    if (reply != primaryOwner && reply != alreadyOwner) {
        connection->service.reset();
        co_return Result{Outcome::unavailable,
                         "the panel extension name is held by another client"};
    }
    if (!connection->service) {
        co_return Result{Outcome::unavailable, "the connection to ibus-daemon went"};
    }
    connection->service->commitText(text);
    // The name is given back a little later, not at once: with the release right behind the
    // signal, a commit reported sent sometimes never arrived in our runs under load (the daemon
    // can drop its extension proxy before that proxy has handled the signal).
    connection->releaseTimer.start();
    co_return Result{Outcome::delivered, focus.substr(focus.rfind('/') + 1)};
}

QCoro::Task<InputMethodCommitter::Result> IBusInputMethodCommitter::probe() {
    if (std::string reason = unavailableReason(); !reason.empty()) {
        co_return Result{Outcome::unavailable, std::move(reason)};
    }
    std::string focus;
    if (co_await hasFocusedInputContext(&focus)) {
        co_return Result{Outcome::delivered, "ready; focus: " + focus.substr(focus.rfind('/') + 1)};
    }
    if (focus.find(noFocusedInputContextError) != std::string::npos) {
        co_return Result{Outcome::noFocusedInputContext, "ready; no input context has the focus"};
    }
    co_return Result{Outcome::unavailable, std::move(focus)};
}

}  // namespace kelvo::platform
