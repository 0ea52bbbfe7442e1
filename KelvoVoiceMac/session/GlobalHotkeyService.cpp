#include "KelvoVoiceMac/session/GlobalHotkeyService.h"

#include <string>

#include "KelvoVoiceMac/session/ClockSleep.h"
#include "KelvoVoiceMac/session/DictationTrigger.h"
#include "platform/LogFormat.h"

namespace kelvo::app {
namespace {

constexpr const char* kStartTrigger = DictationTrigger::fnPress;
constexpr const char* kHoldTrigger = DictationTrigger::fnHold;
constexpr const char* kToggleOffTrigger = DictationTrigger::fnToggleOff;
constexpr const char* kTapTrigger = DictationTrigger::fnTap;

}  // namespace

GlobalHotkeyService::GlobalHotkeyService(Dependencies dependencies)
    : menuBarManager_(std::move(dependencies.menuBarManager)),
      keyMonitor_(dependencies.keyMonitor),
      workspace_(dependencies.workspace),
      clock_(dependencies.clock),
      systemLog_(dependencies.systemLog),
      isInjectingKeys_(std::move(dependencies.isInjectingKeys)) {}

GlobalHotkeyService::~GlobalHotkeyService() {
    cancelPendingTap();
}

void GlobalHotkeyService::start() {
    if (!keyMonitor_.hasListenAccess()) {
        bool granted = keyMonitor_.requestListenAccess();
        systemLog_.write(
            std::string("[KelvoVoice] Input Monitoring permission requested granted=") +
            platform::boolText(granted));
    }
    if (!monitorInstalled_) {
        monitorInstalled_ = true;
        std::weak_ptr<int> alive = lifetime_;
        platform::Clock* clock = &clock_;
        keyMonitor_.start([this, clock, alive](platform::TriggerKeyEvent event) {
            // Delivered on the monitor's thread: only post, the state lives on the main thread.
            clock->schedule(platform::Clock::Duration::zero(), [this, alive, event] {
                if (alive.lock()) {
                    handleKeyEvent(event);
                }
            });
        });
    }
    systemLog_.write(
        std::string("[KelvoVoice] GlobalHotkeyService started inputMonitoringTrusted=") +
        platform::boolText(keyMonitor_.hasListenAccess()));
}

void GlobalHotkeyService::openInputMonitoringSettings() {
    if (!workspace_.openPermissionHelp(platform::Workspace::PermissionPane::inputMonitoring)) {
        systemLog_.write("[KelvoVoice] Failed to build Input Monitoring settings URL");
    }
}

void GlobalHotkeyService::handleKeyEvent(platform::TriggerKeyEvent event) {
    if (event.isSynthetic && isInjectingKeys_ && isInjectingKeys_()) {
        return;
    }
    // Another modifier changed, or a repeat: only a change of the trigger's own state counts.
    if (event.isTriggerDown == isFunctionKeyDown_) {
        return;
    }
    isFunctionKeyDown_ = event.isTriggerDown;
    auto now = clock_.now();
    if (isFunctionKeyDown_) {
        pressStep(now);
    } else {
        releaseStep(now);
    }
}

void GlobalHotkeyService::pressStep(platform::Clock::TimePoint now) {
    fnDownTime_ = now;
    if (isToggleActive_) {
        return;  // the release ends the hands-free recording
    }
    if (awaitingSecondTap_) {
        cancelPendingTap();
        systemLog_.write("[KelvoVoice] Fn second-tap down (double-tap pending)");
        return;
    }
    auto manager = menuBarManager_.lock();
    didStartFromFn_ = manager ? manager->startDictation(kStartTrigger) : false;
    systemLog_.write(std::string("[KelvoVoice] Fn down handled started=") +
                     platform::boolText(didStartFromFn_));
}

void GlobalHotkeyService::releaseStep(platform::Clock::TimePoint now) {
    double durationSeconds = 0;
    if (fnDownTime_) {
        durationSeconds = std::chrono::duration<double>(now - *fnDownTime_).count();
    }
    if (isToggleActive_) {
        isToggleActive_ = false;
        awaitingSecondTap_ = false;
        if (auto manager = menuBarManager_.lock()) {
            manager->stopDictation(kToggleOffTrigger);
        }
        systemLog_.write("[KelvoVoice] Fn toggle OFF");
        return;
    }
    if (awaitingSecondTap_) {
        awaitingSecondTap_ = false;
        // Hands-free only makes sense when the first press actually started a recording.
        isToggleActive_ = didStartFromFn_;
        systemLog_.write(std::string("[KelvoVoice] Fn double-tap \u2192 toggle ON active=") +
                         platform::boolText(isToggleActive_));
        return;
    }
    // Compared on the clock's own duration so exactly 0.28 s counts as a hold, whatever the
    // floating-point rounding of the logged seconds.
    bool isHold = fnDownTime_ && (now - *fnDownTime_) >= holdThreshold;
    if (isHold) {
        if (didStartFromFn_) {
            if (auto manager = menuBarManager_.lock()) {
                manager->stopDictation(kHoldTrigger);
            }
        }
        didStartFromFn_ = false;
        systemLog_.write("[KelvoVoice] Fn hold up stopped duration=" +
                         platform::fixedText(durationSeconds, 2));
        return;
    }
    awaitingSecondTap_ = true;
    cancelPendingTap();
    CancellationToken token;
    pendingTapTimer_ = token;
    runSingleTapTimer(token);
}

void GlobalHotkeyService::cancelPendingTap() {
    if (pendingTapTimer_) {
        pendingTapTimer_->cancel();
        pendingTapTimer_.reset();
    }
}

QCoro::Task<> GlobalHotkeyService::runSingleTapTimer(CancellationToken token) {
    std::weak_ptr<int> alive = lifetime_;
    bool completed = co_await sleepFor(clock_, secondTapWindow, token);
    if (!completed || token.isCancelled() || !alive.lock()) {
        co_return;
    }
    pendingTapTimer_.reset();
    if (!awaitingSecondTap_) {
        co_return;
    }
    awaitingSecondTap_ = false;
    if (auto manager = menuBarManager_.lock()) {
        manager->discardDictation(kTapTrigger);
    }
    systemLog_.write("[KelvoVoice] Fn single tap \u2192 discarded");
}

}  // namespace kelvo::app
