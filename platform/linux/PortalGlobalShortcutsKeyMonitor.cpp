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

constexpr const char* kService = "org.freedesktop.portal.Desktop";
constexpr const char* kPath = "/org/freedesktop/portal/desktop";
constexpr const char* kInterface = "org.freedesktop.portal.GlobalShortcuts";
constexpr const char* kRequestInterface = "org.freedesktop.portal.Request";
// Long enough for the bus to start the portal on first use.
constexpr int kProbeTimeoutMilliseconds = 2000;

// QtDBus delivers signals to slots only: this object receives the portal's three signals.
class PortalSignals final : public QObject {
    Q_OBJECT

  public:
    std::function<void(uint, const QVariantMap&)> onResponse;
    std::function<void(const QDBusObjectPath&, const QString&, bool)> onShortcut;

  public Q_SLOTS:
    void response(uint code, const QVariantMap& results) {
        if (onResponse) {
            onResponse(code, results);
        }
    }
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

// The object path where the portal will publish the request made with token: the sender's unique
// name without its colon, dots as underscores (the portal's documented rule).
QString requestPath(const QDBusConnection& bus, const QString& token) {
    QString sender = bus.baseService().mid(1).replace('.', '_');
    return QString("%1/request/%2/%3").arg(kPath, sender, token);
}

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
            bus_.call(QDBusMessage::createMethodCall(kService, sessionHandle_,
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
        bus_.connect(kService, kPath, kInterface, "Activated", &signals_,
                     SLOT(activated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
        bus_.connect(kService, kPath, kInterface, "Deactivated", &signals_,
                     SLOT(deactivated(QDBusObjectPath, QString, qulonglong, QVariantMap)));
        QString token = nextToken();
        request(token, [this](const QVariantMap& results) {
            sessionHandle_ = results.value("session_handle").toString();
            if (!sessionHandle_.isEmpty()) {
                bindShortcut();
            }
        });
        QDBusMessage create =
            QDBusMessage::createMethodCall(kService, kPath, kInterface, "CreateSession");
        create << QVariantMap{{"handle_token", token}, {"session_handle_token", nextToken()}};
        bus_.asyncCall(create);
    }

  private:
    // Listens for the Response of the request made with token, before making it (the portal may
    // answer before the call returns).
    void request(const QString& token, std::function<void(const QVariantMap&)> onSuccess) {
        QString path = requestPath(bus_, token);
        signals_.onResponse = [this, path, onSuccess](uint code, const QVariantMap& results) {
            bus_.disconnect(kService, path, kRequestInterface, "Response", &signals_,
                            SLOT(response(uint, QVariantMap)));
            // 0 is success; 1 the user cancelled, 2 anything else.
            if (code == 0) {
                onSuccess(results);
            }
        };
        bus_.connect(kService, path, kRequestInterface, "Response", &signals_,
                     SLOT(response(uint, QVariantMap)));
    }

    void bindShortcut() {
        QString token = nextToken();
        request(token, [this](const QVariantMap& results) {
            QList<PortalShortcut> shortcuts;
            results.value("shortcuts").value<QDBusArgument>() >> shortcuts;
            for (const PortalShortcut& shortcut : shortcuts) {
                bound_ = bound_ || shortcut.id == shortcutId;
            }
        });
        PortalShortcut trigger{
            shortcutId,
            {{"description", QString("Dictation: hold to talk, tap twice for hands-free")},
             {"preferred_trigger", QString::fromStdString(triggerKeyName_)}}};
        QDBusMessage bind =
            QDBusMessage::createMethodCall(kService, kPath, kInterface, "BindShortcuts");
        bind << QVariant::fromValue(QDBusObjectPath(sessionHandle_))
             << QVariant::fromValue(QList<PortalShortcut>{trigger}) << QString()
             << QVariantMap{{"handle_token", token}};
        bus_.asyncCall(bind);
    }

    QString nextToken() { return QString("kelvovoice%1").arg(++tokenCount_); }

    std::string triggerKeyName_;
    QDBusConnection bus_ = QDBusConnection::sessionBus();
    PortalSignals signals_;
    KeyMonitor::Handler handler_;
    QString sessionHandle_;
    int tokenCount_ = 0;
    bool begun_ = false;
    bool bound_ = false;
};

PortalGlobalShortcutsKeyMonitor::PortalGlobalShortcutsKeyMonitor(const std::string& triggerKeyName)
    : session_(std::make_unique<Session>(triggerKeyName)) {}

PortalGlobalShortcutsKeyMonitor::~PortalGlobalShortcutsKeyMonitor() = default;

bool PortalGlobalShortcutsKeyMonitor::isOffered() {
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        return false;
    }
    QDBusMessage get =
        QDBusMessage::createMethodCall(kService, kPath, "org.freedesktop.DBus.Properties", "Get");
    get << QString(kInterface) << QString("version");
    QDBusMessage reply = bus.call(get, QDBus::Block, kProbeTimeoutMilliseconds);
    return reply.type() == QDBusMessage::ReplyMessage;
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
