#include "KelvoVoiceMac/session/ModelInstallationService.h"

#include <exception>
#include <vector>

namespace kelvo::app {
namespace {

constexpr int kPollMilliseconds = 100;

}  // namespace

ModelInstallationService::ModelInstallationService(ModelInventory& inventory,
                                                   platform::SystemLog& systemLog)
    : inventory_(inventory), systemLog_(systemLog) {
    poll_.setInterval(kPollMilliseconds);
    QObject::connect(&poll_, &QTimer::timeout, [this] { poll(); });
}

ModelInstallationService::~ModelInstallationService() {
    if (installation_) {
        installation_->cancel();
    }
    if (worker_.joinable()) {
        worker_.join();
    }
}

bool ModelInstallationService::start(const ModelCatalogEntry& entry, const std::string& origin) {
    if (installation_) {
        return false;
    }
    installation_ = std::make_unique<ModelInstallation>(inventory_, entry);
    workerDone_ = false;
    workerFailure_.reset();
    worker_ = std::thread([this, installation = installation_.get()] {
        try {
            installation->run();
        } catch (const std::exception& error) {
            workerFailure_ = error.what();
        }
        workerDone_ = true;
    });
    systemLog_.write("[KelvoVoice] Model installation started name=" + entry.name +
                     " from=" + origin + " url=" + inventory_.downloadURL(entry));
    poll_.start();
    notify();
    return true;
}

void ModelInstallationService::cancel() {
    if (installation_) {
        installation_->cancel();
    }
}

const ModelCatalogEntry* ModelInstallationService::current() const {
    return installation_ ? &installation_->entry() : nullptr;
}

double ModelInstallationService::fractionCompleted() const {
    return installation_ ? installation_->fractionCompleted() : 0.0;
}

int ModelInstallationService::addObserver(Observer observer) {
    observers_.emplace(nextObserver_, std::move(observer));
    return nextObserver_++;
}

void ModelInstallationService::removeObserver(int id) {
    observers_.erase(id);
}

void ModelInstallationService::poll() {
    if (installation_ && workerDone_) {
        poll_.stop();
        worker_.join();
        lastOutcome_ = Outcome{installation_->entry().name, workerFailure_};
        installation_.reset();
        systemLog_.write(
            lastOutcome_->failure
                ? "[KelvoVoice] Model installation failed name=" + lastOutcome_->model + ": " +
                      *lastOutcome_->failure
                : "[KelvoVoice] Model installation finished name=" + lastOutcome_->model);
    }
    notify();
}

void ModelInstallationService::notify() {
    // An observer may remove itself or another (a window closing) while it is told: look each
    // one up again before calling it, and call a copy.
    std::vector<int> ids;
    for (const auto& [id, observer] : observers_) {
        ids.push_back(id);
    }
    for (int id : ids) {
        if (auto found = observers_.find(id); found != observers_.end()) {
            Observer observer = found->second;
            observer();
        }
    }
}

}  // namespace kelvo::app
