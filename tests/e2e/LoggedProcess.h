#pragma once

// LoggedProcess is a program of the headless session run as a child of the test (the application,
// a daemon, a stand-in desktop service): the test's environment plus `variables` ("NAME=value"),
// standard input from /dev/null, standard output and error appended to one log file that the test
// polls. Ended with SIGTERM (SIGKILL after 20 s) when the object goes. Test thread only.

#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <vector>

namespace kelvo::test {

class LoggedProcess {
  public:
    // arguments[0] is looked up in PATH when it has no slash.
    LoggedProcess(std::vector<std::string> arguments, std::filesystem::path logFile,
                  const std::vector<std::string>& variables = {});
    ~LoggedProcess();

    LoggedProcess(const LoggedProcess&) = delete;
    LoggedProcess& operator=(const LoggedProcess&) = delete;

    // Everything written to the log so far.
    std::string log() const;
    std::size_t countInLog(const std::string& text) const;
    // Polls the log until `text` occurs `count` times; false once `limit` has passed.
    bool waitForLog(const std::string& text, std::size_t count = 1,
                    std::chrono::milliseconds limit = std::chrono::seconds(60)) const;

    // Sends SIGTERM and waits for the exit; returns the exit status (128 + signal when killed).
    int terminate();
    bool isRunning();

  private:
    std::filesystem::path logFile_;
    pid_t pid_ = -1;
    bool exited_ = false;
};

}  // namespace kelvo::test
