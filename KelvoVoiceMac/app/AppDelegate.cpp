#include "KelvoVoiceMac/app/AppDelegate.h"

#include <qcorofuture.h>
#include <QCoreApplication>
#include <QFileSystemWatcher>
#include <QTimer>
#include <QtConcurrent/QtConcurrentRun>
#include <cstdio>
#include <exception>
#include <system_error>
#include <utility>

#include "KelvoVoiceMac/app/AppWindows.h"
#include "KelvoVoiceMac/app/FirstRunModelNotice.h"
#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "KelvoVoiceMac/shell/SingleInstance.h"
#include "KelvoVoiceMac/shell/TrayHostWaiter.h"
#include "core/services/CpuCapabilities.h"
#include "core/services/ModelRecommender.h"
#include "core/support/DataLocations.h"
#include "core/support/Error.h"

namespace kelvo::app {
namespace {

constexpr const char* kLogIdentity = "KelvoVoice";
constexpr const char* kDictationLocale = "ja-JP";

// The engine loads its entries while it is built; that reads the disk, so it runs on a worker.
struct EngineOutcome {
    std::shared_ptr<DictionaryCorrectionEngine> engine;
    std::string error;
};

EngineOutcome buildEngine(std::shared_ptr<JSONDictionaryStore> store) {
    try {
        return {std::make_shared<DictionaryCorrectionEngine>(std::move(store)), {}};
    } catch (const std::exception& error) {
        return {nullptr, error.what()};
    }
}

}  // namespace

AppDelegate::AppDelegate(bool alwaysLogToStderr) : systemLog_(kLogIdentity, alwaysLogToStderr) {}

AppDelegate::~AppDelegate() {
    // Borrowers before what they borrow: the recogniser holds the session weakly and the key
    // monitor by reference; the session borrows the services and the status item.
    globalHotkeyService_.reset();
    menuBarManager_.reset();
    dictionaryFolderWatcher_.reset();
    correctionLearner_.reset();
    suggestionNotifier_.reset();
    // The notice and the settings window use the installer, whose observer uses the status item.
    firstRunModelNotice_.reset();
    windows_.reset();
    modelInstaller_.reset();
    statusItem_.reset();
    textInsertionService_.reset();
    speechService_.reset();
    audioCaptureService_.reset();
    backends_.reset();
    dictionaryEngine_.reset();
    dictionaryStore_.reset();
}

void AppDelegate::applicationDidFinishLaunching() {
    // Transcript lines must reach a pipe or a terminal as they are written.
    std::setvbuf(stdout, nullptr, _IONBF, 0);
    QTimer::singleShot(0, [this] { runSetUp(); });
}

std::filesystem::path AppDelegate::locateDictionaryFile(platform::SystemLog& systemLog) {
    std::filesystem::path file;
    try {
        file = DataLocations::ofProcess().dictionaryFile();
    } catch (const Error&) {
        // Without a home there is nowhere to keep the user's dictionary at all.
        qFatal("KelvoVoice: no user data folder (neither XDG_DATA_HOME nor HOME is usable)");
    }
    std::error_code error;
    std::filesystem::create_directories(file.parent_path(), error);
    if (error) {
        systemLog.write("[KelvoVoice] Failed to create dictionary directory: " + error.message());
    }
    return file;
}

QCoro::Task<> AppDelegate::runSetUp() {
    // The wait for a status-area host runs beside the dictionary load (QCoro tasks start at once).
    auto hostWait = TrayHostWaiter::wait();

    auto fileURL = locateDictionaryFile(systemLog_);
    // A save from the editor after a failed load moves the unreadable file aside instead of
    // overwriting it; say where it went, since the editor itself only shows the new list.
    dictionaryStore_ = std::make_shared<JSONDictionaryStore>(
        fileURL, JSONDictionaryStore::SaveObserver{},
        [this](const std::filesystem::path& damaged, const std::filesystem::path& movedTo,
               const std::string& reason) {
            systemLog_.write("[KelvoVoice] Damaged dictionary " + damaged.string() +
                             " moved aside to " + movedTo.string() + ": " + reason);
        });
    EngineOutcome outcome = co_await QtConcurrent::run(buildEngine, dictionaryStore_);
    if (outcome.engine) {
        dictionaryEngine_ = std::move(outcome.engine);
    } else {
        systemLog_.write("[KelvoVoice] Failed to initialize dictionary engine: " + outcome.error);
        dictionaryEngine_.reset();
    }

    buildSession();
    globalHotkeyService_->start();
    watchDictionaryFolder();

    TrayHostWaiter::Host host = co_await hostWait;
    if (host == TrayHostWaiter::Host::none) {
        systemLog_.write(
            "[KelvoVoice] No status area found on this desktop: running without a status icon; "
            "the trigger key still works");
    } else {
        systemLog_.write("[KelvoVoice] Status area host=" +
                         std::string(TrayHostWaiter::name(host)));
    }
    // Also without a host: an XEmbed tray that appears later still picks the icon up.
    statusItem_->show();
    if (!pendingRequest_.isEmpty()) {
        handleRequest(std::exchange(pendingRequest_, QString()));
    }
    firstRunModelNotice_->check();
    if (startUpFinished_) {
        startUpFinished_();
    }
}

void AppDelegate::buildSession() {
    backends_ = PlatformBackends::create(preferences_, systemLog_, clock_);
    audioCaptureService_ = std::make_unique<AudioCaptureService>(backends_->audioInput());
    speechService_ = std::make_shared<SpeechService>(
        backends_->modelEngine(), backends_->segmentRecognizers(), clock_, traceOutput_);
    textInsertionService_ =
        std::make_unique<TextInsertionService>(TextInsertionService::Dependencies{
            .accessibility = backends_->accessibility(),
            .pasteboard = backends_->pasteboard(),
            .keySynthesizer = backends_->keySynthesizer(),
            .workspace = backends_->workspace(),
            .clock = clock_,
            .traceOutput = traceOutput_,
            .inputMethods = backends_->inputMethods(),
            .preferences = &preferences_,
        });
    // Corrections right after a dictation become dictionary suggestions (listed in the
    // dictionary window too).
    suggestionStore_ = std::make_shared<JSONSuggestionStore>(
        JSONSuggestionStore::fileBeside(dictionaryStore_->fileURL()),
        [this](const std::filesystem::path& damaged, const std::filesystem::path& movedTo,
               const std::string& reason) {
            systemLog_.write("[KelvoVoice] Damaged suggestion list " + damaged.string() +
                             " moved aside to " + movedTo.string() + ": " + reason);
        });
    modelInstaller_ =
        std::make_unique<ModelInstallationService>(backends_->modelInventory(), systemLog_);
    // Reads /proc/cpuinfo: cheap enough for start-up, and the machine does not change under us.
    std::optional<ModelRecommender::Recommendation> recommendation = ModelRecommender::recommend(
        backends_->modelInventory().catalog(), ModelCatalog::languageOfLocale(kDictationLocale),
        CpuCapabilities::detect());
    windows_ = std::make_unique<AppWindows>(AppWindows::Dependencies{
        .backends = *backends_,
        .preferences = preferences_,
        .clock = clock_,
        .traceOutput = traceOutput_,
        .dictionaryStore = dictionaryStore_,
        .dictionaryEngine = dictionaryEngine_,
        .suggestionStore = suggestionStore_,
        .preferenceChanged = [this](const QString& key) { preferenceChanged(key); },
        .modelInstaller = *modelInstaller_,
        .modelRecommendation = recommendation,
    });

    // The menu's actions reach the session through this weak handle: the session is made after
    // the status item it presents to.
    auto session = std::make_shared<std::weak_ptr<MenuBarManager>>();
    auto withSession = [session](auto action) {
        return [session, action] {
            if (auto manager = session->lock()) {
                action(*manager);
            }
        };
    };
    bool readsInputDevices = backends_->session() != PlatformBackends::SessionKind::x11;
    statusItem_ = std::make_unique<TrayStatusItem>(TrayStatusItem::Dependencies{
        .preferences = preferences_,
        .systemLog = systemLog_,
        .permissions = {
            .isAccessibilityTrusted = [this] { return backends_->accessibility().isTrusted(); },
            .hasInputMonitoringAccess =
                [this] { return backends_->keyMonitor().hasListenAccess(); },
            .triggerKeyName = [this] { return backends_->triggerKeyDisplayName(); },
            .readsInputDevices = readsInputDevices,
        },
        .actions = {
            .startDictation = withSession([](MenuBarManager& m) { m.startDictation(); }),
            .pasteLastDictation = withSession([](MenuBarManager& m) { m.pasteLastText(); }),
            .hasLastDictation =
                [session] {
                    auto manager = session->lock();
                    return manager &&
                           (manager->lastUninsertedText() || manager->lastInsertedText());
                },
            .openAccessibilitySettings =
                [this] { textInsertionService_->openAccessibilitySettings(); },
            .openInputMonitoringSettings =
                [this] { globalHotkeyService_->openInputMonitoringSettings(); },
            .openDictionary = [this] { windows_->openDictionary(); },
            .openSettings = [this] { windows_->openSettings(); },
            .showTestWindow = [this] { windows_->showTestWindow(); },
            .quit = [this] { quit(); },
        },
    });

    // The learner sits between the session and the inserter and status item it reports to.
    suggestionNotifier_ = std::make_unique<CorrectionSuggestionNotifier>(
        suggestionStore_, dictionaryStore_, dictionaryEngine_, systemLog_);
    correctionLearner_ = std::make_unique<CorrectionLearner>(CorrectionLearner::Dependencies{
        .textInsertionService = *textInsertionService_,
        .statusItem = *statusItem_,
        .fieldEditWatcher = backends_->fieldEditWatcher(),
        .dictionaryEngine = dictionaryEngine_,
        .preferences = preferences_,
        .clock = clock_,
        .traceOutput = traceOutput_,
        .suggest = [this](const CorrectionSuggestion& seen) { suggestionNotifier_->offer(seen); },
        .firstUse = [this] { suggestionNotifier_->announceLearning(); },
    });

    menuBarManager_ = std::make_shared<MenuBarManager>(MenuBarManager::Dependencies{
        .audioCaptureService = *audioCaptureService_,
        .speechService = *speechService_,
        .textInsertionService = *correctionLearner_,
        .dictionaryStore = dictionaryStore_,
        .dictionaryEngine = dictionaryEngine_,
        .preferences = preferences_,
        .clock = clock_,
        .systemLog = systemLog_,
        .traceOutput = traceOutput_,
        .statusItem = *correctionLearner_,
    });
    *session = menuBarManager_;
    // The session registered the preference defaults; the menu was built before it.
    statusItem_->syncFillerRemovalCheck();

    modelInstaller_->addObserver([this] { modelInstallationChanged(); });
    firstRunModelNotice_ = std::make_unique<FirstRunModelNotice>(FirstRunModelNotice::Dependencies{
        .preferences = preferences_,
        .systemLog = systemLog_,
        .installer = *modelInstaller_,
        .recommendation = recommendation,
        .openSettings = [this] { windows_->openSettings(); },
        .locale = kDictationLocale,
    });

    TextInsertionService* inserter = textInsertionService_.get();
    globalHotkeyService_ = std::make_unique<GlobalHotkeyService>(GlobalHotkeyService::Dependencies{
        .menuBarManager = menuBarManager_,
        .keyMonitor = backends_->keyMonitor(),
        .workspace = backends_->workspace(),
        .clock = clock_,
        .systemLog = systemLog_,
        .isInjectingKeys = [inserter] { return inserter->isInjectingKeys(); },
    });
}

void AppDelegate::watchDictionaryFolder() {
    if (!dictionaryEngine_) {
        return;
    }
    // Entries written by kelvo (an accepted suggestion, say) apply from the next dictation on.
    // The files are replaced by rename, which the folder reports; inotify, so nothing runs idle.
    dictionaryFolderWatcher_ = std::make_unique<QFileSystemWatcher>(
        QStringList{QString::fromStdString(dictionaryStore_->fileURL().parent_path().string())});
    QObject::connect(dictionaryFolderWatcher_.get(), &QFileSystemWatcher::directoryChanged,
                     [engine = dictionaryEngine_] {
                         // A damaged file leaves the entries in force; the editor reports it.
                         (void)QtConcurrent::run([engine] {
                             try {
                                 engine->reload();
                             } catch (const std::exception&) {
                             }
                         });
                     });
}

void AppDelegate::handleRequest(const QString& request) {
    if (!windows_ || !statusItem_->isShown()) {
        pendingRequest_ = request;
        return;
    }
    if (request == QLatin1String(SingleInstance::showTestWindowRequest)) {
        windows_->showTestWindow();
    } else if (request == QLatin1String(SingleInstance::openDictionaryRequest)) {
        windows_->openDictionary();
    } else if (request == QLatin1String(SingleInstance::openSettingsRequest)) {
        windows_->openSettings();
    }
}

void AppDelegate::preferenceChanged(const QString& key) {
    if (key == QLatin1String(PreferenceKeys::fillerRemovalEnabled) && statusItem_) {
        statusItem_->syncFillerRemovalCheck();
    } else if (key == QLatin1String(PreferenceKeys::triggerKey) && backends_) {
        backends_->setTriggerKey(preferences_.stringValue(PreferenceKeys::triggerKey,
                                                          PreferenceKeys::defaultTriggerKey));
    }
}

void AppDelegate::modelInstallationChanged() {
    if (const ModelCatalogEntry* current = modelInstaller_->current()) {
        installingModel_ = current->name;
        statusItem_->setActivity(
            QStringLiteral("Installing speech model %1: %2 %")
                .arg(QString::fromStdString(current->name))
                .arg(static_cast<int>(modelInstaller_->fractionCompleted() * 100)));
        return;
    }
    statusItem_->setActivity({});
    const auto& outcome = modelInstaller_->lastOutcome();
    if (!installingModel_.empty() && outcome && !outcome->failure) {
        // Ready before the next dictation asks for it; until then dictation used the fallback.
        backends_->loadModelInBackground(kDictationLocale);
    }
    installingModel_.clear();
}

void AppDelegate::quit() {
    QCoreApplication::quit();
}

}  // namespace kelvo::app
