#include "KelvoVoiceMac/app/CorrectionSuggestionNotifier.h"

#include <qcorofuture.h>
#include <QtConcurrent/QtConcurrentRun>
#include <exception>
#include <optional>
#include <string>
#include <utility>

#include "KelvoVoiceMac/shell/DesktopNotification.h"

namespace kelvo::app {
namespace {

constexpr const char* kApplicationName = "KelvoVoice";
constexpr const char* kIconName = "kelvovoice";

// Shows one notification and lets it go once the server is done with it.
void notify(const QString& summary, const QString& body,
            const QList<DesktopNotification::Action>& actions,
            std::function<void(const QString&)> onAction, platform::SystemLog& systemLog) {
    auto* notification = new DesktopNotification(kApplicationName, kIconName);
    notification->show(
        summary, body, actions,
        {
            .shown =
                [notification, &systemLog](bool shown, const QString& error) {
                    if (!shown) {
                        systemLog.write("[KelvoVoice] Notification not shown: " +
                                        error.toStdString());
                        notification->deleteLater();
                    }
                },
            .actionInvoked = std::move(onAction),
            .closed =
                [notification](DesktopNotification::CloseReason) { notification->deleteLater(); },
        });
}

}  // namespace

CorrectionSuggestionNotifier::CorrectionSuggestionNotifier(
    std::shared_ptr<JSONSuggestionStore> suggestions,
    std::shared_ptr<JSONDictionaryStore> dictionary,
    std::shared_ptr<DictionaryCorrectionEngine> engine, platform::SystemLog& systemLog)
    : suggestions_(std::move(suggestions)),
      dictionary_(std::move(dictionary)),
      engine_(std::move(engine)),
      systemLog_(systemLog),
      pool_(std::make_unique<QThreadPool>()) {
    pool_->setMaxThreadCount(1);
}

CorrectionSuggestionNotifier::~CorrectionSuggestionNotifier() = default;

QCoro::Task<> CorrectionSuggestionNotifier::offer(CorrectionSuggestion seen) {
    std::weak_ptr<int> alive = lifetime_;
    // Futures are made outside the coroutine's co_await expressions and awaited by name: GCC 12
    // destroys a lambda temporary inside a co_await expression twice.
    QFuture<Recorded> recording = recordOnWorker(seen);
    Recorded recorded = co_await recording;
    if (alive.expired()) {
        co_return;
    }
    if (!recorded.error.empty()) {
        systemLog_.write("[KelvoVoice] Failed to record suggestion: " + recorded.error);
        co_return;
    }
    if (!recorded.suggestion) {
        systemLog_.write("[KelvoVoice] Correction suggestion rejected before, not offered");
        co_return;
    }
    const CorrectionSuggestion suggestion = *recorded.suggestion;
    systemLog_.write("[KelvoVoice] Correction suggestion recorded count=" +
                     std::to_string(suggestion.count));
    const QString question = QStringLiteral("「%1」→「%2」を辞書に追加しますか?")
                                 .arg(QString::fromStdString(suggestion.misrecognition),
                                      QString::fromStdString(suggestion.canonical));
    notify(
        question, QString(), {{"add", QStringLiteral("追加")}, {"ignore", QStringLiteral("無視")}},
        [this, alive, suggestion](const QString& action) {
            if (!alive.expired() && (action == "add" || action == "ignore")) {
                answer(suggestion, action == "add");
            }
        },
        systemLog_);
}

QFuture<CorrectionSuggestionNotifier::Recorded> CorrectionSuggestionNotifier::recordOnWorker(
    const CorrectionSuggestion& seen) {
    return QtConcurrent::run(pool_.get(), [store = suggestions_, seen]() -> Recorded {
        try {
            return {store->record(seen), {}};
        } catch (const std::exception& error) {
            return {std::nullopt, error.what()};
        }
    });
}

QFuture<std::string> CorrectionSuggestionNotifier::answerOnWorker(
    const CorrectionSuggestion& suggestion, bool accepted) {
    return QtConcurrent::run(pool_.get(), [this, suggestion, accepted]() -> std::string {
        try {
            if (accepted) {
                suggestions_->accept(suggestion, *dictionary_);
                if (engine_) {
                    engine_->reload();
                }
            } else {
                suggestions_->reject(suggestion.id);
            }
            return {};
        } catch (const std::exception& failure) {
            return failure.what();
        }
    });
}

QCoro::Task<> CorrectionSuggestionNotifier::answer(CorrectionSuggestion suggestion, bool accepted) {
    QFuture<std::string> answering = answerOnWorker(suggestion, accepted);
    std::string error = co_await answering;
    systemLog_.write(error.empty() ? std::string("[KelvoVoice] Correction suggestion ") +
                                         (accepted ? "accepted" : "rejected")
                                   : "[KelvoVoice] Failed to answer suggestion: " + error);
}

void CorrectionSuggestionNotifier::announceLearning() {
    notify(QStringLiteral("KelvoVoice は修正から学習します"),
           QStringLiteral("音声入力の直後に単語を直すと、辞書への追加を提案します。"
                          "辞書ウィンドウの「修正から学習」でオフにできます。"),
           {}, {}, systemLog_);
}

}  // namespace kelvo::app
