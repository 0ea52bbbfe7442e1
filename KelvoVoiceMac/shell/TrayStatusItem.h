#pragma once

// TrayStatusItem is the application's visible presence outside its windows: one status icon in
// the desktop's status area (QSystemTrayIcon: StatusNotifierItem with its D-Bus menu, or XEmbed)
// and its menu. It is the StatusItemPresenter of the dictation session: the icon is "mic.fill"
// while idle and "mic.badge.waveform", drawn red, while recording; the first menu item reads
// "Start Dictation" or "Stop Dictation" and is disabled during every transition. The menu also
// switches filler removal (the check mark follows `kvmac_fillerRemovalEnabled`), checks and opens
// the two permissions, pastes the last dictation again, opens the dictionary, settings and test
// windows, and quits. Actions that belong to other objects are callbacks given by the wiring.
//
// The menu exists from construction, so the session may refresh the presenter before the icon
// exists; show() creates the icon, which the start-up code does only after it has waited for a
// status-area host (TrayHostWaiter), because Qt picks the tray protocol at the first tray call.
// Main thread only. Owned by the application's wiring; the preferences and log are borrowed and
// must outlive it.

#include <QAction>
#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>
#include <functional>
#include <memory>
#include <string>

#include "KelvoVoiceMac/session/RecordingState.h"
#include "KelvoVoiceMac/session/StatusItemPresenter.h"
#include "platform/Preferences.h"
#include "platform/SystemLog.h"

namespace kelvo::app {

class TrayStatusItem final : public StatusItemPresenter {
  public:
    struct Actions {
        // The dictation item: stop when recording, else start (trigger "menu").
        std::function<void()> startDictation;
        std::function<void()> pasteLastDictation;
        // Whether there is a kept dictation to paste; the item is disabled otherwise.
        std::function<bool()> hasLastDictation;
        std::function<void()> openAccessibilitySettings;
        std::function<void()> openInputMonitoringSettings;
        std::function<void()> openDictionary;
        std::function<void()> openSettings;
        std::function<void()> showTestWindow;
        std::function<void()> quit;
    };

    // What the two permission checks look at, and how to explain them on this system.
    struct PermissionChecks {
        std::function<bool()> isAccessibilityTrusted;
        std::function<bool()> hasInputMonitoringAccess;
        // The trigger key as the user knows it ("Right Ctrl"); asked at each check, as the
        // settings may change it.
        std::function<std::string()> triggerKeyName;
        // True when the key is read from /dev/input (Wayland, console), false on X11.
        bool readsInputDevices = false;
    };

    struct Dependencies {
        platform::Preferences& preferences;
        platform::SystemLog& systemLog;
        PermissionChecks permissions;
        Actions actions;
    };

    static constexpr const char* idleSymbol = "mic.fill";
    static constexpr const char* recordingSymbol = "mic.badge.waveform";

    explicit TrayStatusItem(Dependencies dependencies);
    ~TrayStatusItem() override;

    TrayStatusItem(const TrayStatusItem&) = delete;
    TrayStatusItem& operator=(const TrayStatusItem&) = delete;

    // Creates and shows the icon with the current state's image, attaches the menu and logs the
    // set-up lines ("setup-icon", "setup", then "next-runloop" once the event loop has turned).
    // Called once.
    void show();

    void refresh(RecordingState state) override;
    void setDictationItemEnabled(bool enabled) override;

    // Menu actions, public so that the wiring and tests can run them directly.
    void toggleFillerRemoval();
    void checkAccessibilityPermission();
    void checkInputMonitoringPermission();
    // Sets the filler check mark from the preference, after another window has changed it.
    void syncFillerRemovalCheck();
    // A second line for the icon's tooltip about work in the background ("Installing speech model
    // base: 42 %"); empty removes it.
    void setActivity(const QString& activity);
    QString toolTip() const;

    QMenu& menu() noexcept { return *menu_; }
    bool isShown() const noexcept { return trayIcon_ != nullptr; }
    RecordingState state() const noexcept { return state_; }

  private:
    void buildMenu();
    void applyIcon(const char* symbol, const char* fallbackSymbol, const char* description,
                   const char* reason);
    void applyIconForState(RecordingState state, const char* reason);
    void logStatus(const char* reason);
    void updatePasteItem();
    void showAlert(const QString& message, const QString& informativeText);

    platform::Preferences& preferences_;
    platform::SystemLog& systemLog_;
    PermissionChecks permissions_;
    Actions actions_;

    std::unique_ptr<QMenu> menu_;
    QAction* dictationMenuItem_ = nullptr;
    QAction* fillerRemovalMenuItem_ = nullptr;
    QAction* pasteLastMenuItem_ = nullptr;
    std::unique_ptr<QSystemTrayIcon> trayIcon_;
    bool hasImage_ = false;
    const char* description_ = "KelvoVoice";
    QString activity_;
    RecordingState state_ = RecordingState::idle;
    // Expires with the item, so the posted "next-runloop" line can tell it is gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace kelvo::app
