#pragma once

// ModelInstallationService runs the application's model installations in the background, one at
// a time, for whoever starts one (the first-run notice, the settings window) and whoever shows
// its progress (the settings window, the status item's tooltip): both see the same installation.
// The download runs on a thread of its own; a main-thread timer polls its progress and tells the
// observers at each poll and once more when it has ended, so nothing on the main thread waits for
// the network. Each start and end is logged ("[KelvoVoice] Model installation ...").
//
// Main thread only (needs a Qt event loop). The inventory and the log must outlive the service;
// its destructor cancels a running installation (the partial file stays for a resume) and waits
// for the thread.

#include <QTimer>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "core/services/ModelInstallation.h"
#include "core/services/ModelInventory.h"
#include "platform/SystemLog.h"

namespace kelvo::app {

class ModelInstallationService {
  public:
    // How the last installation ended: the model's name and, when it did not install, why.
    struct Outcome {
        std::string model;
        std::optional<std::string> failure;
    };
    using Observer = std::function<void()>;

    ModelInstallationService(ModelInventory& inventory, platform::SystemLog& systemLog);
    ~ModelInstallationService();

    ModelInstallationService(const ModelInstallationService&) = delete;
    ModelInstallationService& operator=(const ModelInstallationService&) = delete;

    ModelInventory& inventory() const { return inventory_; }

    // Starts installing `entry`; `origin` says who asked, for the log ("settings", "notice").
    // False, doing nothing, while another installation runs.
    bool start(const ModelCatalogEntry& entry, const std::string& origin);
    // Asks the running installation to stop; it ends as "cancelled" at the next poll.
    void cancel();

    bool isRunning() const { return installation_ != nullptr; }
    // The model being installed, or nullptr.
    const ModelCatalogEntry* current() const;
    double fractionCompleted() const;
    const std::optional<Outcome>& lastOutcome() const { return lastOutcome_; }

    // Observers are called on the main thread; remove them before they go.
    int addObserver(Observer observer);
    void removeObserver(int id);

  private:
    void poll();
    void notify();

    ModelInventory& inventory_;
    platform::SystemLog& systemLog_;
    QTimer poll_;
    std::unique_ptr<ModelInstallation> installation_;
    std::thread worker_;
    std::atomic<bool> workerDone_ = false;
    std::optional<std::string> workerFailure_;
    std::optional<Outcome> lastOutcome_;
    std::map<int, Observer> observers_;
    int nextObserver_ = 0;
};

}  // namespace kelvo::app
