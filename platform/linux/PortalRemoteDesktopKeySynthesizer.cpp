#include "platform/linux/PortalRemoteDesktopKeySynthesizer.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QVariantMap>

#include "platform/linux/PortalRequest.h"

namespace kelvo::platform {
namespace {

constexpr const char* kInterface = "org.freedesktop.portal.RemoteDesktop";
constexpr uint kKeyboardDevice = 1;
// Keep the permission until the user revokes it (persist_mode 2).
constexpr uint kPersistUntilRevoked = 2;
constexpr int kKeysymControlL = 0xffe3;
constexpr int kKeysymV = 0x0076;
constexpr uint kPressed = 1;
constexpr uint kReleased = 0;

}  // namespace

class PortalRemoteDesktopKeySynthesizer::Session {
  public:
    Session(TokenGetter restoreToken, TokenSetter keepRestoreToken)
        : restoreToken_(std::move(restoreToken)), keepRestoreToken_(std::move(keepRestoreToken)) {
        if (!bus_.isConnected()) {
            return;
        }
        next(std::make_unique<PortalRequest>(
            bus_, kInterface, "CreateSession", QVariantList{},
            QVariantMap{{"session_handle_token", PortalRequest::nextToken()}},
            [this](const QVariantMap& results) {
                handle_ = results.value("session_handle").toString();
                if (!handle_.isEmpty()) {
                    selectKeyboard();
                }
            }));
    }

    ~Session() {
        if (!handle_.isEmpty()) {
            bus_.call(QDBusMessage::createMethodCall(PortalRequest::service, handle_,
                                                     "org.freedesktop.portal.Session", "Close"),
                      QDBus::NoBlock);
        }
    }

    bool started() const { return started_; }

    void key(int keysym, uint state) {
        QDBusMessage call = QDBusMessage::createMethodCall(
            PortalRequest::service, PortalRequest::path, kInterface, "NotifyKeyboardKeysym");
        call << QVariant::fromValue(QDBusObjectPath(handle_)) << QVariantMap{} << keysym << state;
        bus_.call(call, QDBus::NoBlock);
    }

  private:
    void selectKeyboard() {
        QVariantMap options{{"types", kKeyboardDevice}, {"persist_mode", kPersistUntilRevoked}};
        std::string token = restoreToken_ ? restoreToken_() : std::string();
        if (!token.empty()) {
            options.insert("restore_token", QString::fromStdString(token));
        }
        next(std::make_unique<PortalRequest>(
            bus_, kInterface, "SelectDevices",
            QVariantList{QVariant::fromValue(QDBusObjectPath(handle_))}, options,
            [this](const QVariantMap&) { start(); }));
    }

    void start() {
        // No parent window: the status item has none.
        next(std::make_unique<PortalRequest>(
            bus_, kInterface, "Start",
            QVariantList{QVariant::fromValue(QDBusObjectPath(handle_)), QString()}, QVariantMap{},
            [this](const QVariantMap& results) {
                started_ = (results.value("devices").toUInt() & kKeyboardDevice) != 0;
                QString token = results.value("restore_token").toString();
                if (!token.isEmpty() && keepRestoreToken_) {
                    keepRestoreToken_(token.toStdString());
                }
            }));
    }

    // Requests are replaced from inside their own callbacks: the old one is kept until the next.
    void next(std::unique_ptr<PortalRequest> request) {
        previous_ = std::move(request_);
        request_ = std::move(request);
    }

    TokenGetter restoreToken_;
    TokenSetter keepRestoreToken_;
    QDBusConnection bus_ = QDBusConnection::sessionBus();
    std::unique_ptr<PortalRequest> request_;
    std::unique_ptr<PortalRequest> previous_;
    QString handle_;
    bool started_ = false;
};

PortalRemoteDesktopKeySynthesizer::PortalRemoteDesktopKeySynthesizer(TokenGetter restoreToken,
                                                                     TokenSetter keepRestoreToken)
    : session_(std::make_unique<Session>(std::move(restoreToken), std::move(keepRestoreToken))) {}

PortalRemoteDesktopKeySynthesizer::~PortalRemoteDesktopKeySynthesizer() = default;

bool PortalRemoteDesktopKeySynthesizer::isOffered() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!PortalRequest::hasInterface(kInterface)) {
        return false;
    }
    QDBusMessage get = QDBusMessage::createMethodCall(PortalRequest::service, PortalRequest::path,
                                                      "org.freedesktop.DBus.Properties", "Get");
    get << QString(kInterface) << QString("AvailableDeviceTypes");
    QDBusMessage reply = bus.call(get, QDBus::Block, 2000);
    return reply.type() == QDBusMessage::ReplyMessage && !reply.arguments().isEmpty() &&
           (reply.arguments().constFirst().value<QDBusVariant>().variant().toUInt() &
            kKeyboardDevice) != 0;
}

bool PortalRemoteDesktopKeySynthesizer::isStarted() const {
    return session_->started();
}

bool PortalRemoteDesktopKeySynthesizer::sendPaste() {
    if (!session_->started()) {
        return false;
    }
    session_->key(kKeysymControlL, kPressed);
    session_->key(kKeysymV, kPressed);
    session_->key(kKeysymV, kReleased);
    session_->key(kKeysymControlL, kReleased);
    return true;
}

}  // namespace kelvo::platform
