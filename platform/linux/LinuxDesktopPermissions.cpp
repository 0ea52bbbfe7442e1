#include "platform/linux/LinuxDesktopPermissions.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusVariant>
#include <cstdlib>
#include <stdexcept>

#include "platform/linux/EvdevKeyMonitor.h"

namespace kelvo::platform {
namespace {

constexpr int kBusTimeoutMilliseconds = 500;

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

}  // namespace

bool LinuxDesktopPermissions::isX11Session() {
    std::string type = environment("XDG_SESSION_TYPE");
    if (!type.empty() && type != "tty") {
        return type == "x11";
    }
    // Without a session type (a bare X server, ssh -X): a Wayland socket means XWayland.
    return !environment("DISPLAY").empty() && environment("WAYLAND_DISPLAY").empty();
}

bool LinuxDesktopPermissions::isAccessibilityEnabled() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return false;
    }
    QDBusMessage call = QDBusMessage::createMethodCall("org.a11y.Bus", "/org/a11y/bus",
                                                       "org.freedesktop.DBus.Properties", "Get");
    call << QStringLiteral("org.a11y.Status") << QStringLiteral("IsEnabled");
    QDBusMessage reply = bus.call(call, QDBus::Block, kBusTimeoutMilliseconds);
    if (reply.type() != QDBusMessage::ReplyMessage || reply.arguments().isEmpty()) {
        return false;
    }
    return reply.arguments().constFirst().value<QDBusVariant>().variant().toBool();
}

bool LinuxDesktopPermissions::hasInputMonitoringAccess(const std::string& triggerKeyName) {
    if (isX11Session()) {
        return true;
    }
    try {
        return EvdevKeyMonitor(triggerKeyName).hasListenAccess();
    } catch (const std::invalid_argument&) {
        return false;
    }
}

std::string LinuxDesktopPermissions::helpText(Workspace::PermissionPane pane, bool x11Session) {
    if (pane == Workspace::PermissionPane::accessibility) {
        std::string text =
            "KelvoVoice types into other applications through the desktop's accessibility "
            "interface (AT-SPI), which is off in this session.\n\n"
            "Turn on assistive technologies in your desktop's accessibility settings, or run:\n"
            "    gsettings set org.gnome.desktop.interface toolkit-accessibility true\n\n"
            "Then log out and back in: applications check this setting when they start.";
        if (!x11Session) {
            text +=
                "\n\nUnder Wayland, text also goes in through your input method (Fcitx5, IBus). "
                "The clipboard paste for windows that neither reaches needs a compositor with "
                "the data-control and virtual-keyboard protocols (Sway and other wlroots "
                "compositors); on GNOME and KDE Plasma the desktop asks once whether KelvoVoice "
                "may control the keyboard (remote desktop): allow it. Where the paste cannot "
                "happen, the dictation is kept: choose \"Paste Last Dictation\".";
        }
        return text;
    }
    if (x11Session) {
        return "On X11, KelvoVoice sees the trigger key without any permission. If it does not "
               "react, check the trigger key chosen in Settings.";
    }
    return "Outside X11, KelvoVoice reads the trigger key from the keyboard devices in /dev/input, "
           "which only members of the \"input\" group may read.\n\n"
           "Add yourself to that group:\n"
           "    sudo usermod -aG input $USER\n\n"
           "Then log out and back in for the new group to apply.\n\n"
           "Without that, on desktops whose portal offers global shortcuts (KDE Plasma 5.27 and "
           "later, GNOME 48 and later), KelvoVoice asks the desktop for the trigger as a "
           "shortcut: confirm it in the dialog the desktop shows at the first start. The "
           "desktop decides the key then, and a key the desktop does not allow alone (a lone "
           "Ctrl) must be changed in its shortcut settings. Sway and other wlroots compositors "
           "have no such portal: there the input group is the way.";
}

}  // namespace kelvo::platform
