#include "KelvoVoiceApp.h"

#include <cstdio>
#include <sstream>
#include <stdexcept>
#include <thread>

#include "tests/e2e/SpokenEnglish.h"

namespace kelvo::test {
namespace {

using testing::quoted;
using testing::runShell;

std::string sessionTool() {
    return quoted((KelvoVoiceApp::sourceDirectory() / "scripts" / "headless-session").string());
}

}  // namespace

std::filesystem::path KelvoVoiceApp::sourceDirectory() {
    return KELVO_SOURCE_DIR;
}

std::filesystem::path KelvoVoiceApp::englishSample() {
    return sourceDirectory() / "samples" / "dictation-en.flac";
}

namespace {

std::vector<std::string> folders(const std::filesystem::path& home) {
    std::filesystem::create_directories(home / "data");
    std::filesystem::create_directories(home / "config");
    return {"XDG_DATA_HOME=" + (home / "data").string(),
            "XDG_CONFIG_HOME=" + (home / "config").string(), "LANG=en_US.UTF-8",
            "LC_ALL=en_US.UTF-8"};
}

std::vector<std::string> withBinary(std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {KELVOVOICE_BINARY, "--verbose"});
    return arguments;
}

}  // namespace

KelvoVoiceApp::KelvoVoiceApp(const std::filesystem::path& home,
                             const std::vector<std::string>& arguments)
    : LoggedProcess(withBinary(arguments), home / "kelvovoice.log", folders(home)) {}

bool KelvoVoiceApp::dictate(const std::filesystem::path& sound,
                            const std::function<void(bool)>& startOrStop) {
    using namespace std::chrono_literals;
    const std::size_t idle = countInLog("[KelvoVoice] statusItem idle");
    const std::size_t recording = countInLog("[KelvoVoice] statusItem recording");
    const std::size_t finals = countInLog("[Final] ");
    startOrStop(true);
    bool ok = waitForLog("[KelvoVoice] statusItem recording", recording + 1);
    // The speech starts a moment after the press, as a person's would.
    std::this_thread::sleep_for(sound.empty() ? 1500ms : 300ms);
    if (!sound.empty()) {
        play(sound);
        ok = waitForLog("[Final] ", finals + 1) && ok;
    }
    startOrStop(false);
    return waitForLog("[KelvoVoice] statusItem idle", idle + 1) && ok;
}

void KelvoVoiceApp::pressTrigger(bool down) {
    runShell(std::string("xdotool ") + (down ? "keydown" : "keyup") + " Control_R");
}

void KelvoVoiceApp::tapTrigger(std::chrono::milliseconds held) {
    pressTrigger(true);
    std::this_thread::sleep_for(held);
    pressTrigger(false);
}

void KelvoVoiceApp::play(const std::filesystem::path& sound) {
    runShell(sessionTool() + " play " + quoted(sound.string()));
}

void KelvoVoiceApp::clickDictationMenuItem(bool start) {
    clickMenu(start ? "Start Dictation" : "Stop Dictation");
}

std::optional<std::string> KelvoVoiceApp::clipboardText() {
    try {
        return runShell("timeout 10 xclip -o -selection clipboard 2>/dev/null");
    } catch (const std::runtime_error&) {
        return std::nullopt;
    }
}

void KelvoVoiceApp::setClipboardText(const std::string& text) {
    // xclip stays in the background serving the selection until another client takes it.
    runShell("printf %s " + quoted(text) + " | xclip -selection clipboard -i >/dev/null 2>&1");
}

std::vector<std::string> KelvoVoiceApp::menuEntries() {
    std::vector<std::string> entries;
    std::istringstream lines(sniMenu("list"));
    for (std::string line; std::getline(lines, line);) {
        // Drop the numeric id: it is Qt's, not the menu's.
        entries.push_back(line.substr(line.find('\t') + 1));
    }
    return entries;
}

void KelvoVoiceApp::clickMenu(const std::string& label) {
    sniMenu("click " + quoted(label));
}

std::string KelvoVoiceApp::sniMenu(const std::string& arguments) {
    return runShell(quoted((sourceDirectory() / "tests" / "e2e" / "sni-menu").string()) + " " +
                    arguments);
}

void KelvoVoiceApp::startStatusNotifierHost() {
    runShell(sessionTool() + " tray-host sni");
}

}  // namespace kelvo::test
