#pragma once

// Remembers every trace line, in order, from any thread (the speech service traces from its
// reader and start-up threads); optionally mirrors them into a shared journal (prefixed "trace: ")
// that only the test thread writes.

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/TraceOutput.h"

namespace kelvo::test {

class RecordingTraceOutput final : public platform::TraceOutput {
  public:
    explicit RecordingTraceOutput(std::vector<std::string>* journal = nullptr)
        : journal_(journal) {}

    void write(std::string_view line) override {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
        if (journal_ != nullptr) {
            journal_->push_back("trace: " + std::string(line));
        }
    }

    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }

    bool contains(const std::string& line) const {
        std::lock_guard lock(mutex_);
        return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
    }

    void clear() {
        std::lock_guard lock(mutex_);
        lines_.clear();
    }

  private:
    mutable std::mutex mutex_;
    std::vector<std::string> lines_;
    std::vector<std::string>* journal_;
};

}  // namespace kelvo::test
