#pragma once

// DictionaryEditViewMac is the dictionary editor: a sidebar listing the entries (one
// DictionaryRowMac each, in list order) beside a detail column with the selected entry's form.
// Everything is edited on a working copy held here; nothing reaches the store or the engine until
// the user saves, and then the whole list is written through the store and the engine (when there
// is one) reloads it, so corrections use the new list at once and recognition hints from the next
// dictation. A failed load or save shows the "辞書エラー" alert and leaves the working copy as it
// is; saving is impossible while any entry's canonical text is blank. The first load runs when the
// view is first shown.
//
// The view shares the store and the engine with the session; their calls touch the disk, so they
// run on a worker thread and the view resumes on the main thread with the result. One save runs at
// a time. All view state is main-thread only. The view may be destroyed while a load or save is
// still running: the worker finishes on its own and its result is dropped.

#include <QCoroTask>
#include <QWidget>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "core/engines/DictionaryCorrectionEngine.h"
#include "core/models/CorrectionSuggestion.h"
#include "core/models/DictionaryEntry.h"
#include "core/models/DictionaryStore.h"

class QLabel;
class QListWidget;
class QMessageBox;
class QPushButton;
class QStackedWidget;
class QToolButton;

namespace kelvo::app {

class DictionaryEntryFormMac;

class DictionaryEditViewMac final : public QWidget {
    Q_OBJECT

  public:
    // `dictionaryEngine` may be null (the dictionary failed to load at start-up): saving then only
    // writes the store.
    DictionaryEditViewMac(std::shared_ptr<DictionaryStore> dictionaryStore,
                          std::shared_ptr<DictionaryCorrectionEngine> dictionaryEngine,
                          QWidget* parent = nullptr);
    ~DictionaryEditViewMac() override;

    const std::vector<DictionaryEntry>& entries() const noexcept { return entries_; }
    const std::optional<std::string>& selectedEntryID() const noexcept { return selectedEntryID_; }
    bool isLoaded() const noexcept { return isLoaded_; }
    const std::optional<std::string>& errorMessage() const noexcept { return errorMessage_; }
    bool isSaving() const noexcept { return isSaving_; }
    // False while an entry's canonical text is blank, before the first load has ended and while a
    // save is running.
    bool canSave() const;

    // The toolbar actions. Adding waits for the first load to end.
    void addEntry();
    void deleteSelectedEntry();
    // Writes the working copy; the result arrives through saveFinished().
    void save();
    // Puts a suggestion learnt from a correction into the working copy (into the entry with its
    // term, else a new one) and selects that entry; saving is left to the user or the caller.
    void addSuggestion(const CorrectionSuggestion& suggestion);
    // Selects the entry with this identifier, or nothing.
    void selectEntry(const std::optional<std::string>& id);

    // A new entry: fresh identifier, blank texts and lists, priority 50, enabled, no note.
    static DictionaryEntry makeNewEntry();

    static constexpr const char* errorTitle = "辞書エラー";

  Q_SIGNALS:
    void loadFinished();
    void saveFinished(bool succeeded);

  protected:
    void showEvent(QShowEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;

  private:
    QCoro::Task<> load();
    QCoro::Task<> runSave();

    QWidget* makeSidebar();
    QWidget* makeDetail();
    void rebuildList();
    void appendRow(const DictionaryEntry& entry);
    void updateRow(int index);
    void applyEdit(const DictionaryEntry& entry);
    void removeEntry(const std::string& id);
    int indexOf(const std::string& id) const;
    void refreshState();
    void setErrorMessage(std::optional<std::string> message);

    std::shared_ptr<DictionaryStore> dictionaryStore_;
    std::shared_ptr<DictionaryCorrectionEngine> dictionaryEngine_;
    std::vector<DictionaryEntry> entries_;
    std::optional<std::string> selectedEntryID_;
    bool isLoaded_ = false;
    std::optional<std::string> errorMessage_;

    bool loadStarted_ = false;
    bool isSaving_ = false;
    // Set while the list widget is changed from here, so its own signals are not taken as the
    // user's.
    bool updatingList_ = false;

    QListWidget* list_ = nullptr;
    QStackedWidget* sidebarStack_ = nullptr;
    QWidget* emptyListPanel_ = nullptr;
    QToolButton* addButton_ = nullptr;
    QToolButton* deleteButton_ = nullptr;
    QLabel* detailTitle_ = nullptr;
    QStackedWidget* detailStack_ = nullptr;
    QWidget* formPage_ = nullptr;
    QWidget* noSelectionPanel_ = nullptr;
    DictionaryEntryFormMac* form_ = nullptr;
    QPushButton* saveButton_ = nullptr;
    QMessageBox* alert_ = nullptr;
};

}  // namespace kelvo::app
