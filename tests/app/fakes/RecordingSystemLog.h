#pragma once

// Remembers every state line, in order; optionally mirrors them into a shared journal (prefixed
// "log: ") so a test can check the interleaving with other fakes.

#include <string>
#include <string_view>
#include <vector>

#include "platform/SystemLog.h"

namespace kelvo::test {

class RecordingSystemLog final : public platform::SystemLog {
  public:
    explicit RecordingSystemLog(std::vector<std::string>* journal = nullptr) : journal_(journal) {}

    void write(std::string_view line) override {
        lines.emplace_back(line);
        if (journal_ != nullptr) {
            journal_->push_back("log: " + std::string(line));
        }
    }

    std::vector<std::string> lines;

  private:
    std::vector<std::string>* journal_;
};

}  // namespace kelvo::test
