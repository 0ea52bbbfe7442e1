#include "LoggedProcess.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <stdexcept>

#include "tests/support/WaitUntil.h"

namespace kelvo::test {

LoggedProcess::LoggedProcess(std::vector<std::string> arguments, std::filesystem::path logFile,
                             const std::vector<std::string>& variables)
    : logFile_(std::move(logFile)) {
    std::vector<char*> argv;
    for (std::string& argument : arguments) {
        argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    std::vector<std::string> environment = variables;  // putenv keeps the pointers
    pid_ = fork();
    if (pid_ == 0) {
        const int log = open(logFile_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        const int nothing = open("/dev/null", O_RDONLY);
        dup2(nothing, STDIN_FILENO);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        for (std::string& variable : environment) {
            putenv(variable.data());
        }
        execvp(argv[0], argv.data());
        _exit(127);
    }
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
}

LoggedProcess::~LoggedProcess() {
    terminate();
}

std::string LoggedProcess::log() const {
    std::ifstream in(logFile_);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

std::size_t LoggedProcess::countInLog(const std::string& text) const {
    const std::string all = log();
    std::size_t count = 0;
    for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
        ++count;
    }
    return count;
}

bool LoggedProcess::waitForLog(const std::string& text, std::size_t count,
                               std::chrono::milliseconds limit) const {
    return waitUntil([&] { return countInLog(text) >= count; }, limit,
                     std::chrono::milliseconds(50));
}

bool LoggedProcess::isRunning() {
    if (!exited_ && waitpid(pid_, nullptr, WNOHANG) == pid_) {
        exited_ = true;
    }
    return !exited_;
}

int LoggedProcess::terminate() {
    if (pid_ <= 0 || exited_) {
        return 0;
    }
    kill(pid_, SIGTERM);
    int status = 0;
    if (!waitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; },
                   std::chrono::seconds(20), std::chrono::milliseconds(50))) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    }
    exited_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace kelvo::test
