#pragma once

// LoggedProcess is a program of the headless session run as a child of the test (the application,
// a daemon, a stand-in desktop service): the test's environment plus `variables` ("NAME=value"),
// standard output and error appended to one log file that the test polls. Ended with SIGTERM
// (SIGKILL after 20 s) when the object goes. Test thread only.

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/KelvoProcess.h"

namespace kelvo::test {

class LoggedProcess : public KelvoProcess {
  public:
    // arguments[0] is looked up in PATH when it has no slash.
    LoggedProcess(const std::vector<std::string>& arguments, std::filesystem::path logFile,
                  const std::vector<std::string>& variables = {});
    ~LoggedProcess() { terminate(); }

    // Everything written to the log so far.
    std::string log() const;
    std::size_t countInLog(const std::string& text) const;
    // Polls the log until `text` occurs `count` times; false once `limit` has passed.
    bool waitForLog(const std::string& text, std::size_t count = 1,
                    std::chrono::milliseconds limit = std::chrono::seconds(60)) const;

    // Sends SIGTERM and waits for the exit; returns the exit status (128 + signal when killed).
    int terminate();

  private:
    std::filesystem::path logFile_;
};

}  // namespace kelvo::test
