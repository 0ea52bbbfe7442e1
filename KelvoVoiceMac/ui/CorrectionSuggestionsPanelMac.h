#pragma once

// CorrectionSuggestionsPanelMac is the dictionary window's list of the entries proposed from the
// user's corrections ("修正からの提案"), each as 「replaced」→「term」 with how often it was seen,
// and the switch of learning itself ("修正から学習"). "追加" puts the selected suggestion into the
// editor's working copy and saves it; "編集して追加" puts it there for the user to edit and save;
// either way the suggestion leaves the list once the editor saved. "無視" rejects it for good.
// The list is read when the panel is shown and after every answer; the store's calls run on a
// worker. Main thread only; the editor and the preferences must outlive it.

#include <QCoroTask>
#include <QWidget>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "core/models/CorrectionSuggestion.h"
#include "core/services/JSONSuggestionStore.h"
#include "platform/Preferences.h"

class QCheckBox;
class QLabel;
class QListWidget;
class QPushButton;

namespace kelvo::app {

class DictionaryEditViewMac;

class CorrectionSuggestionsPanelMac final : public QWidget {
    Q_OBJECT

  public:
    CorrectionSuggestionsPanelMac(std::shared_ptr<JSONSuggestionStore> suggestions,
                                  DictionaryEditViewMac& editor, platform::Preferences& preferences,
                                  QWidget* parent = nullptr);

    const std::vector<CorrectionSuggestion>& pending() const noexcept { return pending_; }
    // Reads the pending suggestions again.
    QCoro::Task<> reload();

  protected:
    void showEvent(QShowEvent* event) override;

  private:
    void add(bool saveNow);
    void dismiss();
    QCoro::Task<> forgetSaved(bool saved);
    const CorrectionSuggestion* selected() const;
    void refreshState();

    std::shared_ptr<JSONSuggestionStore> suggestions_;
    DictionaryEditViewMac& editor_;
    platform::Preferences& preferences_;
    std::vector<CorrectionSuggestion> pending_;
    // Put into the editor's working copy; forgotten once the editor saved.
    std::set<std::string> inEditor_;

    QListWidget* list_ = nullptr;
    QLabel* emptyLabel_ = nullptr;
    QPushButton* addButton_ = nullptr;
    QPushButton* editButton_ = nullptr;
    QPushButton* dismissButton_ = nullptr;
    QCheckBox* learningSwitch_ = nullptr;
};

}  // namespace kelvo::app
