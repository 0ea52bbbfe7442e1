#pragma once

// FakeSegmentRecognizer hands out FakeSegmentRecognitionTasks and keeps every one it started, in
// order, so the test can see restarts and drive each request.

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "fakes/FakeSegmentRecognitionTask.h"
#include "platform/SegmentRecognizer.h"

namespace kelvo::test {

class FakeSegmentRecognizer final : public platform::SegmentRecognizer {
  public:
    explicit FakeSegmentRecognizer(std::string locale) : locale_(std::move(locale)) {}

    const std::string& locale() const override { return locale_; }
    bool isAvailable() override { return available; }
    bool supportsOnDeviceRecognition() override { return onDevice; }

    std::shared_ptr<platform::SegmentRecognitionTask> start(
        const RequestOptions& options,
        platform::SegmentRecognitionTask::ResultHandler handler) override {
        auto task = std::make_shared<FakeSegmentRecognitionTask>(options, std::move(handler));
        std::lock_guard lock(mutex_);
        tasks_.push_back(task);
        return task;
    }

    std::vector<std::shared_ptr<FakeSegmentRecognitionTask>> tasks() const {
        std::lock_guard lock(mutex_);
        return tasks_;
    }

    bool available = true;
    bool onDevice = true;

  private:
    std::string locale_;
    mutable std::mutex mutex_;
    std::vector<std::shared_ptr<FakeSegmentRecognitionTask>> tasks_;
};

}  // namespace kelvo::test
