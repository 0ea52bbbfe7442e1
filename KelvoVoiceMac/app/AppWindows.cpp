#include "KelvoVoiceMac/app/AppWindows.h"

#include <QApplication>
#include <QCoreApplication>
#include <QDir>

#include "KelvoVoiceMac/session/AudioCaptureService.h"
#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "KelvoVoiceMac/session/SpeechService.h"
#include "KelvoVoiceMac/ui/AutostartEntry.h"
#include "KelvoVoiceMac/ui/DictationTestView.h"
#include "KelvoVoiceMac/ui/DictionaryWindowController.h"
#include "KelvoVoiceMac/ui/InputMethodSettingsSection.h"
#include "KelvoVoiceMac/ui/ModelSettingsSection.h"
#include "KelvoVoiceMac/ui/SettingsWindow.h"
#include "platform/linux/PulseAudioSourceList.h"

namespace kelvo::app {
namespace {

// The test window takes its recogniser as a plain owner, but SpeechService must be owned by a
// shared_ptr (its background work holds it weakly); this keeps that shared owner for the window.
class SharedSpeechService final : public DictationRecognizer {
  public:
    explicit SharedSpeechService(std::shared_ptr<SpeechService> service)
        : service_(std::move(service)) {}

    void setContextualStrings(std::vector<std::string> strings) override {
        service_->setContextualStrings(std::move(strings));
    }
    std::shared_ptr<Channel<TranscriptionEvent>> startTranscription(
        std::shared_ptr<Channel<AudioBuffer>> audio) override {
        return service_->startTranscription(std::move(audio));
    }
    QCoro::Task<> stop() override { return service_->stop(); }
    QCoro::Task<> stopAfterCatchingUp() override { return service_->stopAfterCatchingUp(); }

  private:
    std::shared_ptr<SpeechService> service_;
};

// Windows opened from a status-area menu belong to no other window; bring them to the front.
void present(QWidget& window) {
    window.show();
    window.setWindowState((window.windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    window.raise();
    window.activateWindow();
}

}  // namespace

AppWindows::AppWindows(Dependencies dependencies) : dependencies_(std::move(dependencies)) {}

AppWindows::~AppWindows() {
    testWindow_.reset();
    testAudioInput_.reset();
    settingsWindow_.reset();
    dictionaryWindowController_.reset();
}

void AppWindows::openDictionary() {
    if (!dictionaryWindowController_) {
        dictionaryWindowController_ = std::make_unique<DictionaryWindowController>(
            dependencies_.dictionaryStore, dependencies_.dictionaryEngine,
            dependencies_.suggestionStore, &dependencies_.preferences);
    }
    dictionaryWindowController_->show();
}

void AppWindows::openSettings() {
    if (!settingsWindow_) {
        auto executable = QCoreApplication::applicationFilePath().toStdString();
        settingsWindow_ = std::make_unique<SettingsWindow>(
            dependencies_.preferences, [] { return platform::PulseAudioSourceList::list(); },
            AutostartEntry(AutostartEntry::defaultFile(), executable));
        platform::Preferences& preferences = dependencies_.preferences;
        PlatformBackends& backends = dependencies_.backends;
        settingsWindow_->setModelSection(new ModelSettingsSection(
            dependencies_.modelInstaller,
            ModelSettingsSection::Bindings{
                .chosenModel =
                    [&preferences] {
                        return preferences.stringValue(PreferenceKeys::modelName, "");
                    },
                .setChosenModel =
                    [&preferences](const std::string& name) {
                        preferences.setString(PreferenceKeys::modelName, name);
                    },
                .downloadBaseURL =
                    [&preferences] {
                        return preferences.stringValue(PreferenceKeys::modelDownloadBaseURL, "");
                    },
                .setDownloadBaseURL =
                    [&preferences](const std::string& url) {
                        preferences.setString(PreferenceKeys::modelDownloadBaseURL, url);
                    },
                .idleReleaseMinutes =
                    [&preferences] {
                        return preferences.intValue(PreferenceKeys::modelIdleReleaseMinutes,
                                                    PreferenceKeys::defaultModelIdleReleaseMinutes);
                    },
                .setIdleReleaseMinutes =
                    [&preferences, &backends](int minutes) {
                        preferences.setInt(PreferenceKeys::modelIdleReleaseMinutes, minutes);
                        // A model loaded now is released after the new time, not the old one.
                        backends.setModelIdleReleaseMinutes(minutes);
                    },
                .recommendation = dependencies_.modelRecommendation,
            }));
        settingsWindow_->setInputMethodSection(new InputMethodSettingsSection(
            dependencies_.preferences, dependencies_.backends.inputMethods(),
            &dependencies_.backends.fcitx5AddonInstaller()));
        QObject::connect(settingsWindow_.get(), &SettingsWindow::preferenceChanged,
                         [this](const QString& key) {
                             if (dependencies_.preferenceChanged) {
                                 dependencies_.preferenceChanged(key);
                             }
                         });
    }
    settingsWindow_->present();
}

void AppWindows::showTestWindow() {
    if (!testWindow_) {
        testAudioInput_ = dependencies_.backends.makeAudioInput();
        auto speech = std::make_shared<SpeechService>(
            dependencies_.backends.modelEngine(), dependencies_.backends.segmentRecognizers(),
            dependencies_.clock, dependencies_.traceOutput);
        testWindow_ = std::make_unique<DictationTestView>(
            std::make_unique<AudioCaptureService>(*testAudioInput_),
            std::make_unique<SharedSpeechService>(std::move(speech)));
    }
    present(*testWindow_);
}

}  // namespace kelvo::app
