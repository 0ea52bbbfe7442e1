#pragma once

// FirstRunModelNotice tells the user, once, that no installed speech model serves the dictation
// locale, and offers the fix: a desktop notification "Japanese dictation needs a speech model"
// with the buttons "Install <model> (<size>)" (the model recommended for this computer, installed
// in the background) and "Open Settings" (the model section, where the recommendation is
// preselected). Until a model is installed, dictation runs on the fallback recogniser.
//
// Once means: at most one notification per run, and none at later starts after the user has
// answered it (pressed a button, clicked it or dismissed it), remembered in the preferences
// (kvmac_modelNoticeAnsweredLocale). A notification that expired unanswered, or that no
// notification server could show, comes back at the next start. Once a model serves the locale
// the answer is forgotten, so removing every model later brings the notice back once. Nothing is
// said while the settings ask for the fallback recogniser, or while a model is being installed.
// Nothing is downloaded unless the user presses Install. When the installation the notice started
// ends, a second notification says so ("Speech model installed", or why it was not, with a button
// to the settings), since the user may never open the settings window.
//
// Main thread only. The preferences, log and installation service must outlive it.

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "KelvoVoiceMac/session/ModelInstallationService.h"
#include "core/services/ModelRecommender.h"
#include "platform/Preferences.h"
#include "platform/SystemLog.h"

namespace kelvo::app {

class DesktopNotification;

class FirstRunModelNotice {
  public:
    struct Dependencies {
        platform::Preferences& preferences;
        platform::SystemLog& systemLog;
        ModelInstallationService& installer;
        std::optional<ModelRecommender::Recommendation> recommendation;
        std::function<void()> openSettings;
        std::string locale = "ja-JP";
    };

    explicit FirstRunModelNotice(Dependencies dependencies);
    ~FirstRunModelNotice();

    FirstRunModelNotice(const FirstRunModelNotice&) = delete;
    FirstRunModelNotice& operator=(const FirstRunModelNotice&) = delete;

    // Looks at the models and the preferences and shows the notice if it is due. Called once
    // start-up has finished; later calls in the same run do nothing.
    void check();

    // The summary and the install button's label, for the log and for tests.
    static constexpr const char* summary = "Japanese dictation needs a speech model";
    static constexpr const char* installedSummary = "Speech model installed";
    static constexpr const char* failedSummary = "Speech model not installed";
    static std::string installLabel(const ModelCatalogEntry& entry);

  private:
    void remember();
    void install();
    void installationChanged();

    Dependencies dependencies_;
    bool checked_ = false;
    bool answered_ = false;
    // True from the notice's Install until that installation has ended.
    bool installing_ = false;
    int observer_ = -1;
    std::unique_ptr<DesktopNotification> notification_;
    std::unique_ptr<DesktopNotification> outcomeNotification_;
};

}  // namespace kelvo::app
