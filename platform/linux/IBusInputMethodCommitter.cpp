#include "platform/linux/IBusInputMethodCommitter.h"

#include <ibus.h>

#include <QAbstractEventDispatcher>
#include <QCoroFuture>
#include <QFuture>
#include <QPromise>
#include <QTimer>
#include <cstdint>
#include <functional>

namespace kelvo::platform {

namespace {

constexpr int timeoutMilliseconds = static_cast<int>(IBusInputMethodCommitter::callTimeout.count());

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

std::string lastPathSegment(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

}  // namespace

bool IBusInputMethodCommitter::isForSecrets(unsigned purpose) {
    return purpose == IBUS_INPUT_PURPOSE_PASSWORD || purpose == IBUS_INPUT_PURPOSE_PIN;
}

struct IBusInputMethodCommitter::Connection {
    IBusBus* bus = nullptr;
    // Our panel at the extension's object path while we hold the name. The daemon asks its
    // previous extension to destroy itself whenever the name changes hands, also when that was
    // us: the request reaches our new panel after we have taken the name back and before the
    // focus report that follows, so a panel of the library's own kind would vanish then and the
    // report, and the commit, with it. Ours ignores the request; it only means the reports stop
    // until the name is ours again.
    IBusPanelService* service = nullptr;
    GDBusConnection* serviceConnection = nullptr;

    // The daemon's latest report: the focused input context and its field's purpose.
    std::string focusedPath;
    guint purpose = IBUS_INPUT_PURPOSE_FREE_FORM;
    std::uint64_t reports = 0;
    // Whether the daemon's extension is still us, so that the last report is the current focus.
    bool reportsCurrent = false;
    std::shared_ptr<QPromise<bool>> reportWaiter;

    QTimer releaseTimer;
    bool holdsName = false;

    static void (*libraryMethodCall)(IBusService*, GDBusConnection*, const gchar*, const gchar*,
                                     const gchar*, const gchar*, GVariant*, GDBusMethodInvocation*);

    static void serviceMethodCall(IBusService* service, GDBusConnection* connection,
                                  const gchar* sender, const gchar* objectPath,
                                  const gchar* interfaceName, const gchar* methodName,
                                  GVariant* parameters, GDBusMethodInvocation* invocation) {
        if (g_strcmp0(interfaceName, "org.freedesktop.IBus.Service") == 0 &&
            g_strcmp0(methodName, "Destroy") == 0) {
            g_dbus_method_invocation_return_value(invocation, nullptr);
            if (auto* self = static_cast<Connection*>(g_object_get_data(G_OBJECT(service), key))) {
                self->reportsCurrent = false;
            }
            return;
        }
        libraryMethodCall(service, connection, sender, objectPath, interfaceName, methodName,
                          parameters, invocation);
    }

    static GType panelType() {
        static const GType type = [] {
            GTypeQuery query;
            g_type_query(IBUS_TYPE_PANEL_SERVICE, &query);
            return g_type_register_static_simple(
                IBUS_TYPE_PANEL_SERVICE, g_intern_static_string("KelvoVoicePanelExtension"),
                query.class_size,
                [](gpointer typeClass, gpointer) {
                    IBusServiceClass* serviceClass = IBUS_SERVICE_CLASS(typeClass);
                    libraryMethodCall = serviceClass->service_method_call;
                    serviceClass->service_method_call = &serviceMethodCall;
                },
                query.instance_size, nullptr, static_cast<GTypeFlags>(0));
        }();
        return type;
    }

    static void onFocusIn(IBusPanelService*, const gchar* path, gpointer data) {
        static_cast<Connection*>(data)->focusedPath = path;
    }
    static void onFocusOut(IBusPanelService*, const gchar*, gpointer data) {
        static_cast<Connection*>(data)->focusedPath.clear();
    }
    // The daemon sends the purpose right after each FocusIn and on every change: a report is
    // complete here.
    static void onContentType(IBusPanelService*, guint purpose, guint, gpointer data) {
        auto* self = static_cast<Connection*>(data);
        self->purpose = purpose;
        ++self->reports;
        self->reportsCurrent = true;
        self->settleWaiter(true);
    }

    void settleWaiter(bool reported) {
        if (reportWaiter) {
            reportWaiter->addResult(reported);
            reportWaiter->finish();
            reportWaiter.reset();
        }
    }

    // A panel exported on the bus's present connection (a new one after the daemon restarted).
    void ensureService() {
        GDBusConnection* current = ibus_bus_get_connection(bus);
        if (service && serviceConnection == current) {
            return;
        }
        dropService();
        service = static_cast<IBusPanelService*>(g_object_new(panelType(), "object-path",
                                                              IBUS_PATH_PANEL_EXTENSION_EMOJI,
                                                              "connection", current, nullptr));
        g_object_ref_sink(service);
        g_object_set_data(G_OBJECT(service), key, this);
        g_signal_connect(service, "focus-in", G_CALLBACK(&onFocusIn), this);
        g_signal_connect(service, "focus-out", G_CALLBACK(&onFocusOut), this);
        g_signal_connect(service, "set-content-type", G_CALLBACK(&onContentType), this);
        serviceConnection = static_cast<GDBusConnection*>(g_object_ref(current));
        holdsName = false;
        reportsCurrent = false;
        focusedPath.clear();
    }

    void dropService() {
        if (service) {
            g_signal_handlers_disconnect_by_data(service, this);
            g_object_set_data(G_OBJECT(service), key, nullptr);
            ibus_object_destroy(IBUS_OBJECT(service));
            g_object_unref(service);
            service = nullptr;
        }
        if (serviceConnection) {
            g_object_unref(serviceConnection);
            serviceConnection = nullptr;
        }
        reportsCurrent = false;
        focusedPath.clear();
    }

    // Gives the name back to the emoji picker, if it waits for it, and takes the panel down: the
    // daemon would otherwise go on reporting every focus change in the session to us.
    void release() {
        if (holdsName && bus && ibus_bus_is_connected(bus)) {
            ibus_bus_release_name_async(bus, IBUS_SERVICE_PANEL_EXTENSION_EMOJI,
                                        timeoutMilliseconds, nullptr, nullptr, nullptr);
        }
        holdsName = false;
        settleWaiter(false);
        dropService();
    }

    ~Connection() {
        releaseTimer.stop();
        if (holdsName && bus && ibus_bus_is_connected(bus)) {
            ibus_bus_release_name(bus, IBUS_SERVICE_PANEL_EXTENSION_EMOJI);
        }
        settleWaiter(false);
        dropService();
        if (bus) {
            g_object_unref(bus);
        }
    }

    static constexpr char key[] = "kelvo-ibus-connection";
};

void (*IBusInputMethodCommitter::Connection::libraryMethodCall)(IBusService*, GDBusConnection*,
                                                                const gchar*, const gchar*,
                                                                const gchar*, const gchar*,
                                                                GVariant*,
                                                                GDBusMethodInvocation*) = nullptr;

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

QCoro::Task<InputMethodCommitter::Result> IBusInputMethodCommitter::takeNameAndReadFocus() {
    if (std::string reason = unavailableReason(); !reason.empty()) {
        co_return Result{Outcome::unavailable, std::move(reason)};
    }
    // Kept alive across the waits even if the committer goes meanwhile.
    std::shared_ptr<Connection> connection = connection_;
    IBusBus* bus = connection->bus;
    connection->releaseTimer.stop();
    connection->ensureService();
    const std::uint64_t reportsBefore = connection->reports;
    AsyncResult requested = co_await runAsync([bus](GAsyncReadyCallback done, gpointer data) {
        ibus_bus_request_name_async(
            bus, IBUS_SERVICE_PANEL_EXTENSION_EMOJI,
            IBUS_BUS_NAME_FLAG_REPLACE_EXISTING | IBUS_BUS_NAME_FLAG_ALLOW_REPLACEMENT,
            timeoutMilliseconds, nullptr, done, data);
    });
    GError* error = nullptr;
    guint reply = ibus_bus_request_name_async_finish(bus, requested.get(), &error);
    if (error) {
        connection->release();
        co_return Result{Outcome::unavailable,
                         "cannot take the panel extension name: " + takeErrorMessage(error)};
    }
    constexpr guint primaryOwner = 1;
    constexpr guint alreadyOwner = 4;
    if (reply != primaryOwner && reply != alreadyOwner) {
        connection->holdsName = true;  // queued behind the owner: leave the queue
        connection->release();
        co_return Result{Outcome::unavailable,
                         "the panel extension name is held by another client"};
    }
    if (!connection->service || connection->serviceConnection != ibus_bus_get_connection(bus)) {
        co_return Result{Outcome::unavailable, "the connection to ibus-daemon went"};
    }
    connection->holdsName = true;
    // On taking the name the daemon reports its focus at once (it may already have arrived);
    // while we held it, every change came as it happened.
    if ((reply == primaryOwner || !connection->reportsCurrent) &&
        connection->reports == reportsBefore) {
        auto waiter = std::make_shared<QPromise<bool>>();
        waiter->start();
        connection->settleWaiter(false);
        connection->reportWaiter = waiter;
        QTimer::singleShot(callTimeout, [waiter, weak = std::weak_ptr<Connection>(connection)] {
            if (auto connection = weak.lock(); connection && connection->reportWaiter == waiter) {
                connection->settleWaiter(false);
            }
        });
        if (!co_await waiter->future()) {
            connection->release();
            co_return Result{Outcome::unavailable, "ibus-daemon did not report its focus within " +
                                                       std::to_string(callTimeout.count()) + " ms"};
        }
    }
    const std::string path = connection->focusedPath;
    const bool refusesSecrets = isForSecrets(connection->purpose);
    if (path.empty() || path == daemonOwnInputContextPath || refusesSecrets) {
        // Nothing goes out now, so the name goes back at once: the next path is about to run, and
        // the accessibility interface shares this main loop (its library cannot keep all of its
        // connections off it), so our traffic should be over before it starts.
        connection->releaseTimer.stop();
        connection->release();
        if (refusesSecrets && !path.empty() && path != daemonOwnInputContextPath) {
            co_return Result{Outcome::passwordField, lastPathSegment(path) + ", a password field"};
        }
        co_return Result{Outcome::noFocusedInputContext, "no focused input context"};
    }
    connection->releaseTimer.start();
    co_return Result{Outcome::delivered, lastPathSegment(path)};
}

QCoro::Task<InputMethodCommitter::Result> IBusInputMethodCommitter::commit(std::string text) {
    std::shared_ptr<Connection> connection = connection_;
    Result focus = co_await takeNameAndReadFocus();
    if (focus.outcome == Outcome::passwordField) {
        co_return Result{Outcome::passwordField, "the focused field is a password field"};
    }
    if (focus.outcome != Outcome::delivered) {
        co_return focus;
    }
    if (!ibus_bus_is_connected(connection->bus)) {
        co_return Result{Outcome::unavailable, "the connection to ibus-daemon went"};
    }
    // The name is given back nameHoldTime after this, not at once: with the release right behind
    // the signal, a commit reported sent sometimes never arrived in our runs under load (the
    // daemon can drop its extension proxy before that proxy has handled the signal).
    ibus_panel_service_commit_text(connection->service, ibus_text_new_from_string(text.c_str()));
    co_return focus;
}

QCoro::Task<InputMethodCommitter::Result> IBusInputMethodCommitter::probe() {
    Result focus = co_await takeNameAndReadFocus();
    if (focus.outcome != Outcome::unavailable) {
        focus.detail = "ready; focus: " + focus.detail;
    }
    co_return focus;
}

}  // namespace kelvo::platform
