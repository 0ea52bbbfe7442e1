#include "platform/linux/X11Workspace.h"

#include <QProcess>
#include <QStandardPaths>
#include <QStringList>
#include <cstdlib>
#include <sstream>

#include "platform/linux/LinuxDesktopPermissions.h"
#include "platform/linux/X11Connection.h"
#include "platform/linux/X11FrontmostWindow.h"

namespace kelvo::platform {
namespace {

struct DesktopSettings {
    const char* desktop;  // as XDG_CURRENT_DESKTOP names it
    // Alternatives, first installed wins (program names changed across releases).
    std::vector<X11Workspace::SettingsCommand> accessibility;
    std::vector<X11Workspace::SettingsCommand> inputMonitoring;
};

// No desktop has a page for the `input` group, so Input Monitoring outside X11 is always the
// dialog; the table keeps the column so that a desktop gaining one is a one-line change.
const std::vector<DesktopSettings>& knownDesktops() {
    static const std::vector<DesktopSettings> desktops = {
        {"GNOME", {{"gnome-control-center", {"universal-access"}}}, {}},
        {"KDE",
         {{"systemsettings", {"kcm_access"}},
          {"systemsettings5", {"kcm_access"}},
          {"kcmshell5", {"kcm_access"}}},
         {}},
        {"XFCE", {{"xfce4-accessibility-settings", {}}}, {}},
        {"MATE", {{"mate-at-properties", {}}}, {}},
        {"X-Cinnamon", {{"cinnamon-settings", {"universal-access"}}}, {}},
    };
    return desktops;
}

bool isInstalled(const std::string& program) {
    return !QStandardPaths::findExecutable(QString::fromStdString(program)).isEmpty();
}

}  // namespace

X11Workspace::X11Workspace(const std::string& displayName)
    : connection_(std::make_unique<X11Connection>(displayName)) {}

X11Workspace::~X11Workspace() = default;

std::optional<Workspace::Application> X11Workspace::frontmostApplication() const {
    if (!connection_->isOpen()) {
        return std::nullopt;
    }
    auto front = X11FrontmostWindow::read(connection_->display());
    if (!front) {
        return std::nullopt;
    }
    Application application;
    // The class names the application ("Gedit", "XTerm"); the window title is never used, since
    // it often carries the name of the document being edited and this name is printed in traces.
    const std::string& name = front->className.empty() ? front->instanceName : front->className;
    if (!name.empty()) {
        application.localizedName = name;
        application.bundleIdentifier = name;
    }
    return application;
}

bool X11Workspace::openPermissionHelp(PermissionPane pane) {
    const char* desktop = std::getenv("XDG_CURRENT_DESKTOP");
    auto command =
        settingsCommand(pane, desktop ? desktop : "", LinuxDesktopPermissions::isX11Session());
    if (!command) {
        return false;
    }
    QStringList arguments;
    for (const auto& argument : command->arguments) {
        arguments << QString::fromStdString(argument);
    }
    return QProcess::startDetached(QString::fromStdString(command->program), arguments);
}

std::optional<X11Workspace::SettingsCommand> X11Workspace::settingsCommand(
    PermissionPane pane, const std::string& currentDesktop, bool x11Session) {
    // X11 needs no Input Monitoring permission: the help text says so.
    if (pane == PermissionPane::inputMonitoring && x11Session) {
        return std::nullopt;
    }
    std::istringstream names(currentDesktop);
    std::string name;
    while (std::getline(names, name, ':')) {
        for (const auto& desktop : knownDesktops()) {
            if (name != desktop.desktop) {
                continue;
            }
            const auto& candidates = pane == PermissionPane::accessibility
                                         ? desktop.accessibility
                                         : desktop.inputMonitoring;
            for (const auto& candidate : candidates) {
                if (isInstalled(candidate.program)) {
                    return candidate;
                }
            }
        }
    }
    return std::nullopt;
}

}  // namespace kelvo::platform
