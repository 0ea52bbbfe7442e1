#pragma once

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include "tests/support/WaitUntil.h"

namespace kelvo::test {

/// The `kelvo` binary (or another program, looked up in PATH when its name has no slash) running
/// as a child process, standard input read from `input` (held in a memory file, so a child that
/// never reads it blocks nothing) and standard output and error on pipes, or both appended to
/// `logFile` when one is given. The child gets `environment` ("NAME=value" texts) as its whole
/// environment, or the test's own when none is given, and runs in `workingFolder` when one is
/// given. A child still running when the object goes is killed. Output is read only by
/// waitForError() and finish(); both give up after `limit`: a child that never writes or ends is
/// killed, and finish() says so on its standard error and reports the kill as its status.
class KelvoProcess {
  public:
    KelvoProcess(const char* binary, const std::vector<std::string>& arguments,
                 const std::optional<std::vector<std::string>>& environment = std::nullopt,
                 const std::string& input = {}, const std::filesystem::path& workingFolder = {},
                 const std::filesystem::path& logFile = {}) {
        const int in = memfd_create("kelvo-input", MFD_CLOEXEC);
        int outPipe[2];
        int errPipe[2];
        if (in < 0 || write(in, input.data(), input.size()) != std::ssize(input) ||
            lseek(in, 0, SEEK_SET) != 0 || pipe2(outPipe, O_CLOEXEC) != 0 ||
            pipe2(errPipe, O_CLOEXEC) != 0) {
            throw std::runtime_error("cannot prepare the child's input and output");
        }
        std::vector<char*> argv{const_cast<char*>(binary)};
        for (const auto& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        std::vector<char*> envp;
        for (std::size_t i = 0; environment && i < environment->size(); ++i) {
            envp.push_back(const_cast<char*>((*environment)[i].c_str()));
        }
        envp.push_back(nullptr);
        pid_ = fork();
        if (pid_ == 0) {
            const int log = logFile.empty() ? -1
                                            : open(logFile.c_str(),
                                                   O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            dup2(in, STDIN_FILENO);
            dup2(log >= 0 ? log : outPipe[1], STDOUT_FILENO);
            dup2(log >= 0 ? log : errPipe[1], STDERR_FILENO);
            if (!workingFolder.empty() && chdir(workingFolder.c_str()) != 0) {
                _exit(126);
            }
            // As a shell starts a command in the foreground: not with the signals this test (a
            // background job, or finish() for SIGPIPE) happens to ignore, which the child would
            // inherit, so that an interrupt reaches it as it reaches a user's.
            for (const int signal : {SIGINT, SIGQUIT, SIGPIPE}) {
                ::signal(signal, SIG_DFL);
            }
            execvpe(binary, argv.data(), environment ? envp.data() : environ);
            _exit(127);
        }
        if (pid_ < 0) {
            throw std::runtime_error("cannot start " + std::string(binary));
        }
        close(in);
        close(outPipe[1]);
        close(errPipe[1]);
        out_ = outPipe[0];
        err_ = errPipe[0];
    }
    ~KelvoProcess() {
        if (pid_ > 0 && !exited_) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
        close(out_);
        close(err_);
    }
    KelvoProcess(const KelvoProcess&) = delete;
    KelvoProcess& operator=(const KelvoProcess&) = delete;

    /// Reads standard error until it holds `text` (or the stream ends); returns what was read.
    std::string waitForError(const std::string& text) {
        const auto deadline = std::chrono::steady_clock::now() + limit;
        while (errors_.find(text) == std::string::npos) {
            pollfd readable{err_, POLLIN, 0};
            if (poll(&readable, 1, millisecondsUntil(deadline)) == 0) {
                break;
            }
            char buffer[256];
            const ssize_t count = read(err_, buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            errors_.append(buffer, static_cast<std::size_t>(count));
        }
        return errors_;
    }

    void signal(int number) {
        if (isRunning()) {
            kill(pid_, number);
        }
    }

    bool isRunning() {
        if (!exited_) {
            const pid_t reaped = waitpid(pid_, &status_, WNOHANG);
            exited_ = reaped == pid_ || (reaped < 0 && errno != EINTR);
        }
        return !exited_;
    }

    struct Outcome {
        int status = -1;
        std::string output;
        std::string errors;
    };

    /// Reads both streams to their end and waits for the exit. A child still running after
    /// `limit` (a hang) is killed and says so on its standard error.
    Outcome finish() {
        auto deadline = std::chrono::steady_clock::now() + limit;
        Outcome outcome;
        outcome.errors = errors_;
        const auto killAfterTheLimit = [&] {
            kill(pid_, SIGKILL);
            outcome.errors +=
                "[killed: still running after " + std::to_string(limit.count()) + " s]\n";
            deadline += std::chrono::hours(1);  // its pipes close as it dies
        };
        pollfd streams[2] = {{out_, POLLIN, 0}, {err_, POLLIN, 0}};
        std::string* texts[2] = {&outcome.output, &outcome.errors};
        char buffer[4096];
        while (streams[0].fd >= 0 || streams[1].fd >= 0) {
            const int ready = poll(streams, 2, millisecondsUntil(deadline));
            if (ready < 0 && errno != EINTR) {
                break;
            }
            if (ready == 0) {
                killAfterTheLimit();
            }
            for (int i = 0; ready > 0 && i < 2; ++i) {
                if (streams[i].revents != 0) {
                    const ssize_t count = read(streams[i].fd, buffer, sizeof buffer);
                    if (count > 0) {
                        texts[i]->append(buffer, static_cast<std::size_t>(count));
                    } else {
                        streams[i].fd = -1;  // poll skips it from now on
                    }
                }
            }
        }
        // A child that writes to a log file, or closed its streams, may still be running.
        const auto exited = [this] { return !isRunning(); };
        if (!waitUntil(exited, std::chrono::milliseconds(millisecondsUntil(deadline)))) {
            killAfterTheLimit();
            waitUntil(exited, std::chrono::hours(1));
        }
        outcome.status = WIFEXITED(status_) ? WEXITSTATUS(status_) : 128 + WTERMSIG(status_);
        return outcome;
    }

    // Generous: sanitized binaries on a loaded machine are slow, but never this slow.
    std::chrono::seconds limit{300};

  private:
    static int millisecondsUntil(std::chrono::steady_clock::time_point deadline) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
            deadline - std::chrono::steady_clock::now());
        return static_cast<int>(std::max<long long>(0, left.count()));
    }

    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
    bool exited_ = false;
    int status_ = 0;
    std::string errors_;
};

}  // namespace kelvo::test
