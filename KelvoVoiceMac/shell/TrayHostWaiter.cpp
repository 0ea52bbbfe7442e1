#include "KelvoVoiceMac/shell/TrayHostWaiter.h"

#include <qcorosignal.h>
#include <QDBusConnection>
#include <QDBusConnectionInterface>
#include <QDBusMessage>
#include <QDBusServiceWatcher>
#include <QDBusVariant>
#include <QGuiApplication>
#include <QString>

// X11 headers after Qt's: they define None, Bool, Status and friends as macros.
#include <X11/Xatom.h>
#include <X11/Xlib.h>

namespace kelvo::app {
namespace {

const QString kWatcherService = QStringLiteral("org.kde.StatusNotifierWatcher");
const QString kWatcherPath = QStringLiteral("/StatusNotifierWatcher");
// The D-Bus tray is what Qt uses only when the watcher also reports a host; a watcher alone (no
// panel drawing items) would leave the icon invisible.
const QString kHostRegisteredProperty = QStringLiteral("IsStatusNotifierHostRegistered");
constexpr int kPropertyTimeoutMs = 1000;
// Between two looks at the X selection and the host flag, which no bus signal announces here.
constexpr std::chrono::milliseconds kPollStep{100};

bool statusNotifierHostRegistered() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected() || !bus.interface()->isServiceRegistered(kWatcherService)) {
        return false;
    }
    auto call = QDBusMessage::createMethodCall(kWatcherService, kWatcherPath,
                                               QStringLiteral("org.freedesktop.DBus.Properties"),
                                               QStringLiteral("Get"));
    call << kWatcherService << kHostRegisteredProperty;
    QDBusMessage reply = bus.call(call, QDBus::Block, kPropertyTimeoutMs);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return false;
    }
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
}

bool xembedTrayOwned() {
    auto* x11 = qGuiApp ? qGuiApp->nativeInterface<QNativeInterface::QX11Application>() : nullptr;
    Display* display = x11 ? x11->display() : nullptr;
    if (!display) {
        return false;
    }
    std::string selection = "_NET_SYSTEM_TRAY_S" + std::to_string(DefaultScreen(display));
    Atom atom = XInternAtom(display, selection.c_str(), False);
    return atom != 0 && XGetSelectionOwner(display, atom) != 0;
}

}  // namespace

TrayHostWaiter::Host TrayHostWaiter::currentHost() {
    if (statusNotifierHostRegistered()) {
        return Host::statusNotifier;
    }
    if (xembedTrayOwned()) {
        return Host::xembed;
    }
    return Host::none;
}

QCoro::Task<TrayHostWaiter::Host> TrayHostWaiter::wait(std::chrono::milliseconds timeout) {
    QDBusServiceWatcher watcher(kWatcherService, QDBusConnection::sessionBus(),
                                QDBusServiceWatcher::WatchForRegistration);
    auto deadline = std::chrono::steady_clock::now() + timeout;
    while (true) {
        Host host = currentHost();
        if (host != Host::none) {
            co_return host;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            co_return Host::none;
        }
        // Wakes early when the watcher appears; the poll step covers the host flag and XEmbed.
        co_await qCoro(&watcher, &QDBusServiceWatcher::serviceRegistered, kPollStep);
    }
}

std::string_view TrayHostWaiter::name(Host host) {
    switch (host) {
        case Host::statusNotifier:
            return "StatusNotifierItem";
        case Host::xembed:
            return "XEmbed";
        case Host::none:
            break;
    }
    return "none";
}

}  // namespace kelvo::app
