#include "KelvoVoiceMac/app/FirstRunModelNotice.h"

#include <cstdio>

#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "KelvoVoiceMac/shell/DesktopNotification.h"

namespace kelvo::app {
namespace {

constexpr const char* kInstallAction = "install";
constexpr const char* kSettingsAction = "settings";
// A click on the bubble itself.
constexpr const char* kDefaultAction = "default";

QString qt(const std::string& text) {
    return QString::fromStdString(text);
}

}  // namespace

FirstRunModelNotice::FirstRunModelNotice(Dependencies dependencies)
    : dependencies_(std::move(dependencies)) {
    observer_ = dependencies_.installer.addObserver([this] { installationChanged(); });
}

FirstRunModelNotice::~FirstRunModelNotice() {
    dependencies_.installer.removeObserver(observer_);
}

std::string FirstRunModelNotice::installLabel(const ModelCatalogEntry& entry) {
    return "Install " + entry.name + " (" + ModelCatalog::sizeText(entry.sizeBytes) + ")";
}

void FirstRunModelNotice::check() {
    if (checked_) {
        return;
    }
    checked_ = true;
    platform::Preferences& preferences = dependencies_.preferences;
    platform::SystemLog& log = dependencies_.systemLog;
    const std::string& locale = dependencies_.locale;
    const ModelInventory& inventory = dependencies_.installer.inventory();
    if (inventory.statusForLocale(locale) == ModelAssetStatus::installed) {
        preferences.setString(PreferenceKeys::modelNoticeAnsweredLocale, "");
        return;
    }
    const bool fallbackChosen = preferences.stringValue(PreferenceKeys::recognitionEngine,
                                                        PreferenceKeys::defaultRecognitionEngine) ==
                                PreferenceKeys::recognitionEngineFallback;
    const ModelCatalogEntry* pending = inventory.modelForLocale(locale);
    const bool installing = pending && inventory.isInstallationRunning(*pending);
    const auto& recommended = dependencies_.recommendation;
    std::string line = "[KelvoVoice] No speech model for " + locale +
                       " is installed: dictation uses the fallback recogniser";
    if (recommended) {
        line += "; recommended: " + recommended->entry->name + " (" + recommended->reason + ")";
    }
    log.write(line);
    if (fallbackChosen || installing || !recommended) {
        return;
    }
    if (preferences.stringValue(PreferenceKeys::modelNoticeAnsweredLocale, "") == locale) {
        log.write(
            "[KelvoVoice] Model notice answered before; the settings window shows the "
            "recommendation");
        return;
    }

    const ModelCatalogEntry& entry = *recommended->entry;
    const QString body =
        QStringLiteral(
            "No speech model that understands Japanese is installed yet, so dictation "
            "uses the basic fallback recogniser, which does not understand Japanese. "
            "Recommended for this computer: %1 (%2) — %3. Installing downloads it "
            "once; recognition stays on this computer.")
            .arg(qt(entry.name), qt(ModelCatalog::sizeText(entry.sizeBytes)),
                 qt(recommended->reason));
    notification_ = std::make_unique<DesktopNotification>(QStringLiteral("KelvoVoice"),
                                                          QStringLiteral("kelvovoice"));
    notification_->show(
        QString::fromUtf8(summary), body,
        {{QString::fromUtf8(kInstallAction), qt(installLabel(entry))},
         {QString::fromUtf8(kSettingsAction), QStringLiteral("Open Settings")},
         {QString::fromUtf8(kDefaultAction), QStringLiteral("Open Settings")}},
        {
            .shown =
                [&log](bool shown, const QString& error) {
                    log.write(shown
                                  ? std::string("[KelvoVoice] Model notice shown")
                                  : "[KelvoVoice] Model notice not shown: " + error.toStdString());
                },
            .actionInvoked =
                [this, &log](const QString& key) {
                    log.write("[KelvoVoice] Model notice answered action=" + key.toStdString());
                    remember();
                    if (key == QLatin1String(kInstallAction)) {
                        install();
                    } else if (dependencies_.openSettings) {
                        dependencies_.openSettings();
                    }
                },
            .closed =
                [this, &log](DesktopNotification::CloseReason reason) {
                    // Servers also close a bubble as "dismissed" after one of its buttons.
                    if (reason == DesktopNotification::CloseReason::dismissed && !answered_) {
                        log.write("[KelvoVoice] Model notice dismissed");
                        remember();
                    }
                },
        });
}

void FirstRunModelNotice::remember() {
    answered_ = true;
    dependencies_.preferences.setString(PreferenceKeys::modelNoticeAnsweredLocale,
                                        dependencies_.locale);
}

void FirstRunModelNotice::install() {
    installing_ = dependencies_.installer.start(*dependencies_.recommendation->entry, "notice");
    if (!installing_) {
        dependencies_.systemLog.write(
            "[KelvoVoice] Model installation not started: another one is running");
    }
}

void FirstRunModelNotice::installationChanged() {
    const ModelInstallationService& installer = dependencies_.installer;
    if (!installing_ || installer.isRunning() || !installer.lastOutcome()) {
        return;
    }
    installing_ = false;
    const ModelInstallationService::Outcome& outcome = *installer.lastOutcome();
    outcomeNotification_ = std::make_unique<DesktopNotification>(QStringLiteral("KelvoVoice"),
                                                                 QStringLiteral("kelvovoice"));
    if (!outcome.failure) {
        outcomeNotification_->show(
            QString::fromUtf8(installedSummary),
            QStringLiteral("Dictation now recognises Japanese on this computer with %1.")
                .arg(qt(outcome.model)),
            {}, {});
        return;
    }
    outcomeNotification_->show(
        QString::fromUtf8(failedSummary),
        qt(*outcome.failure) + QStringLiteral(". Dictation keeps using the fallback recogniser."),
        {{QString::fromUtf8(kSettingsAction), QStringLiteral("Open Settings")}},
        {.shown = {},
         .actionInvoked =
             [this](const QString&) {
                 if (dependencies_.openSettings) {
                     dependencies_.openSettings();
                 }
             },
         .closed = {}});
}

}  // namespace kelvo::app
