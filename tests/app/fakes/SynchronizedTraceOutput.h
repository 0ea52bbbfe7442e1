#pragma once

// SynchronizedTraceOutput records trace lines written from any thread (the speech service traces
// from its reader and start-up threads) and lets the test wait for a line to appear.

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "platform/TraceOutput.h"

namespace kelvo::test {

class SynchronizedTraceOutput final : public platform::TraceOutput {
  public:
    void write(std::string_view line) override {
        std::lock_guard lock(mutex_);
        lines_.emplace_back(line);
        changed_.notify_all();
    }

    std::vector<std::string> lines() const {
        std::lock_guard lock(mutex_);
        return lines_;
    }

    bool contains(const std::string& line) const {
        std::lock_guard lock(mutex_);
        return std::find(lines_.begin(), lines_.end(), line) != lines_.end();
    }

  private:
    mutable std::mutex mutex_;
    std::condition_variable changed_;
    std::vector<std::string> lines_;
};

}  // namespace kelvo::test
