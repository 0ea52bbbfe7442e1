#include "KelvoVoiceMac/ui/CorrectionSuggestionsPanelMac.h"

#include <QCheckBox>
#include <QCoroFuture>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QTimer>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>
#include <exception>

#include "KelvoVoiceMac/session/PreferenceKeys.h"
#include "KelvoVoiceMac/ui/DictionaryEditViewMac.h"

namespace kelvo::app {
namespace {

constexpr int kVisibleRows = 4;

// Futures are made here, outside the coroutines' co_await expressions: GCC 12 destroys a lambda
// temporary inside a co_await expression twice.
QFuture<std::vector<CorrectionSuggestion>> loadPending(std::shared_ptr<JSONSuggestionStore> store) {
    return QtConcurrent::run([store]() -> std::vector<CorrectionSuggestion> {
        try {
            return store->pendingSuggestions();
        } catch (const std::exception&) {
            return {};  // a damaged list is reported where it is recorded
        }
    });
}

QFuture<void> changeOnWorker(std::shared_ptr<JSONSuggestionStore> store, std::string id,
                             bool reject) {
    return QtConcurrent::run([store, id, reject] {
        try {
            reject ? store->reject(id) : store->forget(id);
        } catch (const std::exception&) {
            // Already answered elsewhere (kelvo, the notification): the reload shows it.
        }
    });
}

}  // namespace

CorrectionSuggestionsPanelMac::CorrectionSuggestionsPanelMac(
    std::shared_ptr<JSONSuggestionStore> suggestions, DictionaryEditViewMac& editor,
    platform::Preferences& preferences, QWidget* parent)
    : QWidget(parent),
      suggestions_(std::move(suggestions)),
      editor_(editor),
      preferences_(preferences) {
    setObjectName(QStringLiteral("correctionSuggestionsPanel"));
    auto* column = new QVBoxLayout(this);
    column->setContentsMargins(12, 6, 12, 10);
    auto* header = new QHBoxLayout();
    header->addWidget(new QLabel(QStringLiteral("修正からの提案"), this));
    header->addStretch(1);
    learningSwitch_ = new QCheckBox(QStringLiteral("修正から学習"), this);
    learningSwitch_->setChecked(preferences_.boolValue(PreferenceKeys::correctionLearningEnabled));
    connect(learningSwitch_, &QCheckBox::toggled, this, [this](bool on) {
        preferences_.setBool(PreferenceKeys::correctionLearningEnabled, on);
    });
    header->addWidget(learningSwitch_);
    column->addLayout(header);

    list_ = new QListWidget(this);
    list_->setMaximumHeight(list_->sizeHintForRow(0) > 0 ? list_->sizeHintForRow(0) * kVisibleRows
                                                         : 24 * kVisibleRows);
    emptyLabel_ = new QLabel(QStringLiteral("提案はありません"), this);
    column->addWidget(list_);
    column->addWidget(emptyLabel_);
    auto* buttons = new QHBoxLayout();
    buttons->addStretch(1);
    addButton_ = new QPushButton(QStringLiteral("追加"), this);
    editButton_ = new QPushButton(QStringLiteral("編集して追加"), this);
    dismissButton_ = new QPushButton(QStringLiteral("無視"), this);
    for (QPushButton* button : {addButton_, editButton_, dismissButton_}) {
        buttons->addWidget(button);
    }
    column->addLayout(buttons);
    connect(addButton_, &QPushButton::clicked, this, [this] { add(true); });
    connect(editButton_, &QPushButton::clicked, this, [this] { add(false); });
    connect(dismissButton_, &QPushButton::clicked, this, [this] { dismiss(); });
    connect(list_, &QListWidget::currentRowChanged, this, [this] { refreshState(); });
    connect(&editor_, &DictionaryEditViewMac::saveFinished, this,
            [this](bool saved) { forgetSaved(saved); });
    refreshState();
}

void CorrectionSuggestionsPanelMac::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    QTimer::singleShot(0, this, [this] { reload(); });
}

QCoro::Task<> CorrectionSuggestionsPanelMac::reload() {
    QPointer<CorrectionSuggestionsPanelMac> self(this);
    QFuture<std::vector<CorrectionSuggestion>> loading = loadPending(suggestions_);
    std::vector<CorrectionSuggestion> pending = co_await loading;
    if (!self) {
        co_return;
    }
    std::erase_if(pending,
                  [this](const CorrectionSuggestion& s) { return inEditor_.contains(s.id); });
    pending_ = std::move(pending);
    list_->clear();
    for (const CorrectionSuggestion& suggestion : pending_) {
        list_->addItem(QStringLiteral("「%1」→「%2」（%3回）")
                           .arg(QString::fromStdString(suggestion.misrecognition),
                                QString::fromStdString(suggestion.canonical))
                           .arg(suggestion.count));
    }
    if (!pending_.empty()) {
        list_->setCurrentRow(0);
    }
    refreshState();
}

const CorrectionSuggestion* CorrectionSuggestionsPanelMac::selected() const {
    const int row = list_->currentRow();
    return row >= 0 && row < static_cast<int>(pending_.size()) ? &pending_[row] : nullptr;
}

void CorrectionSuggestionsPanelMac::add(bool saveNow) {
    const CorrectionSuggestion* suggestion = selected();
    if (suggestion == nullptr || !editor_.isLoaded()) {
        return;
    }
    editor_.addSuggestion(*suggestion);
    inEditor_.insert(suggestion->id);
    delete list_->takeItem(list_->currentRow());
    pending_.erase(pending_.begin() + (suggestion - pending_.data()));
    refreshState();
    if (saveNow) {
        editor_.save();
    }
}

void CorrectionSuggestionsPanelMac::dismiss() {
    const CorrectionSuggestion* suggestion = selected();
    if (suggestion == nullptr) {
        return;
    }
    QPointer<CorrectionSuggestionsPanelMac> self(this);
    QFuture<void> rejecting = changeOnWorker(suggestions_, suggestion->id, true);
    auto* watcher = new QFutureWatcher<void>(this);
    connect(watcher, &QFutureWatcher<void>::finished, this, [this, watcher] {
        watcher->deleteLater();
        reload();
    });
    watcher->setFuture(rejecting);
}

QCoro::Task<> CorrectionSuggestionsPanelMac::forgetSaved(bool saved) {
    if (!saved || inEditor_.empty()) {
        co_return;
    }
    QPointer<CorrectionSuggestionsPanelMac> self(this);
    const std::set<std::string> forgotten = std::exchange(inEditor_, {});
    for (const std::string& id : forgotten) {
        QFuture<void> forgetting = changeOnWorker(suggestions_, id, false);
        co_await forgetting;
        if (!self) {
            co_return;
        }
    }
}

void CorrectionSuggestionsPanelMac::refreshState() {
    const bool any = !pending_.empty();
    list_->setVisible(any);
    emptyLabel_->setVisible(!any);
    const bool chosen = selected() != nullptr && editor_.isLoaded();
    addButton_->setEnabled(chosen && !editor_.isSaving());
    editButton_->setEnabled(chosen);
    dismissButton_->setEnabled(selected() != nullptr);
}

}  // namespace kelvo::app
