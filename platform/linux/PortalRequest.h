#pragma once

// PortalRequest makes one call to an xdg-desktop-portal method that answers through a Request
// object (CreateSession, BindShortcuts, SelectDevices, Start, …): the method returns the object's
// path at once, and the portal later emits Response(code, results) on it, after whatever dialog it
// shows the user. The Response is subscribed before the call is made, at the path the portal's
// documented rule predicts from our unique bus name and the handle_token put into the options, so
// an answer that comes before the call returns is not lost.
// Main thread only; the callback runs on the main thread. Destroying the request drops a response
// still to come.

#include <QDBusConnection>
#include <QDBusMessage>
#include <QObject>
#include <QString>
#include <QVariantMap>
#include <functional>

namespace kelvo::platform {

class PortalRequest final : public QObject {
    Q_OBJECT

  public:
    static constexpr const char* service = "org.freedesktop.portal.Desktop";
    static constexpr const char* path = "/org/freedesktop/portal/desktop";

    // Called once with the results when the user or the portal granted the request; never when it
    // was refused or cancelled.
    using Granted = std::function<void(const QVariantMap& results)>;

    // Calls interface.method with arguments, then options with a fresh handle_token added.
    PortalRequest(QDBusConnection bus, const QString& interface, const QString& method,
                  const QVariantList& arguments, QVariantMap options, Granted granted);
    ~PortalRequest() override;

    // A fresh token for a session_handle_token or handle_token, unique within this process.
    static QString nextToken();

    // Whether the portal has the interface (a short blocking call of its "version" property).
    static bool hasInterface(const QString& interface);

  public Q_SLOTS:
    void response(uint code, const QVariantMap& results);

  private:
    QDBusConnection bus_;
    QString requestPath_;
    Granted granted_;
};

}  // namespace kelvo::platform
