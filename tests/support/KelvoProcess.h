#pragma once

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace kelvo::test {

/// The `kelvo` binary running as a child process, standard input on /dev/null and standard output
/// and error on pipes. The child gets `environment` ("NAME=value" texts) as its whole environment,
/// or the test's own when none is given. A child still running when the object goes is killed.
/// Output is read only by waitForError() and finish(): a child that writes more than a pipe holds
/// to standard error before it closes standard output must be read with waitForError() first.
class KelvoProcess {
  public:
    KelvoProcess(const char* binary, const std::vector<std::string>& arguments,
                 const std::optional<std::vector<std::string>>& environment = std::nullopt) {
        int outPipe[2];
        int errPipe[2];
        if (pipe2(outPipe, O_CLOEXEC) != 0 || pipe2(errPipe, O_CLOEXEC) != 0) {
            throw std::runtime_error("pipe failed");
        }
        std::vector<char*> argv{const_cast<char*>(binary)};
        for (const auto& argument : arguments) {
            argv.push_back(const_cast<char*>(argument.c_str()));
        }
        argv.push_back(nullptr);
        std::vector<char*> envp;
        if (environment) {
            for (const auto& text : *environment) {
                envp.push_back(const_cast<char*>(text.c_str()));
            }
            envp.push_back(nullptr);
        }
        pid_ = fork();
        if (pid_ == 0) {
            const int nothing = open("/dev/null", O_RDONLY);
            dup2(nothing, STDIN_FILENO);
            if (nothing > STDERR_FILENO) {
                close(nothing);
            }
            dup2(outPipe[1], STDOUT_FILENO);
            dup2(errPipe[1], STDERR_FILENO);
            if (environment) {
                execve(binary, argv.data(), envp.data());
            } else {
                execv(binary, argv.data());
            }
            _exit(127);
        }
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
        while (errors_.find(text) == std::string::npos) {
            char buffer[256];
            const ssize_t count = read(err_, buffer, sizeof buffer);
            if (count <= 0) {
                break;
            }
            errors_.append(buffer, static_cast<std::size_t>(count));
        }
        return errors_;
    }

    void signal(int number) { kill(pid_, number); }

    struct Outcome {
        int status = -1;
        std::string output;
        std::string errors;
    };

    /// Reads both streams to their end and waits for the exit.
    Outcome finish() {
        Outcome outcome;
        outcome.output = readAll(out_);
        outcome.errors = errors_ + readAll(err_);
        int status = 0;
        waitpid(pid_, &status, 0);
        exited_ = true;
        outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        return outcome;
    }

  private:
    static std::string readAll(int fd) {
        std::string text;
        char buffer[4096];
        for (ssize_t count; (count = read(fd, buffer, sizeof buffer)) > 0;) {
            text.append(buffer, static_cast<std::size_t>(count));
        }
        return text;
    }

    pid_t pid_ = -1;
    int out_ = -1;
    int err_ = -1;
    bool exited_ = false;
    std::string errors_;
};

}  // namespace kelvo::test
