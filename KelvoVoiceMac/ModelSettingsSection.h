#pragma once

// ModelSettingsSection is the settings window's panel for on-device speech models: the catalogue
// with each model's size and status (installed and how it was verified, partly downloaded,
// not installed), Install with a progress bar, Cancel, Remove, and which installed model
// dictation uses ("best installed" unless the user picks one). The choice is read and written
// through the two functions given (the preference kvmac_modelName) and pushed into the inventory.
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
class QProgressBar;
class QPushButton;
class QTableWidget;
class QTimer;

namespace kelvo::app {

class ModelSettingsSection final : public QWidget {
  public:
    ModelSettingsSection(ModelInventory& inventory, std::function<std::string()> chosenModel,
                         std::function<void(const std::string&)> setChosenModel,
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
    std::function<std::string()> chosenModel_;
    std::function<void(const std::string&)> setChosenModel_;

    QTableWidget* table_;
    QComboBox* choice_;
    QPushButton* install_;
    QPushButton* cancel_;
    QPushButton* remove_;
    QProgressBar* progress_;
    QLabel* message_;
    QTimer* poll_;

    std::unique_ptr<ModelInstallation> installation_;
    std::thread worker_;
    std::atomic<bool> workerDone_ = false;
    std::optional<std::string> workerFailure_;
};

}  // namespace kelvo::app
