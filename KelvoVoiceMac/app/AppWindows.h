#pragma once

// AppWindows owns the application's three windows and opens them for the menu: the dictionary
// editor ("Dictionary...", over the shared store and engine), the settings window ("Settings...")
// and the dictation test window ("Show Test Window", and a second launch of the application). Each
// window is made on first use and kept, so reopening shows the same window as the user left it.
// The test window drives its own microphone input and recogniser, separate from the session's.
//
// Main thread only. Owned by the AppDelegate; the backends, preferences, clock and trace output
// are borrowed and must outlive it.

#include <QString>
#include <functional>
#include <memory>
#include <optional>

#include "KelvoVoiceMac/app/PlatformBackends.h"
#include "KelvoVoiceMac/session/ModelInstallationService.h"
#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/services/JSONDictionaryStore.h"
#include "core/services/JSONSuggestionStore.h"
#include "core/services/ModelRecommender.h"
#include "platform/AudioInput.h"
#include "platform/Clock.h"
#include "platform/Preferences.h"
#include "platform/TraceOutput.h"

namespace kelvo::app {

class DictationTestView;
class DictionaryWindowController;
class SettingsWindow;

class AppWindows {
  public:
    struct Dependencies {
        PlatformBackends& backends;
        platform::Preferences& preferences;
        platform::Clock& clock;
        platform::TraceOutput& traceOutput;
        std::shared_ptr<JSONDictionaryStore> dictionaryStore;
        // None when the dictionary could not be loaded at start-up.
        std::shared_ptr<DictionaryCorrectionEngine> dictionaryEngine;
        // Suggestions learnt from corrections, listed in the dictionary window; none: not listed.
        std::shared_ptr<JSONSuggestionStore> suggestionStore;
        // Told about every setting the settings window changes (its preference key).
        std::function<void(const QString& key)> preferenceChanged;
        // Installs models for the settings window's model section.
        ModelInstallationService& modelInstaller;
        // The model suggested for this computer, preselected in the model section.
        std::optional<ModelRecommender::Recommendation> modelRecommendation;
    };

    explicit AppWindows(Dependencies dependencies);
    ~AppWindows();

    AppWindows(const AppWindows&) = delete;
    AppWindows& operator=(const AppWindows&) = delete;

    void openDictionary();
    void openSettings();
    void showTestWindow();

  private:
    Dependencies dependencies_;
    std::unique_ptr<DictionaryWindowController> dictionaryWindowController_;
    std::unique_ptr<SettingsWindow> settingsWindow_;
    // The test window's own microphone; declared before the window, which borrows it.
    std::unique_ptr<platform::AudioInput> testAudioInput_;
    std::unique_ptr<DictationTestView> testWindow_;
};

}  // namespace kelvo::app
