#pragma once

// GlobalHotkeyService turns presses and releases of the trigger key, observed system-wide through
// the KeyMonitor, into dictation requests: holding the key records while it is down; a double tap
// starts a hands-free recording that the next press and release ends; a single short tap throws
// the recording away. Every press that is not part of a gesture in progress starts recording at
// once, so no speech is lost while the gesture is told apart; later events decide whether that
// recording is stopped, kept or discarded.
//
// Confined to the main thread. Monitor events may arrive on any thread; each is posted through the
// clock and handled on the main thread. The request handler is held weakly (a missing handler
// skips the call, and a start then counts as not accepted). Synthetic key events are dropped while
// the insertion side is injecting its own paste chord (isInjectingKeys), so a trigger key that is
// also part of that chord cannot start a dictation. The monitor, clock, workspace and logs are
// borrowed and must outlive the service.

#include <QCoroTask>
#include <functional>
#include <memory>
#include <optional>

#include "KelvoVoiceMac/session/CancellationToken.h"
#include "KelvoVoiceMac/session/DictationRequestHandler.h"
#include "platform/Clock.h"
#include "platform/KeyMonitor.h"
#include "platform/SystemLog.h"
#include "platform/Workspace.h"

namespace kelvo::app {

class GlobalHotkeyService {
  public:
    struct Dependencies {
        std::weak_ptr<DictationRequestHandler> menuBarManager;
        platform::KeyMonitor& keyMonitor;
        platform::Workspace& workspace;
        platform::Clock& clock;
        platform::SystemLog& systemLog;
        // True while our own synthetic paste chord is in flight; may be empty.
        std::function<bool()> isInjectingKeys;
    };

    // A release at least this long after the press is a hold.
    static constexpr platform::Clock::Duration holdThreshold = std::chrono::milliseconds(280);
    // Measured from the release of the first tap.
    static constexpr platform::Clock::Duration secondTapWindow = std::chrono::milliseconds(400);

    explicit GlobalHotkeyService(Dependencies dependencies);
    ~GlobalHotkeyService();

    GlobalHotkeyService(const GlobalHotkeyService&) = delete;
    GlobalHotkeyService& operator=(const GlobalHotkeyService&) = delete;

    // Asks for listen access if needed, installs the monitor and logs its state. Called once.
    void start();

    // The "Open Input Monitoring Settings" menu action.
    void openInputMonitoringSettings();

    // Handles one monitor event on the main thread; public so the wiring and tests can feed
    // events directly.
    void handleKeyEvent(platform::TriggerKeyEvent event);

    bool isFunctionKeyDown() const noexcept { return isFunctionKeyDown_; }
    bool didStartFromFn() const noexcept { return didStartFromFn_; }
    bool awaitingSecondTap() const noexcept { return awaitingSecondTap_; }
    bool isToggleActive() const noexcept { return isToggleActive_; }

  private:
    void pressStep(platform::Clock::TimePoint now);
    void releaseStep(platform::Clock::TimePoint now);
    void cancelPendingTap();
    QCoro::Task<> runSingleTapTimer(CancellationToken token);

    std::weak_ptr<DictationRequestHandler> menuBarManager_;
    platform::KeyMonitor& keyMonitor_;
    platform::Workspace& workspace_;
    platform::Clock& clock_;
    platform::SystemLog& systemLog_;
    std::function<bool()> isInjectingKeys_;

    bool monitorInstalled_ = false;
    bool isFunctionKeyDown_ = false;
    std::optional<platform::Clock::TimePoint> fnDownTime_;
    bool didStartFromFn_ = false;
    bool awaitingSecondTap_ = false;
    bool isToggleActive_ = false;
    std::optional<CancellationToken> pendingTapTimer_;

    // Expires with the service, so events and timers posted earlier can tell it is gone.
    std::shared_ptr<int> lifetime_ = std::make_shared<int>(0);
};

}  // namespace kelvo::app
