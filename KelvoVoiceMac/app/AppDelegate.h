#pragma once

// AppDelegate builds the application's long-lived objects once the application has finished
// launching: it switches standard output to unbuffered mode and starts one main-thread task that
// locates the user dictionary ($XDG_DATA_HOME/KelvoVoiceMac/dictionary.json), builds the store and
// the correction engine over it (going on without corrections when the dictionary cannot be
// loaded), builds the platform backends, the dictation session (MenuBarManager) with its capture,
// speech and insertion services, the status item and the trigger-key gesture recogniser, starts
// the latter, and shows the status item once a status-area host is there (or gives up waiting,
// says so once in the log and runs on without one: the trigger key still works). Then, when no
// installed speech model serves Japanese, the first-run notice offers the model recommended for
// this computer; a model installation in the background shows its progress in the status item's
// tooltip.
//
// Main thread only. Owned by KelvoVoiceMacApp for the life of the process; the fields stay empty
// until the set-up task has finished. Destruction takes the objects down in the reverse order of
// their dependencies (the process has no other teardown).

#include <QCoroTask>
#include <QFileSystemWatcher>
#include <QString>
#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "KelvoVoiceMac/app/CorrectionSuggestionNotifier.h"
#include "KelvoVoiceMac/app/PlatformBackends.h"
#include "KelvoVoiceMac/session/AudioCaptureService.h"
#include "KelvoVoiceMac/session/CorrectionLearner.h"
#include "KelvoVoiceMac/session/GlobalHotkeyService.h"
#include "KelvoVoiceMac/session/MenuBarManager.h"
#include "KelvoVoiceMac/session/ModelInstallationService.h"
#include "KelvoVoiceMac/session/SpeechService.h"
#include "KelvoVoiceMac/session/TextInsertionService.h"
#include "KelvoVoiceMac/shell/TrayStatusItem.h"
#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/services/JSONDictionaryStore.h"
#include "core/services/JSONSuggestionStore.h"
#include "platform/QSettingsPreferences.h"
#include "platform/QtClock.h"
#include "platform/StdoutTraceOutput.h"
#include "platform/SyslogSystemLog.h"

namespace kelvo::app {

class AppWindows;
class FirstRunModelNotice;

class AppDelegate {
  public:
    // alwaysLogToStderr mirrors the state lines to standard error also when it is not a terminal.
    explicit AppDelegate(bool alwaysLogToStderr);
    ~AppDelegate();

    AppDelegate(const AppDelegate&) = delete;
    AppDelegate& operator=(const AppDelegate&) = delete;

    // Starts the set-up task and returns at once.
    void applicationDidFinishLaunching();

    // Carries out a SingleInstance request (a window to show), at once or, before set-up has
    // finished, as soon as it has. Unknown requests are ignored.
    void handleRequest(const QString& request);

    // Called once the status item is shown, or once start-up has given up waiting for a host.
    void setStartUpFinishedHandler(std::function<void()> handler) {
        startUpFinished_ = std::move(handler);
    }

    // Empty until the set-up task has finished.
    const std::shared_ptr<MenuBarManager>& menuBarManager() const { return menuBarManager_; }
    const std::unique_ptr<GlobalHotkeyService>& globalHotkeyService() const {
        return globalHotkeyService_;
    }
    const std::shared_ptr<JSONDictionaryStore>& dictionaryStore() const { return dictionaryStore_; }
    const std::shared_ptr<DictionaryCorrectionEngine>& dictionaryEngine() const {
        return dictionaryEngine_;
    }

    // "<data home>/KelvoVoiceMac/dictionary.json"; creates the folder (logging a failure).
    static std::filesystem::path locateDictionaryFile(platform::SystemLog& systemLog);

  private:
    QCoro::Task<> runSetUp();
    void buildSession();
    void watchDictionaryFolder();
    void preferenceChanged(const QString& key);
    void modelInstallationChanged();
    void quit();

    // Process-wide sinks and clock, first so that they outlive everything below.
    platform::SyslogSystemLog systemLog_;
    platform::StdoutTraceOutput traceOutput_;
    platform::QtClock clock_;
    platform::QSettingsPreferences preferences_;

    std::shared_ptr<MenuBarManager> menuBarManager_;
    std::unique_ptr<GlobalHotkeyService> globalHotkeyService_;
    std::shared_ptr<JSONDictionaryStore> dictionaryStore_;
    std::shared_ptr<DictionaryCorrectionEngine> dictionaryEngine_;

    std::unique_ptr<PlatformBackends> backends_;
    std::unique_ptr<AudioCaptureService> audioCaptureService_;
    std::shared_ptr<SpeechService> speechService_;
    std::unique_ptr<TextInsertionService> textInsertionService_;
    std::unique_ptr<TrayStatusItem> statusItem_;
    std::shared_ptr<JSONSuggestionStore> suggestionStore_;
    std::unique_ptr<CorrectionSuggestionNotifier> suggestionNotifier_;
    std::unique_ptr<CorrectionLearner> correctionLearner_;
    std::unique_ptr<QFileSystemWatcher> dictionaryFolderWatcher_;
    std::unique_ptr<ModelInstallationService> modelInstaller_;
    std::unique_ptr<AppWindows> windows_;
    std::unique_ptr<FirstRunModelNotice> firstRunModelNotice_;
    // The model the last installation observed was installing, until it has ended.
    std::string installingModel_;
    std::function<void()> startUpFinished_;
    QString pendingRequest_;
};

}  // namespace kelvo::app
