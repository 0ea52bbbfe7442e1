#pragma once

// TrayHostWaiter tells which kind of status-area host the desktop offers before the first tray
// call is made. Qt chooses between the StatusNotifierItem protocol and XEmbed once per process, at
// the first QSystemTrayIcon call, and never reconsiders; a panel that starts a moment after the
// application (the usual race at login) would then be missed for good. So start-up asks this
// waiter first: it answers at once when a StatusNotifierWatcher with a registered host, or an
// XEmbed tray selection owner, is already there, and otherwise watches the session bus for the
// watcher (and polls the X selection and the host flag) until one appears or the time is up.
// It never touches QSystemTrayIcon itself.
//
// Main thread only; needs a QGuiApplication. Each wait() is independent; the waiter may be
// destroyed once no wait is running.

#include <QCoroTask>
#include <chrono>
#include <string_view>

namespace kelvo::app {

class TrayHostWaiter {
  public:
    enum class Host { statusNotifier, xembed, none };

    // Long enough for a panel that starts beside the application at login; short enough that a
    // desktop without any status area does not hold the rest of start-up for long.
    static constexpr std::chrono::milliseconds defaultTimeout{3000};

    // The host present now, without waiting: a StatusNotifierWatcher that reports a registered
    // host wins over an XEmbed tray.
    static Host currentHost();

    // Resolves as soon as a host exists, or with Host::none once timeout has passed.
    static QCoro::Task<Host> wait(std::chrono::milliseconds timeout = defaultTimeout);

    static std::string_view name(Host host);
};

}  // namespace kelvo::app
