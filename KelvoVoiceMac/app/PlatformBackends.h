#pragma once

// PlatformBackends is the one place where the application's platform seams meet their backends.
// The backend of each seam is chosen at run time from the session the process finds itself in
// (XDG_SESSION_TYPE, WAYLAND_DISPLAY, DISPLAY): on X11 the trigger key is watched through XInput2
// and the paste chord goes through XTest; elsewhere (Wayland, the console) the key is read from
// /dev/input and there is no synthetic paste yet, so insertion relies on AT-SPI and the kept text.
// Each choice is logged once, when the backends are made.
//
// Made once by the start-up code on the main thread, after the QApplication exists; owned by the
// application delegate for the life of the process and destroyed after everything that borrows
// from it. The audio inputs handed out by makeAudioInput() are owned by their callers. The
// preferences and the log are borrowed and must outlive the backends.

#include <memory>
#include <string>
#include <vector>

#include "core/services/ModelInventory.h"
#include "platform/AccessibilityClient.h"
#include "platform/AudioInput.h"
#include "platform/Clock.h"
#include "platform/FieldEditWatcher.h"
#include "platform/InputMethodAddonInstaller.h"
#include "platform/InputMethodCommitter.h"
#include "platform/KeyMonitor.h"
#include "platform/KeySynthesizer.h"
#include "platform/ModelEngine.h"
#include "platform/Pasteboard.h"
#include "platform/Preferences.h"
#include "platform/SegmentRecognizerProvider.h"
#include "platform/SystemLog.h"
#include "platform/Workspace.h"

namespace kelvo::app {

class SpeechBackends;
class SwitchableKeyMonitor;

class PlatformBackends {
  public:
    enum class SessionKind { x11, wayland, console };

    // Chooses and builds every backend, logging each choice.
    // The clock times the recogniser's idle release and must outlive the backends.
    static std::unique_ptr<PlatformBackends> create(platform::Preferences& preferences,
                                                    platform::SystemLog& systemLog,
                                                    platform::Clock& clock);
    ~PlatformBackends();

    PlatformBackends(const PlatformBackends&) = delete;
    PlatformBackends& operator=(const PlatformBackends&) = delete;

    // The kind of session, from the environment the process was started in.
    static SessionKind detectSession();

    SessionKind session() const noexcept { return session_; }
    // The trigger key as an X keysym name ("Control_R") and as the user knows it ("Right Ctrl").
    const std::string& triggerKey() const noexcept;
    std::string triggerKeyDisplayName() const;
    // Watches another trigger key from now on (the settings changed it); false, keeping the old
    // key, when the name is unknown. Logged either way.
    bool setTriggerKey(const std::string& key);

    platform::KeyMonitor& keyMonitor();
    platform::AccessibilityClient& accessibility() { return *accessibility_; }
    platform::FieldEditWatcher& fieldEditWatcher() { return *fieldEditWatcher_; }
    platform::Pasteboard& pasteboard() { return *pasteboard_; }
    platform::KeySynthesizer& keySynthesizer() { return *keySynthesizer_; }
    platform::Workspace& workspace() { return *workspace_; }
    // The model engine as the session sees it: none while the settings ask for the fallback.
    platform::ModelEngine& modelEngine();
    // The model files on this machine, shared by the engine and the settings window.
    ModelInventory& modelInventory();
    // Loads and warms up the model that serves `locale` (one was just installed); returns at once.
    void loadModelInBackground(const std::string& locale);
    // A new idle time before the loaded model is released (the settings changed it).
    void setModelIdleReleaseMinutes(int minutes);
    platform::SegmentRecognizerProvider& segmentRecognizers();
    platform::AudioInput& audioInput() { return *audioInput_; }
    // The input-method routes, tried in this order before accessibility insertion (each reports
    // when it cannot deliver, and the next path runs).
    std::vector<platform::InputMethodCommitter*> inputMethods() const;
    const platform::InputMethodAddonInstaller& fcitx5AddonInstaller() const {
        return *fcitx5Addon_;
    }

    // A fresh microphone input for a second, independent capture (the test window's). Like the
    // session's, it follows the microphone chosen in the settings from its next capture on.
    std::unique_ptr<platform::AudioInput> makeAudioInput() const;

  private:
    PlatformBackends();

    SessionKind session_ = SessionKind::x11;
    platform::Preferences* preferences_ = nullptr;
    platform::SystemLog* systemLog_ = nullptr;
    std::unique_ptr<SwitchableKeyMonitor> keyMonitor_;
    std::unique_ptr<platform::AccessibilityClient> accessibility_;
    std::unique_ptr<platform::FieldEditWatcher> fieldEditWatcher_;
    std::unique_ptr<platform::Pasteboard> pasteboard_;
    std::unique_ptr<platform::KeySynthesizer> keySynthesizer_;
    std::unique_ptr<platform::Workspace> workspace_;
    std::unique_ptr<SpeechBackends> speech_;
    std::unique_ptr<platform::AudioInput> audioInput_;
    std::unique_ptr<platform::InputMethodCommitter> fcitx5_;
    std::unique_ptr<platform::InputMethodCommitter> ibus_;
    std::unique_ptr<platform::InputMethodAddonInstaller> fcitx5Addon_;
};

}  // namespace kelvo::app
