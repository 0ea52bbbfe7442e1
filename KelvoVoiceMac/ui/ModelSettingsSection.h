#pragma once

// ModelSettingsSection is the settings window's panel for on-device speech models: the catalogue
// with each model's size and status (installed and how it was verified, partly downloaded,
// not installed), Install with a progress bar, Cancel, Remove, which installed model dictation
// uses ("best installed" unless the user picks one), the download address (a mirror) and how
// long an unused model stays loaded. Those three settings are read and written through the
// Bindings (the preferences kvmac_modelName, kvmac_modelDownloadBaseURL and
// kvmac_modelIdleReleaseMinutes); the first two are also pushed into the inventory at once.
// An installation runs on a thread of its own; the panel polls its progress with a timer, so the
// main thread never waits for the network. Main thread only; the inventory must outlive the
// panel, whose destructor cancels a running installation (its partial file stays to resume).

#include <QWidget>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "core/services/ModelInstallation.h"
#include "core/services/ModelInventory.h"

class QComboBox;
class QLabel;
class QLineEdit;
class QSpinBox;
class QProgressBar;
class QPushButton;
class QTableWidget;
class QTimer;

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
    };

    static constexpr int defaultIdleReleaseMinutes = 10;

    ModelSettingsSection(ModelInventory& inventory, Bindings bindings, QWidget* parent = nullptr);
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
    QLineEdit* downloadAddress() const { return mirror_; }
    QSpinBox* idleMinutes() const { return idleMinutes_; }
    bool isInstalling() const { return installation_ != nullptr; }

  private:
    const ModelCatalogEntry* selectedEntry() const;
    void startInstallation();
    void pollInstallation();
    void removeSelected();
    void choose(const std::string& name);
    void updateButtons();
    QString statusText(const ModelCatalogEntry& entry) const;

    ModelInventory& inventory_;
    Bindings bindings_;

    QTableWidget* table_;
    QComboBox* choice_;
    QPushButton* install_;
    QPushButton* cancel_;
    QPushButton* remove_;
    QProgressBar* progress_;
    QLabel* message_;
    QLineEdit* mirror_;
    QSpinBox* idleMinutes_;
    QTimer* poll_;

    std::unique_ptr<ModelInstallation> installation_;
    std::thread worker_;
    std::atomic<bool> workerDone_ = false;
    std::optional<std::string> workerFailure_;
};

}  // namespace kelvo::app
