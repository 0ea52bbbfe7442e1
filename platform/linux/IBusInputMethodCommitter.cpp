#include "platform/linux/IBusInputMethodCommitter.h"

#include <ibus.h>

#include <QCoroFuture>
#include <QFuture>
#include <QPromise>
#include <cstdint>
#include <functional>
#include <future>
#include <vector>

namespace kelvo::platform {

namespace {

constexpr int timeoutMilliseconds = static_cast<int>(IBusInputMethodCommitter::callTimeout.count());

// ibus-daemon makes one input context of its own before any client's, "fake", and calls it the
// focused one whenever no client context has the focus (it keeps the global engine's state
// there). It belongs to no client, so a commit into it is lost: for us it means no focus. Context
// paths are numbered from 1 in order of creation (ibusimpl.c, bus_ibus_impl_init).
constexpr char daemonOwnInputContextPath[] = "/org/freedesktop/IBus/InputContext_1";

using Result = InputMethodCommitter::Result;
using Outcome = InputMethodCommitter::Outcome;
using Answer = std::shared_ptr<QPromise<Result>>;

std::string takeErrorMessage(GError* error) {
    std::string message = error ? error->message : "unknown error";
    g_clear_error(&error);
    return message;
}

std::string lastPathSegment(const std::string& path) {
    return path.substr(path.rfind('/') + 1);
}

// Runs a std::function once on the context it is attached to.
gboolean runOnce(gpointer data) {
    (*static_cast<std::function<void()>*>(data))();
    return G_SOURCE_REMOVE;
}

void deleteFunction(gpointer data) {
    delete static_cast<std::function<void()>*>(data);
}

GSource* attach(GMainContext* context, GSource* source, std::function<void()> work) {
    g_source_set_callback(source, runOnce, new std::function<void()>(std::move(work)),
                          deleteFunction);
    g_source_attach(source, context);
    return source;
}

void dropSource(GSource*& source) {
    if (source) {
        g_source_destroy(source);
        g_source_unref(source);
        source = nullptr;
    }
}

}  // namespace

bool IBusInputMethodCommitter::isForSecrets(unsigned purpose) {
    return purpose == IBUS_INPUT_PURPOSE_PASSWORD || purpose == IBUS_INPUT_PURPOSE_PIN;
}

// Everything below is touched on the IBus thread only, except `context` (fixed at construction).
struct IBusInputMethodCommitter::Connection {
    GMainContext* context = g_main_context_new();
    bool quit = false;
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
    // Called once with whether a report came (false: none within callTimeout, or superseded).
    std::function<void(bool)> reportWaiter;
    GSource* reportTimeout = nullptr;

    GSource* releaseTimer = nullptr;
    bool holdsName = false;
    // Answers not given yet; given "unavailable" when the thread ends before their reply came.
    std::vector<Answer> unanswered;

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
        dropSource(reportTimeout);
        if (std::function<void(bool)> waiter = std::exchange(reportWaiter, nullptr)) {
            waiter(reported);
        }
    }

    void answer(const Answer& promise, Result result) {
        std::erase(unanswered, promise);
        promise->addResult(std::move(result));
        promise->finish();
    }

    void startReleaseTimer() {
        dropSource(releaseTimer);
        releaseTimer = attach(context, g_timeout_source_new(nameHoldTime.count()), [this] {
            // The source is being dispatched: only our reference goes.
            g_source_unref(std::exchange(releaseTimer, nullptr));
            release();
        });
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
        dropSource(releaseTimer);
        if (holdsName && bus && ibus_bus_is_connected(bus)) {
            ibus_bus_release_name_async(bus, IBUS_SERVICE_PANEL_EXTENSION_EMOJI,
                                        timeoutMilliseconds, nullptr, nullptr, nullptr);
        }
        holdsName = false;
        settleWaiter(false);
        dropService();
    }

    // The last thing the thread does: the name back, the panel down, every open answer given.
    void shutDown() {
        dropSource(releaseTimer);
        if (holdsName && bus && ibus_bus_is_connected(bus)) {
            ibus_bus_release_name(bus, IBUS_SERVICE_PANEL_EXTENSION_EMOJI);
        }
        holdsName = false;
        settleWaiter(false);
        dropService();
        if (bus) {
            g_object_unref(bus);
            bus = nullptr;
        }
        for (const Answer& promise : std::vector<Answer>(unanswered)) {
            answer(promise, Result{Outcome::unavailable, "the committer was shut down"});
        }
        quit = true;
    }

    void request(std::optional<std::string> text, Answer promise);
    void focusKnown(const std::optional<std::string>& text, const Answer& promise);

    static constexpr char key[] = "kelvo-ibus-connection";
};

void (*IBusInputMethodCommitter::Connection::libraryMethodCall)(IBusService*, GDBusConnection*,
                                                                const gchar*, const gchar*,
                                                                const gchar*, const gchar*,
                                                                GVariant*,
                                                                GDBusMethodInvocation*) = nullptr;

void IBusInputMethodCommitter::Connection::request(std::optional<std::string> text,
                                                   Answer promise) {
    if (!bus || !ibus_bus_is_connected(bus)) {
        answer(promise, Result{Outcome::unavailable, "ibus-daemon is not running"});
        return;
    }
    unanswered.push_back(promise);
    dropSource(releaseTimer);
    ensureService();
    struct Pending {
        Connection* connection;
        std::optional<std::string> text;
        Answer promise;
        std::uint64_t reportsBefore;
    };
    auto* pending = new Pending{this, std::move(text), std::move(promise), reports};
    ibus_bus_request_name_async(
        bus, IBUS_SERVICE_PANEL_EXTENSION_EMOJI,
        IBUS_BUS_NAME_FLAG_REPLACE_EXISTING | IBUS_BUS_NAME_FLAG_ALLOW_REPLACEMENT,
        timeoutMilliseconds, nullptr,
        [](GObject*, GAsyncResult* result, gpointer data) {
            std::unique_ptr<Pending> pending(static_cast<Pending*>(data));
            Connection& self = *pending->connection;
            if (self.quit || !self.bus) {
                return;  // answered by shutDown()
            }
            GError* error = nullptr;
            const guint reply = ibus_bus_request_name_async_finish(self.bus, result, &error);
            if (error) {
                self.release();
                self.answer(pending->promise,
                            Result{Outcome::unavailable, "cannot take the panel extension name: " +
                                                             takeErrorMessage(error)});
                return;
            }
            constexpr guint primaryOwner = 1;
            constexpr guint alreadyOwner = 4;
            if (reply != primaryOwner && reply != alreadyOwner) {
                self.holdsName = true;  // queued behind the owner: leave the queue
                self.release();
                self.answer(pending->promise,
                            Result{Outcome::unavailable,
                                   "the panel extension name is held by another client"});
                return;
            }
            if (!self.service || self.serviceConnection != ibus_bus_get_connection(self.bus)) {
                self.answer(pending->promise,
                            Result{Outcome::unavailable, "the connection to ibus-daemon went"});
                return;
            }
            self.holdsName = true;
            // On taking the name the daemon reports its focus at once (it may already have
            // arrived); while we held it, every change came as it happened.
            if ((reply == primaryOwner || !self.reportsCurrent) &&
                self.reports == pending->reportsBefore) {
                self.settleWaiter(false);
                std::shared_ptr<Pending> waiting(pending.release());
                self.reportWaiter = [waiting](bool reported) {
                    Connection& connection = *waiting->connection;
                    if (!reported) {
                        connection.release();
                        connection.answer(waiting->promise,
                                          Result{Outcome::unavailable,
                                                 "ibus-daemon did not report its focus within " +
                                                     std::to_string(callTimeout.count()) + " ms"});
                        return;
                    }
                    connection.focusKnown(waiting->text, waiting->promise);
                };
                self.reportTimeout =
                    attach(self.context, g_timeout_source_new(callTimeout.count()), [&self] {
                        g_source_unref(std::exchange(self.reportTimeout, nullptr));
                        self.settleWaiter(false);
                    });
                return;
            }
            self.focusKnown(pending->text, pending->promise);
        },
        pending);
}

void IBusInputMethodCommitter::Connection::focusKnown(const std::optional<std::string>& text,
                                                      const Answer& promise) {
    const std::string path = focusedPath;
    const bool refusesSecrets = isForSecrets(purpose);
    if (path.empty() || path == daemonOwnInputContextPath || refusesSecrets) {
        // Nothing goes out now, so the name goes back at once: the next path is about to run.
        release();
        if (refusesSecrets && !path.empty() && path != daemonOwnInputContextPath) {
            answer(promise,
                   Result{Outcome::passwordField, lastPathSegment(path) + ", a password field"});
            return;
        }
        answer(promise, Result{Outcome::noFocusedInputContext, "no focused input context"});
        return;
    }
    if (text) {
        if (!ibus_bus_is_connected(bus)) {
            answer(promise, Result{Outcome::unavailable, "the connection to ibus-daemon went"});
            return;
        }
        // The name is given back nameHoldTime after this, not at once: with the release right
        // behind the signal, a commit reported sent sometimes never arrived in our runs under
        // load (the daemon can drop its extension proxy before that proxy has handled the
        // signal).
        ibus_panel_service_commit_text(service, ibus_text_new_from_string(text->c_str()));
    }
    startReleaseTimer();
    answer(promise, Result{Outcome::delivered, lastPathSegment(path)});
}

IBusInputMethodCommitter::IBusInputMethodCommitter() : connection_(std::make_shared<Connection>()) {
    std::promise<void> running;
    std::future<void> started = running.get_future();
    thread_ = std::thread([connection = connection_, running = std::move(running)]() mutable {
        g_main_context_push_thread_default(connection->context);
        // Made here, with this thread's context the default: the bus's connection, its address
        // file watch and the panel we export later all dispatch on it.
        ibus_init();
        connection->bus = ibus_bus_new_async();
        running.set_value();
        while (!connection->quit) {
            g_main_context_iteration(connection->context, TRUE);
        }
        g_main_context_pop_thread_default(connection->context);
    });
    started.wait();
}

IBusInputMethodCommitter::~IBusInputMethodCommitter() {
    Connection* connection = connection_.get();
    g_source_unref(
        attach(connection->context, g_idle_source_new(), [connection] { connection->shutDown(); }));
    thread_.join();
    g_main_context_unref(connection->context);
}

QCoro::Task<InputMethodCommitter::Result> IBusInputMethodCommitter::request(
    std::optional<std::string> text) {
    auto promise = std::make_shared<QPromise<Result>>();
    promise->start();
    QFuture<Result> future = promise->future();
    std::shared_ptr<Connection> connection = connection_;
    g_source_unref(attach(connection->context, g_idle_source_new(),
                          [connection, text = std::move(text), promise]() mutable {
                              connection->request(std::move(text), std::move(promise));
                          }));
    co_return co_await future;
}

QCoro::Task<InputMethodCommitter::Result> IBusInputMethodCommitter::commit(std::string text) {
    Result focus = co_await request(std::move(text));
    if (focus.outcome == Outcome::passwordField) {
        co_return Result{Outcome::passwordField, "the focused field is a password field"};
    }
    co_return focus;
}

QCoro::Task<InputMethodCommitter::Result> IBusInputMethodCommitter::probe() {
    Result focus = co_await request(std::nullopt);
    if (focus.outcome != Outcome::unavailable) {
        focus.detail = "ready; focus: " + focus.detail;
    }
    co_return focus;
}

}  // namespace kelvo::platform
