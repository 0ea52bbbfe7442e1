#include "platform/linux/PortalRequest.h"

#include <QDBusPendingCall>
#include <utility>

namespace kelvo::platform {
namespace {

constexpr const char* kRequestInterface = "org.freedesktop.portal.Request";
// Long enough for the bus to start the portal on first use.
constexpr int kProbeTimeoutMilliseconds = 2000;

}  // namespace

PortalRequest::PortalRequest(QDBusConnection bus, const QString& interface, const QString& method,
                             const QVariantList& arguments, QVariantMap options, Granted granted)
    : bus_(std::move(bus)), granted_(std::move(granted)) {
    QString token = nextToken();
    // The sender's unique name without its colon, dots as underscores.
    QString sender = bus_.baseService().mid(1).replace('.', '_');
    requestPath_ = QString("%1/request/%2/%3").arg(path, sender, token);
    bus_.connect(service, requestPath_, kRequestInterface, "Response", this,
                 SLOT(response(uint, QVariantMap)));
    options.insert("handle_token", token);
    QDBusMessage call = QDBusMessage::createMethodCall(service, path, interface, method);
    call.setArguments(arguments);
    call << options;
    bus_.asyncCall(call);
}

PortalRequest::~PortalRequest() {
    bus_.disconnect(service, requestPath_, kRequestInterface, "Response", this,
                    SLOT(response(uint, QVariantMap)));
}

QString PortalRequest::nextToken() {
    static int count = 0;
    return QString("kelvovoice%1").arg(++count);
}

bool PortalRequest::hasInterface(const QString& interface) {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return false;
    }
    QDBusMessage get =
        QDBusMessage::createMethodCall(service, path, "org.freedesktop.DBus.Properties", "Get");
    get << interface << QString("version");
    return bus.call(get, QDBus::Block, kProbeTimeoutMilliseconds).type() ==
           QDBusMessage::ReplyMessage;
}

void PortalRequest::response(uint code, const QVariantMap& results) {
    // 0 is success; 1 the user cancelled, 2 anything else.
    if (code == 0 && granted_) {
        // A copy: the callback may destroy this request.
        auto granted = granted_;
        granted_ = nullptr;
        granted(results);
    }
}

}  // namespace kelvo::platform
