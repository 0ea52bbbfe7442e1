#pragma once

// DesktopNotification is one notification bubble of the desktop's notification server
// (org.freedesktop.Notifications on the session bus, the Desktop Notifications Specification),
// with buttons. show() sends it without blocking; the answer says whether a server took it. The
// server later reports which button the user pressed (ActionInvoked; "default" is a click on the
// bubble itself) and why the bubble went away (NotificationClosed: 1 expired, 2 dismissed by the
// user, 3 closed by a call, 4 other); both are handed to the callbacks for this notification
// only, each at most once.
//
// Main thread only; needs a Qt event loop. One show() per object.

#include <QObject>
#include <QString>
#include <QStringList>

#include <functional>

namespace kelvo::app {

class DesktopNotification final : public QObject {
    Q_OBJECT

  public:
    enum class CloseReason : uint { expired = 1, dismissed = 2, closedByCall = 3, other = 4 };

    struct Action {
        QString key;
        QString label;
    };
    struct Callbacks {
        // Whether the server took the notification; the error in words when it did not.
        std::function<void(bool shown, const QString& error)> shown;
        std::function<void(const QString& actionKey)> actionInvoked;
        std::function<void(CloseReason reason)> closed;
    };

    DesktopNotification(QString applicationName, QString iconName, QObject* parent = nullptr);
    ~DesktopNotification() override;

    void show(const QString& summary, const QString& body, const QList<Action>& actions,
              Callbacks callbacks);

  private Q_SLOTS:
    void onActionInvoked(uint id, const QString& actionKey);
    void onNotificationClosed(uint id, uint reason);

  private:
    QString applicationName_;
    QString iconName_;
    Callbacks callbacks_;
    // The server's id for this notification; 0 until it has answered.
    uint id_ = 0;
    bool actionSeen_ = false;
    bool closedSeen_ = false;
};

}  // namespace kelvo::app
