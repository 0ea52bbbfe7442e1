#include "KelvoVoiceMac/shell/TrayStatusItem.h"

#include <QKeySequence>
#include <QMessageBox>
#include <QPainter>
#include <QPixmap>
#include <QRect>
#include <QSvgRenderer>
#include <QTimer>

#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "platform/LogFormat.h"

namespace kelvo::app {
namespace {

constexpr const char* kIdleDescription = "KelvoVoice";
constexpr const char* kRecordingDescription = "KelvoVoice Recording";
constexpr const char* kStartTitle = "Start Dictation";
constexpr const char* kStopTitle = "Stop Dictation";
// The status item keeps the square length: the host sizes the icon, the item never grows.
constexpr double kSquareLength = -2.0;
// Sizes hosts ask for (panels of 16 to 32 px, doubled on high-density screens).
constexpr int kIconSizes[] = {16, 22, 24, 32, 44, 48, 64};

// Renders a bundled symbol; a null icon when the resource is missing or not a valid image.
QIcon symbolIcon(const char* symbol) {
    QSvgRenderer renderer(QStringLiteral(":/icons/%1.svg").arg(QLatin1String(symbol)));
    if (!renderer.isValid()) {
        return {};
    }
    QIcon icon;
    for (int size : kIconSizes) {
        QPixmap pixmap(size, size);
        pixmap.fill(Qt::transparent);
        QPainter painter(&pixmap);
        painter.setRenderHint(QPainter::Antialiasing);
        renderer.render(&painter, QRectF(0, 0, size, size));
        painter.end();
        icon.addPixmap(pixmap);
    }
    return icon;
}

// The rectangle the way the status log has always printed a frame.
std::string frameText(const QRect& rect) {
    if (!rect.isValid()) {
        return "{{0, 0}, {0, 0}}";
    }
    return "{{" + std::to_string(rect.x()) + ", " + std::to_string(rect.y()) + "}, {" +
           std::to_string(rect.width()) + ", " + std::to_string(rect.height()) + "}}";
}

}  // namespace

TrayStatusItem::TrayStatusItem(Dependencies dependencies)
    : preferences_(dependencies.preferences),
      systemLog_(dependencies.systemLog),
      permissions_(std::move(dependencies.permissions)),
      actions_(std::move(dependencies.actions)),
      menu_(std::make_unique<QMenu>()) {
    buildMenu();
}

TrayStatusItem::~TrayStatusItem() {
    if (trayIcon_) {
        trayIcon_->setContextMenu(nullptr);
    }
}

void TrayStatusItem::buildMenu() {
    QMenu& menu = *menu_;
    auto call = [](const std::function<void()>& action) {
        return [action] {
            if (action) {
                action();
            }
        };
    };

    dictationMenuItem_ = menu.addAction(QString::fromUtf8(kStartTitle));
    QObject::connect(dictationMenuItem_, &QAction::triggered, call(actions_.startDictation));

    fillerRemovalMenuItem_ = menu.addAction(QStringLiteral("フィラーカット"));
    fillerRemovalMenuItem_->setCheckable(true);
    fillerRemovalMenuItem_->setChecked(
        preferences_.boolValue(PreferenceKeys::fillerRemovalEnabled));
    // triggered() has already flipped the check mark; the preference decides it again below.
    QObject::connect(fillerRemovalMenuItem_, &QAction::triggered,
                     [this] { toggleFillerRemoval(); });

    pasteLastMenuItem_ = menu.addAction(QStringLiteral("Paste Last Dictation"));
    QObject::connect(pasteLastMenuItem_, &QAction::triggered, call(actions_.pasteLastDictation));
    updatePasteItem();

    menu.addSeparator();
    QObject::connect(menu.addAction(QStringLiteral("Check Accessibility Permission")),
                     &QAction::triggered, [this] { checkAccessibilityPermission(); });
    QObject::connect(menu.addAction(QStringLiteral("Open Accessibility Settings")),
                     &QAction::triggered, call(actions_.openAccessibilitySettings));
    QObject::connect(menu.addAction(QStringLiteral("Check Input Monitoring Permission")),
                     &QAction::triggered, [this] { checkInputMonitoringPermission(); });
    QObject::connect(menu.addAction(QStringLiteral("Open Input Monitoring Settings")),
                     &QAction::triggered, call(actions_.openInputMonitoringSettings));

    menu.addSeparator();
    QAction* dictionary = menu.addAction(QStringLiteral("Dictionary..."));
    dictionary->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_D));
    QObject::connect(dictionary, &QAction::triggered, call(actions_.openDictionary));
    QAction* settings = menu.addAction(QStringLiteral("Settings..."));
    settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    QObject::connect(settings, &QAction::triggered, call(actions_.openSettings));
    QObject::connect(menu.addAction(QStringLiteral("Show Test Window")), &QAction::triggered,
                     call(actions_.showTestWindow));

    menu.addSeparator();
    QAction* quit = menu.addAction(QStringLiteral("Quit"));
    quit->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Q));
    QObject::connect(quit, &QAction::triggered, call(actions_.quit));

    // Whether a dictation is kept can change between two transitions (a failed insertion), so
    // the paste item is also brought up to date whenever the menu opens.
    QObject::connect(&menu, &QMenu::aboutToShow, [this] { updatePasteItem(); });
}

void TrayStatusItem::show() {
    if (trayIcon_) {
        return;
    }
    trayIcon_ = std::make_unique<QSystemTrayIcon>();
    trayIcon_->setContextMenu(menu_.get());
    applyIconForState(state_, "setup-icon");
    logStatus("setup");
    std::weak_ptr<int> alive = lifetime_;
    QTimer::singleShot(0, [this, alive] {
        if (alive.lock()) {
            logStatus("next-runloop");
        }
    });
}

void TrayStatusItem::refresh(RecordingState state) {
    state_ = state;
    if (trayIcon_) {
        applyIconForState(state, state == RecordingState::idle ? "idle" : "recording");
    }
    dictationMenuItem_->setText(
        QString::fromUtf8(state == RecordingState::idle ? kStartTitle : kStopTitle));
}

void TrayStatusItem::setDictationItemEnabled(bool enabled) {
    dictationMenuItem_->setEnabled(enabled);
    updatePasteItem();
}

void TrayStatusItem::applyIconForState(RecordingState state, const char* reason) {
    if (state == RecordingState::idle) {
        applyIcon(idleSymbol, idleSymbol, kIdleDescription, reason);
    } else {
        applyIcon(recordingSymbol, idleSymbol, kRecordingDescription, reason);
    }
}

void TrayStatusItem::applyIcon(const char* symbol, const char* fallbackSymbol,
                               const char* description, const char* reason) {
    QIcon icon = symbolIcon(symbol);
    if (icon.isNull()) {
        systemLog_.write(std::string("[KelvoVoice] statusItem symbol fallback requested=") +
                         symbol + " fallback=" + fallbackSymbol);
        icon = symbolIcon(fallbackSymbol);
    }
    hasImage_ = !icon.isNull();
    trayIcon_->setIcon(icon);
    description_ = description;
    trayIcon_->setToolTip(toolTip());
    trayIcon_->setVisible(true);
    logStatus(reason);
}

void TrayStatusItem::logStatus(const char* reason) {
    bool visible = trayIcon_ && trayIcon_->isVisible();
    QRect frame = trayIcon_ ? trayIcon_->geometry() : QRect();
    double length = trayIcon_ ? kSquareLength : 0.0;
    systemLog_.write(std::string("[KelvoVoice] statusItem ") + reason + " length=" +
                     platform::fixedText(length, 1) + " visible=" + platform::boolText(visible) +
                     " buttonFrame=" + frameText(frame) +
                     " hasImage=" + platform::boolText(trayIcon_ && hasImage_));
}

void TrayStatusItem::toggleFillerRemoval() {
    bool enabled = !preferences_.boolValue(PreferenceKeys::fillerRemovalEnabled);
    preferences_.setBool(PreferenceKeys::fillerRemovalEnabled, enabled);
    bool stored = preferences_.boolValue(PreferenceKeys::fillerRemovalEnabled);
    fillerRemovalMenuItem_->setChecked(stored);
    systemLog_.write(std::string("[KelvoVoice] Filler removal enabled=") +
                     platform::boolText(stored));
}

void TrayStatusItem::setActivity(const QString& activity) {
    if (activity == activity_) {
        return;
    }
    activity_ = activity;
    if (trayIcon_) {
        trayIcon_->setToolTip(toolTip());
    }
}

QString TrayStatusItem::toolTip() const {
    QString text = QString::fromUtf8(description_);
    if (!activity_.isEmpty()) {
        text += QLatin1Char('\n') + activity_;
    }
    return text;
}

void TrayStatusItem::syncFillerRemovalCheck() {
    fillerRemovalMenuItem_->setChecked(
        preferences_.boolValue(PreferenceKeys::fillerRemovalEnabled));
}

void TrayStatusItem::checkAccessibilityPermission() {
    bool trusted = permissions_.isAccessibilityTrusted && permissions_.isAccessibilityTrusted();
    QString text = trusted ? QStringLiteral("Accessibility permission is enabled.")
                           : QStringLiteral("Accessibility permission is not enabled.");
    text += QStringLiteral("\n\n");
    text += trusted
                ? QStringLiteral(
                      "On Linux this means that the AT-SPI accessibility bus is running and "
                      "enabled, so dictated text can be typed into other applications.")
                : QStringLiteral(
                      "On Linux this means that the AT-SPI accessibility bus is not running or "
                      "not enabled, and dictated text cannot reach other applications. Turn on "
                      "the desktop's accessibility support (for example: gsettings set "
                      "org.gnome.desktop.interface toolkit-accessibility true) and log in again.");
    showAlert(QStringLiteral("Accessibility Permission"), text);
}

void TrayStatusItem::checkInputMonitoringPermission() {
    bool granted = permissions_.hasInputMonitoringAccess && permissions_.hasInputMonitoringAccess();
    QString key = QString::fromStdString(permissions_.triggerKeyName ? permissions_.triggerKeyName()
                                                                     : std::string("Right Ctrl"));
    QString text =
        granted ? QStringLiteral("Input Monitoring permission is enabled.")
                : QStringLiteral(
                      "Input Monitoring permission is not enabled. Fn hold and Fn double-tap may "
                      "not work until it is enabled.");
    text += QStringLiteral("\n\n");
    if (!permissions_.readsInputDevices) {
        text += QStringLiteral(
                    "On Linux (X11) the trigger key, %1, is watched without any special "
                    "permission: hold it to dictate, double-tap it for hands-free.")
                    .arg(key);
    } else if (granted) {
        text += QStringLiteral(
                    "On Linux this means that KelvoVoice can read the keyboards in /dev/input, "
                    "so holding and double-tapping the trigger key, %1, works.")
                    .arg(key);
    } else {
        text += QStringLiteral(
                    "On Linux the trigger key, %1, is read from /dev/input, which needs "
                    "membership of the \"input\" group: run sudo usermod -aG input $USER and log "
                    "in again.")
                    .arg(key);
    }
    showAlert(QStringLiteral("Input Monitoring Permission"), text);
}

void TrayStatusItem::showAlert(const QString& message, const QString& informativeText) {
    // Shown without a nested event loop: the session's tasks keep running behind the alert.
    auto* alert = new QMessageBox(QMessageBox::Information, QStringLiteral("KelvoVoice"), message,
                                  QMessageBox::Ok);
    alert->setInformativeText(informativeText);
    alert->setAttribute(Qt::WA_DeleteOnClose);
    alert->setWindowModality(Qt::ApplicationModal);
    alert->show();
    alert->raise();
    alert->activateWindow();
}

void TrayStatusItem::updatePasteItem() {
    bool available = actions_.hasLastDictation && actions_.hasLastDictation();
    pasteLastMenuItem_->setEnabled(available && dictationMenuItem_->isEnabled());
}

}  // namespace kelvo::app
