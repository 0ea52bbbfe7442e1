#include "KelvoVoiceApp.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace kelvo::test {
namespace {

std::string quoted(const std::string& text) {
    std::string result = "'";
    for (char c : text) {
        if (c == '\'') {
            result += "'\\''";
        } else {
            result += c;
        }
    }
    return result + "'";
}

std::string sessionTool() {
    return quoted((KelvoVoiceApp::sourceDirectory() / "scripts" / "headless-session").string());
}

}  // namespace

bool waitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit) {
    auto deadline = std::chrono::steady_clock::now() + limit;
    while (true) {
        if (condition()) {
            return true;
        }
        if (std::chrono::steady_clock::now() >= deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
}

std::filesystem::path KelvoVoiceApp::sourceDirectory() {
    return KELVO_SOURCE_DIR;
}

std::filesystem::path KelvoVoiceApp::englishSample() {
    return sourceDirectory() / "samples" / "dictation-en.flac";
}

std::filesystem::path KelvoVoiceApp::dictionaryFile(const std::filesystem::path& home) {
    return home / "data" / "KelvoVoiceMac" / "dictionary.json";
}

KelvoVoiceApp::KelvoVoiceApp(const std::filesystem::path& home,
                             const std::vector<std::string>& arguments) {
    std::filesystem::create_directories(home / "data");
    std::filesystem::create_directories(home / "config");
    logFile_ = home / "kelvovoice.log";
    std::string dataHome = "XDG_DATA_HOME=" + (home / "data").string();
    std::string configHome = "XDG_CONFIG_HOME=" + (home / "config").string();
    std::vector<std::string> argumentTexts = {KELVOVOICE_BINARY, "--verbose"};
    argumentTexts.insert(argumentTexts.end(), arguments.begin(), arguments.end());

    pid_ = fork();
    if (pid_ == 0) {
        int log = open(logFile_.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0600);
        int nothing = open("/dev/null", O_RDONLY);
        dup2(nothing, STDIN_FILENO);
        dup2(log, STDOUT_FILENO);
        dup2(log, STDERR_FILENO);
        putenv(dataHome.data());
        putenv(configHome.data());
        setenv("LANG", "en_US.UTF-8", 1);
        setenv("LC_ALL", "en_US.UTF-8", 1);
        std::vector<char*> argv;
        for (auto& text : argumentTexts) {
            argv.push_back(text.data());
        }
        argv.push_back(nullptr);
        execv(argv[0], argv.data());
        _exit(127);
    }
    if (pid_ < 0) {
        throw std::runtime_error("fork failed");
    }
}

KelvoVoiceApp::~KelvoVoiceApp() {
    terminate();
}

std::string KelvoVoiceApp::log() const {
    std::ifstream in(logFile_);
    std::stringstream text;
    text << in.rdbuf();
    return text.str();
}

std::size_t KelvoVoiceApp::countInLog(const std::string& text) const {
    std::string all = log();
    std::size_t count = 0;
    for (auto at = all.find(text); at != std::string::npos; at = all.find(text, at + 1)) {
        ++count;
    }
    return count;
}

bool KelvoVoiceApp::waitForLog(const std::string& text, std::size_t count,
                               std::chrono::milliseconds limit) const {
    return waitUntil([&] { return countInLog(text) >= count; }, limit);
}

bool KelvoVoiceApp::isRunning() {
    if (exited_) {
        return false;
    }
    int status = 0;
    if (waitpid(pid_, &status, WNOHANG) == pid_) {
        exited_ = true;
        return false;
    }
    return true;
}

int KelvoVoiceApp::terminate() {
    if (pid_ <= 0 || exited_) {
        return 0;
    }
    kill(pid_, SIGTERM);
    int status = 0;
    bool ended = waitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; },
                           std::chrono::seconds(20));
    if (!ended) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    }
    exited_ = true;
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

std::string KelvoVoiceApp::run(const std::string& commandLine) {
    FILE* pipe = popen(commandLine.c_str(), "r");
    if (!pipe) {
        throw std::runtime_error("cannot run: " + commandLine);
    }
    std::string output;
    char buffer[4096];
    for (std::size_t count; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
        output.append(buffer, count);
    }
    int status = pclose(pipe);
    if (status != 0) {
        throw std::runtime_error("failed (" + std::to_string(status) + "): " + commandLine);
    }
    return output;
}

void KelvoVoiceApp::pressTrigger(bool down) {
    run(std::string("xdotool ") + (down ? "keydown" : "keyup") + " Control_R");
}

void KelvoVoiceApp::tapTrigger(std::chrono::milliseconds held) {
    pressTrigger(true);
    std::this_thread::sleep_for(held);
    pressTrigger(false);
}

void KelvoVoiceApp::play(const std::filesystem::path& sound) {
    run(sessionTool() + " play " + quoted(sound.string()));
}

void KelvoVoiceApp::dictate(const std::filesystem::path& sound) {
    pressTrigger(true);
    // The microphone opens at the press; the speech starts a moment later, as a person's would.
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    play(sound);
    pressTrigger(false);
}

std::optional<std::string> KelvoVoiceApp::clipboardText() {
    try {
        return run("timeout 10 xclip -o -selection clipboard 2>/dev/null");
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

void KelvoVoiceApp::setClipboardText(const std::string& text) {
    // xclip stays in the background serving the selection until another client takes it.
    run("printf %s " + quoted(text) + " | xclip -selection clipboard -i >/dev/null 2>&1");
}

std::vector<std::string> KelvoVoiceApp::menuEntries() {
    std::string output =
        run(quoted((sourceDirectory() / "tests" / "e2e" / "sni-menu").string()) + " list");
    std::vector<std::string> entries;
    std::istringstream lines(output);
    for (std::string line; std::getline(lines, line);) {
        // Drop the numeric id: it is Qt's, not the menu's.
        entries.push_back(line.substr(line.find('\t') + 1));
    }
    return entries;
}

void KelvoVoiceApp::clickMenu(const std::string& label) {
    run(quoted((sourceDirectory() / "tests" / "e2e" / "sni-menu").string()) + " click " +
        quoted(label));
}

void KelvoVoiceApp::startStatusNotifierHost() {
    run(sessionTool() + " tray-host sni");
}

}  // namespace kelvo::test
