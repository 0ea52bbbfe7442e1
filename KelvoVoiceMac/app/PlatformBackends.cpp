#include "KelvoVoiceMac/app/PlatformBackends.h"

#include <cstdlib>
#include <stdexcept>
#include <string_view>

#include "KelvoVoiceMac/app/PermissionHelpWorkspace.h"
#include "KelvoVoiceMac/app/PreferredSourceAudioInput.h"
#include "KelvoVoiceMac/app/SpeechBackends.h"
#include "KelvoVoiceMac/app/SwitchableKeyMonitor.h"
#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "platform/AssetInstallationRequest.h"
#include "platform/ModelTranscriber.h"
#include "platform/linux/AtspiAccessibilityClient.h"
#include "platform/linux/AtspiFieldEditWatcher.h"
#include "platform/linux/EvdevKeyMonitor.h"
#include "platform/linux/Fcitx5AddonInstaller.h"
#include "platform/linux/Fcitx5InputMethodCommitter.h"
#include "platform/linux/IBusInputMethodCommitter.h"
#include "platform/linux/PulseAudioInput.h"
#include "platform/linux/QClipboardPasteboard.h"
#include "platform/linux/X11Workspace.h"
#include "platform/linux/XInputKeyMonitor.h"
#include "platform/linux/XTestKeySynthesizer.h"
#include "platform/whisper/BuiltInModelEngine.h"

namespace kelvo::app {
namespace {

std::string environment(const char* name) {
    const char* value = std::getenv(name);
    return value ? value : "";
}

const char* sessionName(PlatformBackends::SessionKind kind) {
    switch (kind) {
        case PlatformBackends::SessionKind::x11:
            return "x11";
        case PlatformBackends::SessionKind::wayland:
            return "wayland";
        case PlatformBackends::SessionKind::console:
            break;
    }
    return "console";
}

// A paste chord needs a way to inject keys into the focused client; under Wayland that is the
// remote-desktop portal or uinput, neither of which is built yet. Failing here sends insertion to
// its failure path, where the dictated text is kept for "Paste Last Dictation".
class NoKeySynthesizer final : public platform::KeySynthesizer {
  public:
    bool sendPaste() override { return false; }
};

// The built-in catalogue, or the list that KELVO_MODEL_CATALOG names (a private mirror's, as for
// `kelvo models`); an unusable list is logged and the built-in one used.
ModelCatalog modelCatalog(platform::SystemLog& systemLog) {
    const std::string file = environment("KELVO_MODEL_CATALOG");
    if (!file.empty()) {
        try {
            ModelCatalog catalog = ModelCatalog::fromJsonFile(file);
            systemLog.write("[KelvoVoice] Model catalogue=" + file);
            return catalog;
        } catch (const std::exception& error) {
            systemLog.write(std::string("[KelvoVoice] Model catalogue not used: ") + error.what());
        }
    }
    return ModelCatalog::builtIn();
}

}  // namespace

PlatformBackends::PlatformBackends()
    : fcitx5Addon_(std::make_unique<platform::Fcitx5AddonInstaller>()) {}

PlatformBackends::~PlatformBackends() = default;

platform::KeyMonitor& PlatformBackends::keyMonitor() {
    return *keyMonitor_;
}

PlatformBackends::SessionKind PlatformBackends::detectSession() {
    std::string type = environment("XDG_SESSION_TYPE");
    bool hasWayland = !environment("WAYLAND_DISPLAY").empty();
    bool hasX11 = !environment("DISPLAY").empty();
    // Under Wayland, DISPLAY names XWayland, which sees only X clients' keys and windows: the
    // Wayland backends are the right ones there even though an X server answers.
    if (type == "wayland" || (type.empty() && hasWayland)) {
        return SessionKind::wayland;
    }
    if (type == "x11" || hasX11) {
        return SessionKind::x11;
    }
    return SessionKind::console;
}

std::unique_ptr<PlatformBackends> PlatformBackends::create(platform::Preferences& preferences,
                                                           platform::SystemLog& systemLog,
                                                           platform::Clock& clock) {
    std::unique_ptr<PlatformBackends> backends(new PlatformBackends());
    backends->session_ = detectSession();
    backends->preferences_ = &preferences;
    backends->systemLog_ = &systemLog;
    std::string triggerKey =
        preferences.stringValue(PreferenceKeys::triggerKey, PreferenceKeys::defaultTriggerKey);
    bool x11 = backends->session_ == SessionKind::x11;
    auto choose = [&systemLog](const char* seam, const char* backend) {
        systemLog.write(std::string("[KelvoVoice] Backend ") + seam + "=" + backend);
    };
    systemLog.write(std::string("[KelvoVoice] Session type=") + sessionName(backends->session_));

    auto makeKeyMonitor = [x11](const std::string& key) -> std::unique_ptr<platform::KeyMonitor> {
        if (x11) {
            return std::make_unique<platform::XInputKeyMonitor>(key);
        }
        return std::make_unique<platform::EvdevKeyMonitor>(key);
    };
    // An unknown key name in the settings must not leave the user without any trigger.
    try {
        backends->keyMonitor_ = std::make_unique<SwitchableKeyMonitor>(makeKeyMonitor, triggerKey);
    } catch (const std::invalid_argument&) {
        systemLog.write("[KelvoVoice] Unknown trigger key " + triggerKey + "; using " +
                        PreferenceKeys::defaultTriggerKey);
        backends->keyMonitor_ = std::make_unique<SwitchableKeyMonitor>(
            makeKeyMonitor, PreferenceKeys::defaultTriggerKey);
    }
    choose("keyMonitor", x11 ? "XInputKeyMonitor" : "EvdevKeyMonitor");

    backends->accessibility_ = std::make_unique<platform::AtspiAccessibilityClient>();
    choose("accessibility", "AtspiAccessibilityClient");
    backends->fieldEditWatcher_ =
        std::make_unique<platform::AtspiFieldEditWatcher>(*backends->accessibility_);
    choose("fieldEditWatcher", "AtspiFieldEditWatcher");
    backends->pasteboard_ = std::make_unique<platform::QClipboardPasteboard>();
    choose("pasteboard", "QClipboardPasteboard");
    if (x11) {
        backends->keySynthesizer_ = std::make_unique<platform::XTestKeySynthesizer>([&preferences] {
            return preferences.stringListValue(PreferenceKeys::terminalWindowClasses);
        });
        choose("keySynthesizer", "XTestKeySynthesizer");
    } else {
        backends->keySynthesizer_ = std::make_unique<NoKeySynthesizer>();
        choose("keySynthesizer", "none (no synthetic paste outside X11 yet)");
    }
    // X11Workspace without a display reports no frontmost application and still opens the
    // desktop's settings; the wrapper shows the written help where no settings page exists.
    backends->workspace_ =
        std::make_unique<PermissionHelpWorkspace>(std::make_unique<platform::X11Workspace>(), x11);
    choose("workspace", "X11Workspace");

    backends->fcitx5_ = std::make_unique<platform::Fcitx5InputMethodCommitter>();
    backends->ibus_ = std::make_unique<platform::IBusInputMethodCommitter>();
    choose("inputMethods", "Fcitx5InputMethodCommitter, IBusInputMethodCommitter");

    backends->audioInput_ = backends->makeAudioInput();
    choose("audioInput", "PulseAudioInput");
    // The model inventory exists in every build: the settings window lists and installs models
    // with it even where this build cannot run them yet.
    backends->speech_ = std::make_unique<SpeechBackends>(
        SpeechBackends::Options{
            .locations = DataLocations::ofProcess(),
            .catalog = modelCatalog(systemLog),
            .modelSettings =
                ModelInventory::Settings{
                    preferences.stringValue(PreferenceKeys::modelName, ""),
                    preferences.stringValue(PreferenceKeys::modelDownloadBaseURL, ""),
                },
            .modelIdleReleaseMinutes =
                preferences.intValue(PreferenceKeys::modelIdleReleaseMinutes,
                                     PreferenceKeys::defaultModelIdleReleaseMinutes),
            .isModelEngineWanted =
                [&preferences] {
                    return preferences.stringValue(PreferenceKeys::recognitionEngine,
                                                   PreferenceKeys::defaultRecognitionEngine) !=
                           PreferenceKeys::recognitionEngineFallback;
                },
            .log = [&systemLog](const std::string& line) { systemLog.write(line); },
            .systemLocale = platform::PocketSphinxModelLocator::systemLocale(),
        },
        clock);
    // The first dictation must not wait for the model: load and warm it up now.
    backends->speech_->builtInModelEngine().loadInBackground("ja-JP");
    choose("modelEngine", platform::BuiltInModelEngine::name());
    choose("segmentRecognizer", "PocketSphinxRecognizerProvider");
    return backends;
}

std::vector<platform::InputMethodCommitter*> PlatformBackends::inputMethods() const {
    return {fcitx5_.get(), ibus_.get()};
}

std::unique_ptr<platform::AudioInput> PlatformBackends::makeAudioInput() const {
    platform::Preferences* preferences = preferences_;
    return std::make_unique<PreferredSourceAudioInput>(
        [](const std::string& source) {
            return std::make_unique<platform::PulseAudioInput>(source);
        },
        [preferences] { return preferences->stringValue(PreferenceKeys::microphoneSource, ""); });
}

platform::ModelEngine& PlatformBackends::modelEngine() {
    return speech_->modelEngine();
}

ModelInventory& PlatformBackends::modelInventory() {
    return speech_->modelInventory();
}

platform::SegmentRecognizerProvider& PlatformBackends::segmentRecognizers() {
    return speech_->segmentRecognizers();
}

void PlatformBackends::loadModelInBackground(const std::string& locale) {
    speech_->builtInModelEngine().loadInBackground(locale);
}

void PlatformBackends::setModelIdleReleaseMinutes(int minutes) {
    speech_->builtInModelEngine().setIdleReleaseMinutes(minutes);
}

const std::string& PlatformBackends::triggerKey() const noexcept {
    return keyMonitor_->triggerKey();
}

bool PlatformBackends::setTriggerKey(const std::string& key) {
    if (!keyMonitor_->setTriggerKey(key)) {
        systemLog_->write("[KelvoVoice] Unknown trigger key " + key + "; keeping " +
                          keyMonitor_->triggerKey());
        return false;
    }
    systemLog_->write("[KelvoVoice] Trigger key=" + key);
    return true;
}

std::string PlatformBackends::triggerKeyDisplayName() const {
    static constexpr std::pair<std::string_view, std::string_view> kNames[] = {
        {"Control_R", "Right Ctrl"},   {"Control_L", "Left Ctrl"},
        {"Alt_R", "Right Alt"},        {"Alt_L", "Left Alt"},
        {"Super_R", "Right Super"},    {"Super_L", "Left Super"},
        {"Shift_R", "Right Shift"},    {"Shift_L", "Left Shift"},
        {"ISO_Level3_Shift", "AltGr"}, {"Menu", "Menu"},
        {"Caps_Lock", "Caps Lock"},
    };
    for (const auto& [keysym, name] : kNames) {
        if (keysym == triggerKey()) {
            return std::string(name);
        }
    }
    return triggerKey();
}

}  // namespace kelvo::app
