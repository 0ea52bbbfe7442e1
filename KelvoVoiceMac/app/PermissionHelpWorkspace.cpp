#include "KelvoVoiceMac/app/PermissionHelpWorkspace.h"

#include <QMessageBox>

#include "platform/linux/LinuxDesktopPermissions.h"

namespace kelvo::app {

PermissionHelpWorkspace::PermissionHelpWorkspace(std::unique_ptr<platform::Workspace> desktop,
                                                 bool x11Session)
    : desktop_(std::move(desktop)), x11Session_(x11Session) {}

std::optional<platform::Workspace::Application> PermissionHelpWorkspace::frontmostApplication()
    const {
    return desktop_->frontmostApplication();
}

bool PermissionHelpWorkspace::openPermissionHelp(PermissionPane pane) {
    if (desktop_->openPermissionHelp(pane)) {
        return true;
    }
    QString title = pane == PermissionPane::accessibility
                        ? QStringLiteral("Accessibility Settings")
                        : QStringLiteral("Input Monitoring Settings");
    // Shown without a nested event loop, like the permission checks.
    auto* help = new QMessageBox(QMessageBox::Information, QStringLiteral("KelvoVoice"), title,
                                 QMessageBox::Ok);
    help->setInformativeText(
        QString::fromStdString(platform::LinuxDesktopPermissions::helpText(pane, x11Session_)));
    help->setTextInteractionFlags(Qt::TextSelectableByMouse);
    help->setAttribute(Qt::WA_DeleteOnClose);
    help->show();
    help->raise();
    help->activateWindow();
    return true;
}

}  // namespace kelvo::app
