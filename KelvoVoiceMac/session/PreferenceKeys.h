#pragma once

// PreferenceKeys names the user settings that the settings window writes and the application's
// wiring reads at the start of each dictation, with the default that applies while a key was never
// written. One home for both, so the writer and the readers cannot drift apart. The filler setting
// keeps its home in MenuBarManager (fillerRemovalEnabledKey), which registers its default. Start at
// login is not a preference: it is the presence of the XDG autostart entry (AutostartEntry).

namespace kelvo::app {

struct PreferenceKeys {
    // X keysym name of the push-to-talk key.
    static constexpr const char* triggerKey = "kvmac_triggerKey";
    static constexpr const char* defaultTriggerKey = "Control_R";

    // PulseAudio source name; empty selects the server's default source.
    static constexpr const char* microphoneSource = "kvmac_microphoneSource";

    // Extra WM_CLASS names (string list) whose windows get Ctrl+Shift+V instead of Ctrl+V.
    static constexpr const char* terminalWindowClasses = "kvmac_terminalWindowClasses";
    // The desktop portal's token that restores the permission to type the paste chord (GNOME,
    // KDE under Wayland) without asking again.
    static constexpr const char* remoteDesktopRestoreToken = "kvmac_remoteDesktopRestoreToken";

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
};

}  // namespace kelvo::app
