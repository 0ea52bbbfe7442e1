#include "KelvoVoiceMac/ui/DictionaryEditViewMac.h"

#include <QCoroFuture>
#include <QHBoxLayout>
#include <QKeyEvent>
#include <QLabel>
#include <QListWidget>
#include <QMessageBox>
#include <QPointer>
#include <QPushButton>
#include <QScrollArea>
#include <QSplitter>
#include <QStackedWidget>
#include <QTimer>
#include <QToolButton>
#include <QVBoxLayout>
#include <QtConcurrent/QtConcurrentRun>
#include <algorithm>
#include <exception>

#include "KelvoVoiceMac/ui/DictionaryEntryFormMac.h"
#include "KelvoVoiceMac/ui/DictionaryRowMac.h"
#include "KelvoVoiceMac/ui/SymbolImage.h"
#include "KelvoVoiceMac/ui/WindowStyle.h"
#include "core/engines/CorrectionDetector.h"
#include "core/support/Uuid.h"

namespace kelvo::app {
namespace {

constexpr int kToolbarSymbolPixels = 16;
constexpr int kEmptyStateSymbolPixels = 44;
constexpr int kEntryIdRole = Qt::UserRole;

struct LoadOutcome {
    std::vector<DictionaryEntry> entries;
    std::optional<std::string> error;
};

std::string describe(std::exception_ptr failure) {
    try {
        std::rethrow_exception(failure);
    } catch (const std::exception& error) {
        return error.what();
    } catch (...) {
        return "Unknown error";
    }
}

// The blocking halves of load and save, run on a worker; failures come back as their text.
LoadOutcome loadFrom(std::shared_ptr<DictionaryStore> store) {
    LoadOutcome result;
    try {
        result.entries = store->loadEntries();
    } catch (...) {
        result.error = describe(std::current_exception());
    }
    return result;
}

std::optional<std::string> saveTo(std::shared_ptr<DictionaryStore> store,
                                  std::shared_ptr<DictionaryCorrectionEngine> engine,
                                  std::vector<DictionaryEntry> entries) {
    try {
        store->saveEntries(entries);
        if (engine) {
            engine->reload();
        }
    } catch (...) {
        return describe(std::current_exception());
    }
    return std::nullopt;
}

bool isBlank(const std::string& text) {
    return QString::fromStdString(text).trimmed().isEmpty();
}

QWidget* makeEmptyState(const QString& title, const QString& symbol, const QString& description,
                        QWidget* parent) {
    auto* panel = new QWidget(parent);
    auto* column = new QVBoxLayout(panel);
    column->setContentsMargins(8, 16, 8, 16);
    column->setSpacing(8);
    column->addStretch(1);
    auto* image = new QLabel(panel);
    image->setPixmap(SymbolImage::pixmap(symbol, WindowStyle::secondaryTextColor(*parent),
                                         kEmptyStateSymbolPixels));
    image->setAlignment(Qt::AlignCenter);
    column->addWidget(image);
    auto* heading = new QLabel(title, panel);
    heading->setAlignment(Qt::AlignCenter);
    heading->setWordWrap(true);
    WindowStyle::setTextStyle(*heading, WindowStyle::TextStyle::title2, true);
    column->addWidget(heading);
    auto* text = new QLabel(description, panel);
    text->setAlignment(Qt::AlignCenter);
    text->setWordWrap(true);
    WindowStyle::setTextColor(*text, WindowStyle::secondaryTextColor(*parent));
    column->addWidget(text);
    column->addStretch(1);
    return panel;
}

QToolButton* makeSymbolButton(const QString& symbol, const QString& help, QWidget* parent) {
    auto* button = new QToolButton(parent);
    button->setIcon(SymbolImage::icon(symbol, parent->palette().color(QPalette::ButtonText),
                                      kToolbarSymbolPixels));
    button->setIconSize(QSize(kToolbarSymbolPixels, kToolbarSymbolPixels));
    button->setToolTip(help);
    button->setAccessibleName(help);
    button->setAutoRaise(true);
    return button;
}

}  // namespace

DictionaryEditViewMac::DictionaryEditViewMac(
    std::shared_ptr<DictionaryStore> dictionaryStore,
    std::shared_ptr<DictionaryCorrectionEngine> dictionaryEngine, QWidget* parent)
    : QWidget(parent),
      dictionaryStore_(std::move(dictionaryStore)),
      dictionaryEngine_(std::move(dictionaryEngine)) {
    WindowStyle::useJapaneseFont(*this);
    setMinimumSize(640, 420);

    auto* layout = new QHBoxLayout(this);
    layout->setContentsMargins(0, 0, 0, 0);
    auto* split = new QSplitter(Qt::Horizontal, this);
    split->setChildrenCollapsible(false);
    split->addWidget(makeSidebar());
    split->addWidget(makeDetail());
    split->setStretchFactor(0, 0);
    split->setStretchFactor(1, 1);
    split->setSizes({250, 510});
    layout->addWidget(split);

    refreshState();
}

DictionaryEditViewMac::~DictionaryEditViewMac() = default;

QWidget* DictionaryEditViewMac::makeSidebar() {
    auto* sidebar = new QWidget(this);
    sidebar->setMinimumWidth(200);
    auto* column = new QVBoxLayout(sidebar);
    column->setContentsMargins(8, 8, 4, 8);
    column->setSpacing(6);

    auto* toolbar = new QHBoxLayout;
    auto* title = new QLabel(QStringLiteral("辞書"), sidebar);
    WindowStyle::setTextStyle(*title, WindowStyle::TextStyle::title3, true);
    addButton_ = makeSymbolButton(QStringLiteral("plus"), QStringLiteral("用語を追加"), sidebar);
    addButton_->setObjectName(QStringLiteral("addButton"));
    deleteButton_ =
        makeSymbolButton(QStringLiteral("trash"), QStringLiteral("選択中の用語を削除"), sidebar);
    deleteButton_->setObjectName(QStringLiteral("deleteButton"));
    toolbar->addWidget(title, 1);
    toolbar->addWidget(addButton_);
    toolbar->addWidget(deleteButton_);
    column->addLayout(toolbar);

    sidebarStack_ = new QStackedWidget(sidebar);
    list_ = new QListWidget(sidebarStack_);
    list_->setObjectName(QStringLiteral("entryList"));
    list_->setSelectionMode(QAbstractItemView::SingleSelection);
    list_->setUniformItemSizes(false);
    list_->installEventFilter(this);
    emptyListPanel_ =
        makeEmptyState(QStringLiteral("辞書が空です"), QStringLiteral("text.book.closed"),
                       QStringLiteral("＋ ボタンから用語を追加してください"), sidebar);
    emptyListPanel_->setObjectName(QStringLiteral("emptyListPanel"));
    sidebarStack_->addWidget(list_);
    sidebarStack_->addWidget(emptyListPanel_);
    column->addWidget(sidebarStack_, 1);

    connect(addButton_, &QToolButton::clicked, this, [this] { addEntry(); });
    connect(deleteButton_, &QToolButton::clicked, this, [this] { deleteSelectedEntry(); });
    connect(list_, &QListWidget::currentItemChanged, this, [this](QListWidgetItem* current) {
        if (updatingList_) {
            return;
        }
        if (current == nullptr) {
            selectEntry(std::nullopt);
        } else {
            selectEntry(current->data(kEntryIdRole).toString().toStdString());
        }
    });
    return sidebar;
}

QWidget* DictionaryEditViewMac::makeDetail() {
    auto* detail = new QWidget(this);
    auto* column = new QVBoxLayout(detail);
    column->setContentsMargins(4, 8, 8, 8);
    column->setSpacing(6);

    auto* toolbar = new QHBoxLayout;
    detailTitle_ = new QLabel(detail);
    detailTitle_->setObjectName(QStringLiteral("detailTitle"));
    detailTitle_->setTextFormat(Qt::PlainText);
    // A long canonical text is cut at the edge rather than widening the window.
    detailTitle_->setSizePolicy(QSizePolicy::Ignored, QSizePolicy::Preferred);
    WindowStyle::setTextStyle(*detailTitle_, WindowStyle::TextStyle::title3, true);
    saveButton_ = new QPushButton(QStringLiteral("保存"), detail);
    saveButton_->setObjectName(QStringLiteral("saveButton"));
    toolbar->addWidget(detailTitle_, 1);
    toolbar->addWidget(saveButton_);
    column->addLayout(toolbar);

    detailStack_ = new QStackedWidget(detail);
    auto* scroll = new QScrollArea(detailStack_);
    scroll->setWidgetResizable(true);
    scroll->setFrameShape(QFrame::NoFrame);
    form_ = new DictionaryEntryFormMac(scroll);
    scroll->setWidget(form_);
    formPage_ = scroll;
    noSelectionPanel_ =
        makeEmptyState(QStringLiteral("項目を選択"), QStringLiteral("text.book.closed"),
                       QStringLiteral("左のリストから編集する辞書項目を選んでください"), detail);
    noSelectionPanel_->setObjectName(QStringLiteral("noSelectionPanel"));
    detailStack_->addWidget(formPage_);
    detailStack_->addWidget(noSelectionPanel_);
    column->addWidget(detailStack_, 1);

    connect(saveButton_, &QPushButton::clicked, this, [this] { save(); });
    connect(form_, &DictionaryEntryFormMac::entryEdited, this,
            [this](const DictionaryEntry& entry) { applyEdit(entry); });
    connect(form_, &DictionaryEntryFormMac::navigationTitleChanged, this,
            [this](const QString& title) {
                detailTitle_->setText(selectedEntryID_ ? title : QString());
            });
    return detail;
}

bool DictionaryEditViewMac::canSave() const {
    // Before the first load ends the working copy is not the dictionary yet: saving it would
    // replace the file with an empty list.
    if (!isLoaded_ || isSaving_) {
        return false;
    }
    return std::none_of(entries_.begin(), entries_.end(),
                        [](const DictionaryEntry& entry) { return isBlank(entry.canonicalText); });
}

DictionaryEntry DictionaryEditViewMac::makeNewEntry() {
    DictionaryEntry entry;
    entry.id = makeUuid();
    entry.priority = 50;
    entry.enabled = true;
    return entry;
}

void DictionaryEditViewMac::addEntry() {
    if (!isLoaded_) {
        return;
    }
    entries_.push_back(makeNewEntry());
    appendRow(entries_.back());
    selectEntry(entries_.back().id);
    if (auto* field = form_->findChild<QWidget*>(QStringLiteral("canonicalTextField"))) {
        field->setFocus();
    }
}

void DictionaryEditViewMac::addSuggestion(const CorrectionSuggestion& suggestion) {
    if (!isLoaded_) {
        return;
    }
    CorrectionDetector::mergeInto(entries_, suggestion);
    rebuildList();
    const std::string term = suggestion.canonical;
    for (const DictionaryEntry& entry : entries_) {
        if (entry.canonicalText == term) {
            selectEntry(entry.id);
        }
    }
    refreshState();
}

void DictionaryEditViewMac::deleteSelectedEntry() {
    if (!selectedEntryID_) {
        return;
    }
    removeEntry(*selectedEntryID_);
}

void DictionaryEditViewMac::removeEntry(const std::string& id) {
    const int index = indexOf(id);
    if (index < 0) {
        return;
    }
    const bool wasSelected = selectedEntryID_ == id;
    entries_.erase(entries_.begin() + index);
    {
        updatingList_ = true;
        delete list_->takeItem(index);
        updatingList_ = false;
    }
    if (wasSelected) {
        selectEntry(entries_.empty() ? std::nullopt : std::optional(entries_.front().id));
    } else {
        refreshState();
    }
}

void DictionaryEditViewMac::selectEntry(const std::optional<std::string>& id) {
    const int index = id ? indexOf(*id) : -1;
    selectedEntryID_ = index >= 0 ? id : std::nullopt;
    updatingList_ = true;
    list_->setCurrentRow(index);
    updatingList_ = false;
    for (int row = 0; row < list_->count(); ++row) {
        if (auto* widget = qobject_cast<DictionaryRowMac*>(list_->itemWidget(list_->item(row)))) {
            widget->setSelected(row == index);
        }
    }
    if (index >= 0) {
        form_->setEntry(entries_[index]);
    } else {
        form_->clearEntry();
    }
    refreshState();
}

void DictionaryEditViewMac::save() {
    if (!canSave()) {
        return;
    }
    isSaving_ = true;
    refreshState();
    runSave();
}

void DictionaryEditViewMac::showEvent(QShowEvent* event) {
    QWidget::showEvent(event);
    if (loadStarted_) {
        return;
    }
    loadStarted_ = true;
    // Posted, so that showing the window completes before the store is asked.
    QTimer::singleShot(0, this, [this] { load(); });
}

bool DictionaryEditViewMac::eventFilter(QObject* watched, QEvent* event) {
    if (watched == list_ && event->type() == QEvent::KeyPress) {
        const int key = static_cast<QKeyEvent*>(event)->key();
        if (key == Qt::Key_Delete || key == Qt::Key_Backspace) {
            if (auto* item = list_->currentItem()) {
                removeEntry(item->data(kEntryIdRole).toString().toStdString());
            }
            return true;
        }
    }
    return QWidget::eventFilter(watched, event);
}

QCoro::Task<> DictionaryEditViewMac::load() {
    QPointer<DictionaryEditViewMac> self(this);
    // Named, not a temporary inside the co_await: GCC 12 destroys such temporaries twice.
    QFuture<LoadOutcome> work = QtConcurrent::run(loadFrom, dictionaryStore_);
    LoadOutcome outcome = co_await work;
    if (!self) {
        co_return;
    }
    if (outcome.error) {
        isLoaded_ = true;
        rebuildList();
        selectEntry(std::nullopt);
        setErrorMessage(outcome.error);
    } else {
        entries_ = std::move(outcome.entries);
        isLoaded_ = true;
        rebuildList();
        selectEntry(entries_.empty() ? std::nullopt : std::optional(entries_.front().id));
    }
    Q_EMIT loadFinished();
}

QCoro::Task<> DictionaryEditViewMac::runSave() {
    QPointer<DictionaryEditViewMac> self(this);
    QFuture<std::optional<std::string>> work =
        QtConcurrent::run(saveTo, dictionaryStore_, dictionaryEngine_, entries_);
    std::optional<std::string> error = co_await work;
    if (!self) {
        co_return;
    }
    isSaving_ = false;
    refreshState();
    if (error) {
        setErrorMessage(error);
    }
    Q_EMIT saveFinished(!error.has_value());
}

void DictionaryEditViewMac::rebuildList() {
    updatingList_ = true;
    list_->clear();
    updatingList_ = false;
    for (const auto& entry : entries_) {
        appendRow(entry);
    }
}

void DictionaryEditViewMac::appendRow(const DictionaryEntry& entry) {
    updatingList_ = true;
    auto* item = new QListWidgetItem(list_);
    item->setData(kEntryIdRole, QString::fromStdString(entry.id));
    auto* row = new DictionaryRowMac(entry, list_);
    item->setSizeHint(row->sizeHint());
    list_->setItemWidget(item, row);
    updatingList_ = false;
}

void DictionaryEditViewMac::updateRow(int index) {
    auto* item = list_->item(index);
    if (item == nullptr) {
        return;
    }
    if (auto* row = qobject_cast<DictionaryRowMac*>(list_->itemWidget(item))) {
        row->setEntry(entries_[index]);
        item->setSizeHint(row->sizeHint());
    }
}

void DictionaryEditViewMac::applyEdit(const DictionaryEntry& entry) {
    const int index = indexOf(entry.id);
    if (index < 0) {
        return;
    }
    entries_[index] = entry;
    updateRow(index);
    refreshState();
}

int DictionaryEditViewMac::indexOf(const std::string& id) const {
    for (std::size_t index = 0; index < entries_.size(); ++index) {
        if (entries_[index].id == id) {
            return static_cast<int>(index);
        }
    }
    return -1;
}

void DictionaryEditViewMac::refreshState() {
    // The empty-list panel waits for the first load, so it never flashes before the entries come.
    sidebarStack_->setCurrentWidget(isLoaded_ && entries_.empty() ? emptyListPanel_ : list_);
    detailStack_->setCurrentWidget(selectedEntryID_ ? formPage_ : noSelectionPanel_);
    detailTitle_->setText(selectedEntryID_ ? form_->navigationTitle() : QString());
    // An entry added before the first load ends would be replaced by the loaded list.
    addButton_->setEnabled(isLoaded_);
    deleteButton_->setEnabled(selectedEntryID_.has_value());
    saveButton_->setEnabled(canSave());
}

void DictionaryEditViewMac::setErrorMessage(std::optional<std::string> message) {
    errorMessage_ = std::move(message);
    if (!errorMessage_) {
        if (alert_ != nullptr && alert_->isVisible()) {
            alert_->hide();
        }
        return;
    }
    if (alert_ == nullptr) {
        alert_ = new QMessageBox(this);
        alert_->setObjectName(QStringLiteral("dictionaryErrorAlert"));
        alert_->setIcon(QMessageBox::Warning);
        alert_->setWindowTitle(QString::fromUtf8(errorTitle));
        alert_->setText(QString::fromUtf8(errorTitle));
        alert_->setStandardButtons(QMessageBox::Ok);
        alert_->button(QMessageBox::Ok)->setText(QStringLiteral("OK"));
        alert_->setWindowModality(Qt::WindowModal);
        connect(alert_, &QMessageBox::finished, this, [this] { errorMessage_.reset(); });
    }
    alert_->setInformativeText(QString::fromStdString(*errorMessage_));
    // open(), not exec(): the alert is window-modal without a nested event loop.
    alert_->open();
}

}  // namespace kelvo::app
