#pragma once

// ModelSettingsSection is the settings window's panel for on-device speech models: the catalogue
// with each model's size and status (installed and how it was verified, partly downloaded,
// not installed), Install with a progress bar, Cancel, Remove, which installed model dictation
// uses ("best installed" unless the user picks one), the download address (a mirror) and how
// long an unused model stays loaded. Those three settings are read and written through the
// Bindings (the preferences kvmac_modelName, kvmac_modelDownloadBaseURL and
// kvmac_modelIdleReleaseMinutes); the first two are also pushed into the inventory at once.
// Above the list it says when no installed model recognises Japanese (dictation then uses the
// fallback recogniser) and names the model recommended for this computer with the reason; that
// model's row is selected when the panel opens, so Install is one click away.
// Installations go through the application's ModelInstallationService, so one started from the
// first-run notice shows its progress here too, and closing the window does not stop it.
// Main thread only; the installation service (and its inventory) must outlive the panel.

#include <QWidget>

#include <functional>
#include <optional>
#include <string>

#include "KelvoVoiceMac/session/ModelInstallationService.h"
#include "core/services/ModelInventory.h"
#include "core/services/ModelRecommender.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QSpinBox;
class QProgressBar;
class QPushButton;
class QTableWidget;

namespace kelvo::app {

class ModelSettingsSection final : public QWidget {
  public:
    struct Bindings {
        std::function<std::string()> chosenModel;
        std::function<void(const std::string&)> setChosenModel;
        std::function<std::string()> downloadBaseURL;
        std::function<void(const std::string&)> setDownloadBaseURL;
        std::function<int()> idleReleaseMinutes;
        std::function<void(int)> setIdleReleaseMinutes;
        // The model suggested for this computer (an entry of the inventory's catalogue), if any.
        std::optional<ModelRecommender::Recommendation> recommendation;
    };

    // The locale dictation recognises, whose models the notice above the list is about.
    static constexpr const char* dictationLocale = "ja-JP";

    static constexpr int defaultIdleReleaseMinutes = 10;

    ModelSettingsSection(ModelInstallationService& installer, Bindings bindings,
                         QWidget* parent = nullptr);
    ~ModelSettingsSection() override;

    // Reads the models folder again and updates every row and button.
    void refresh();

    // The widgets, for tests and for the window's keyboard navigation.
    QTableWidget* table() const { return table_; }
    QComboBox* choice() const { return choice_; }
    QPushButton* installButton() const { return install_; }
    QPushButton* cancelButton() const { return cancel_; }
    QPushButton* removeButton() const { return remove_; }
    QProgressBar* progressBar() const { return progress_; }
    QLabel* messageLabel() const { return message_; }
    // The notice and recommendation above the list.
    QLabel* recommendationLabel() const { return recommendation_; }
    QLineEdit* downloadAddress() const { return mirror_; }
    QSpinBox* idleMinutes() const { return idleMinutes_; }
    bool isInstalling() const { return installer_.isRunning(); }

  private:
    const ModelCatalogEntry* selectedEntry() const;
    void startInstallation();
    void installationChanged();
    void updateRecommendation();
    void removeSelected();
    void choose(const std::string& name);
    void updateButtons();
    QString statusText(const ModelCatalogEntry& entry) const;

    ModelInstallationService& installer_;
    ModelInventory& inventory_;
    Bindings bindings_;

    QTableWidget* table_;
    QComboBox* choice_;
    QPushButton* install_;
    QPushButton* cancel_;
    QPushButton* remove_;
    QProgressBar* progress_;
    QLabel* message_;
    QLabel* recommendation_;
    QLineEdit* mirror_;
    QSpinBox* idleMinutes_;

    int observer_ = -1;
    // The model whose installation this panel is showing, until its outcome has been shown.
    std::optional<std::string> shownInstallation_;
};

}  // namespace kelvo::app
