#include "platform/linux/PortalGlobalShortcutsKeyMonitor.h"

#include <QDBusArgument>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusVariant>
#include <QList>
#include <QObject>
#include <QVariantMap>
#include <functional>
#include <memory>

#include "platform/linux/PortalRequest.h"

namespace {

// One entry of the portal's a(sa{sv}) shortcut lists.
struct PortalShortcut {
    QString id;
    QVariantMap properties;
};

QDBusArgument& operator<<(QDBusArgument& argument, const PortalShortcut& shortcut) {
    argument.beginStructure();
    argument << shortcut.id << shortcut.properties;
    argument.endStructure();
    return argument;
}

const QDBusArgument& operator>>(const QDBusArgument& argument, PortalShortcut& shortcut) {
    argument.beginStructure();
    argument >> shortcut.id >> shortcut.properties;
    argument.endStructure();
    return argument;
}

}  // namespace

Q_DECLARE_METATYPE(PortalShortcut)

namespace kelvo::platform {
namespace {

constexpr const char* kInterface = "org.freedesktop.portal.GlobalShortcuts";

// QtDBus delivers signals to slots only: this object receives Activated and Deactivated.
class ShortcutSignals final : public QObject {
    Q_OBJECT

  public:
    std::function<void(const QDBusObjectPath&, const QString&, bool)> onShortcut;

  public Q_SLOTS:
    void activated(const QDBusObjectPath& session, const QString& id, qulonglong,
                   const QVariantMap&) {
        if (onShortcut) {
            onShortcut(session, id, true);
        }
    }
    void deactivated(const QDBusObjectPath& session, const QString& id, qulonglong,
                     const QVariantMap&) {
        if (onShortcut) {
            onShortcut(session, id, false);
        }
    }
};

}  // namespace

class PortalGlobalShortcutsKeyMonitor::Session {
  public:
    explicit Session(std::string triggerKeyName) : triggerKeyName_(std::move(triggerKeyName)) {
        qDBusRegisterMetaType<PortalShortcut>();
        qDBusRegisterMetaType<QList<PortalShortcut>>();
        signals_.onShortcut = [this](const QDBusObjectPath& session, const QString& id, bool down) {
            if (session.path() == sessionHandle_ && id == shortcutId && handler_) {
                handler_(TriggerKeyEvent{down, false});
            }
        };
    }

    ~Session() {
        if (!sessionHandle_.isEmpty()) {
            bus_.call(QDBusMessage::createMethodCall(PortalRequest::service, sessionHandle_,
                                                     "org.freedesktop.portal.Session", "Close"),
                      QDBus::NoBlock);
        }
    }

    bool bound() const { return bound_; }
    void setHandler(KeyMonitor::Handler handler) { handler_ = std::move(handler); }

    void begin() {
        if (begun_ || !bus_.isConnected()) {
            return;
        }
        begun_ = true;
        bus_.connect(PortalRequest::service, PortalRequest::path, kInterface, "Activated",
                     &signals_, SLOT(activated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
        bus_.connect(PortalRequest::service, PortalRequest::path, kInterface, "Deactivated",
                     &signals_,
                     SLOT(deactivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
        request_ = std::make_unique<PortalRequest>(
            bus_, kInterface, "CreateSession", QVariantList{},
            QVariantMap{{"session_handle_token", PortalRequest::nextToken()}},
            [this](const QVariantMap& results) {
                sessionHandle_ = results.value("session_handle").toString();
                if (!sessionHandle_.isEmpty()) {
                    bindShortcut();
                }
            });
    }

  private:
    void bindShortcut() {
        PortalShortcut trigger{
            shortcutId,
            {{"description", QString("Dictation: hold to talk, tap twice for hands-free")},
             {"preferred_trigger", QString::fromStdString(triggerKeyName_)}}};
        previousRequest_ = std::move(request_);
        request_ = std::make_unique<PortalRequest>(
            bus_, kInterface, "BindShortcuts",
            QVariantList{QVariant::fromValue(QDBusObjectPath(sessionHandle_)),
                         QVariant::fromValue(QList<PortalShortcut>{trigger}), QString()},
            QVariantMap{}, [this](const QVariantMap& results) {
                QList<PortalShortcut> shortcuts;
                results.value("shortcuts").value<QDBusArgument>() >> shortcuts;
                for (const PortalShortcut& shortcut : shortcuts) {
                    bound_ = bound_ || shortcut.id == shortcutId;
                }
            });
    }

    std::string triggerKeyName_;
    QDBusConnection bus_ = QDBusConnection::sessionBus();
    ShortcutSignals signals_;
    // The request under way. A request is replaced from inside its own callback, so the old one
    // is kept (until the next replacement) rather than destroyed while it delivers.
    std::unique_ptr<PortalRequest> request_;
    std::unique_ptr<PortalRequest> previousRequest_;
    KeyMonitor::Handler handler_;
    QString sessionHandle_;
    bool begun_ = false;
    bool bound_ = false;
};

PortalGlobalShortcutsKeyMonitor::PortalGlobalShortcutsKeyMonitor(const std::string& triggerKeyName)
    : session_(std::make_unique<Session>(triggerKeyName)) {}

PortalGlobalShortcutsKeyMonitor::~PortalGlobalShortcutsKeyMonitor() = default;

bool PortalGlobalShortcutsKeyMonitor::isOffered() {
    return PortalRequest::hasInterface(kInterface);
}

bool PortalGlobalShortcutsKeyMonitor::hasListenAccess() const {
    return session_->bound();
}

bool PortalGlobalShortcutsKeyMonitor::requestListenAccess() {
    session_->begin();
    return session_->bound();
}

void PortalGlobalShortcutsKeyMonitor::start(Handler handler) {
    session_->setHandler(std::move(handler));
    session_->begin();
}

}  // namespace kelvo::platform

#include "PortalGlobalShortcutsKeyMonitor.moc"
