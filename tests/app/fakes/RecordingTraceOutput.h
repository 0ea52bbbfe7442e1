#pragma once

// Remembers every trace line, in order; optionally mirrors them into a shared journal (prefixed
// "trace: ").

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
        lines.emplace_back(line);
        if (journal_ != nullptr) {
            journal_->push_back("trace: " + std::string(line));
        }
    }

    std::vector<std::string> lines;

  private:
    std::vector<std::string>* journal_;
};

}  // namespace kelvo::test
