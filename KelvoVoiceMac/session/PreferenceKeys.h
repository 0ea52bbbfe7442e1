#pragma once

// PreferenceKeys names the user settings that the menu and the settings window write and the
// session and the application's wiring read, with the default that applies while a key was never
// written. One home for both, so the writer and the readers cannot drift apart. Boolean defaults
// are registered with the preferences (registerDefaults(), which the session controller calls once
// when it is built); the others are passed by each reader as its fallback. Start at login is not a
// preference: it is the presence of the XDG autostart entry (AutostartEntry).

#include "platform/Preferences.h"

namespace kelvo::app {

struct PreferenceKeys {
    // Whether filler words are removed from the finished text; read at every stop.
    static constexpr const char* fillerRemovalEnabled = "kvmac_fillerRemovalEnabled";
    static constexpr bool defaultFillerRemovalEnabled = true;

    // Whether the input-method route (Fcitx5, IBus) is tried before accessibility insertion.
    static constexpr const char* inputMethodInsertionEnabled = "kvmac_inputMethodInsertionEnabled";
    static constexpr bool defaultInputMethodInsertionEnabled = true;

    // X keysym name of the push-to-talk key.
    static constexpr const char* triggerKey = "kvmac_triggerKey";
    static constexpr const char* defaultTriggerKey = "Control_R";

    // PulseAudio source name; empty selects the server's default source.
    static constexpr const char* microphoneSource = "kvmac_microphoneSource";

    // Extra WM_CLASS names (string list) whose windows get Ctrl+Shift+V instead of Ctrl+V.
    static constexpr const char* terminalWindowClasses = "kvmac_terminalWindowClasses";

    // "automatic": the model engine when it is ready, else the fallback; "fallback": always the
    // fallback recogniser.
    static constexpr const char* recognitionEngine = "kvmac_recognitionEngine";
    static constexpr const char* recognitionEngineAutomatic = "automatic";
    static constexpr const char* recognitionEngineFallback = "fallback";
    static constexpr const char* defaultRecognitionEngine = recognitionEngineAutomatic;

    // The chosen model's catalogue name; empty selects the best installed model.
    static constexpr const char* modelName = "kvmac_modelName";
    // Minutes of no dictation after which the loaded model is released (int).
    static constexpr const char* modelIdleReleaseMinutes = "kvmac_modelIdleReleaseMinutes";
    static constexpr int defaultModelIdleReleaseMinutes = 10;
    // Download mirror; empty uses the catalogue's own URLs.
    static constexpr const char* modelDownloadBaseURL = "kvmac_modelDownloadBaseURL";
    // The locale whose "no speech model" notice the user has answered (installed, opened the
    // settings or dismissed it); empty while unanswered. Cleared once a model serves the locale,
    // so the notice comes back if the models are removed later.
    static constexpr const char* modelNoticeAnsweredLocale = "kvmac_modelNoticeAnsweredLocale";

    // Whether an edit of dictated text right after it went in may propose a dictionary entry
    // (bool, default true: CorrectionLearner registers it).
    static constexpr const char* correctionLearningEnabled = "kvmac_correctionLearningEnabled";
    // How long the field is watched after a dictation, in seconds (int).
    static constexpr const char* correctionWatchSeconds = "kvmac_correctionWatchSeconds";
    static constexpr int defaultCorrectionWatchSeconds = 30;
    // Set once the user has been told that learning is on (bool).
    static constexpr const char* correctionLearningNoticeShown =
        "kvmac_correctionLearningNoticeShown";

    static void registerDefaults(platform::Preferences& preferences) {
        preferences.registerDefault(fillerRemovalEnabled, defaultFillerRemovalEnabled);
        preferences.registerDefault(inputMethodInsertionEnabled,
                                    defaultInputMethodInsertionEnabled);
    }
};

}  // namespace kelvo::app
