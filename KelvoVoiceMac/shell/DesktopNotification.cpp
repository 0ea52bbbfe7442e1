#include "KelvoVoiceMac/shell/DesktopNotification.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QVariantMap>

namespace kelvo::app {
namespace {

constexpr const char* kService = "org.freedesktop.Notifications";
constexpr const char* kPath = "/org/freedesktop/Notifications";
constexpr const char* kInterface = "org.freedesktop.Notifications";
// Let the server choose how long the bubble stays (-1); an expired one is shown again next time.
constexpr int kServerDefaultTimeout = -1;

}  // namespace

DesktopNotification::DesktopNotification(QString applicationName, QString iconName, QObject* parent)
    : QObject(parent),
      applicationName_(std::move(applicationName)),
      iconName_(std::move(iconName)) {}

DesktopNotification::~DesktopNotification() = default;

void DesktopNotification::show(const QString& summary, const QString& body,
                               const QList<Action>& actions, Callbacks callbacks) {
    callbacks_ = std::move(callbacks);
    QDBusConnection bus = QDBusConnection::sessionBus();
    // Subscribed before the call: a server may answer a button at once.
    bus.connect(kService, kPath, kInterface, QStringLiteral("ActionInvoked"), this,
                SLOT(onActionInvoked(uint, QString)));
    bus.connect(kService, kPath, kInterface, QStringLiteral("NotificationClosed"), this,
                SLOT(onNotificationClosed(uint, uint)));

    QStringList actionList;
    for (const Action& action : actions) {
        actionList << action.key << action.label;
    }
    QVariantMap hints;
    hints.insert(QStringLiteral("desktop-entry"), QStringLiteral("kelvovoice"));
    QDBusMessage call =
        QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Notify"));
    call << applicationName_ << uint(0) << iconName_ << summary << body << actionList << hints
         << kServerDefaultTimeout;
    auto* watcher = new QDBusPendingCallWatcher(bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this,
            [this](QDBusPendingCallWatcher* finished) {
                finished->deleteLater();
                QDBusPendingReply<uint> reply = *finished;
                if (reply.isError()) {
                    if (callbacks_.shown) {
                        callbacks_.shown(false, reply.error().message());
                    }
                    return;
                }
                id_ = reply.value();
                if (callbacks_.shown) {
                    callbacks_.shown(true, {});
                }
            });
}

void DesktopNotification::onActionInvoked(uint id, const QString& actionKey) {
    if (id_ == 0 || id != id_ || actionSeen_) {
        return;
    }
    actionSeen_ = true;
    if (callbacks_.actionInvoked) {
        callbacks_.actionInvoked(actionKey);
    }
}

void DesktopNotification::onNotificationClosed(uint id, uint reason) {
    if (id_ == 0 || id != id_ || closedSeen_) {
        return;
    }
    closedSeen_ = true;
    if (callbacks_.closed) {
        callbacks_.closed(reason >= 1 && reason <= 3 ? static_cast<CloseReason>(reason)
                                                     : CloseReason::other);
    }
}

}  // namespace kelvo::app
