#pragma once

// Remembers every system-log or trace line written to it, in order, from any thread (the speech
// service traces from its reader and start-up threads); optionally mirrors them, behind a prefix
// ("log: ", "trace: "), into a shared journal that only the test thread writes to, so a test can
// check the interleaving with other fakes.

#include <algorithm>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/SystemLog.h"
#include "platform/TraceOutput.h"

namespace kelvo::test {

class RecordingLog final : public platform::SystemLog, public platform::TraceOutput {
  public:
    explicit RecordingLog(std::vector<std::string>* journal = nullptr,
                          std::string journalPrefix = {})
        : journal_(journal), journalPrefix_(std::move(journalPrefix)) {}

    void write(std::string_view line) override {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
        if (journal_ != nullptr) {
            journal_->push_back(journalPrefix_ + std::string(line));
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
    std::string journalPrefix_;
};

}  // namespace kelvo::test
