// The application and `kelvo dictate --file` finish the same recognised words into the same text:
// the bundled sentence played into the virtual microphone while the trigger key is held, and the
// same file handed to the tool, over one data folder. The dictionary turns "report" into a
// Japanese term and "please" into a filler, which filler removal then takes out again, so both
// steps of the finished-text rule and their order are in play. The recogniser itself hears the
// live microphone a little differently each time (where its frames fall, what it adapted to
// before), so the two texts are compared word by word with room for one recognition difference.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>

#include "InsertionTarget.h"
#include "KelvoVoiceApp.h"
#include "tests/e2e/SpokenEnglish.h"
#include "tests/support/KelvoProcess.h"

namespace kelvo::test {
namespace {

constexpr const char* kDictionary = R"([
  {"id": "0B6A3C52-6C1E-4F0B-9B2D-3A5E2F1C7D10", "canonicalText": "レポート", "readings": [],
   "commonMisrecognitions": ["report"], "replacementText": "", "priority": 50, "enabled": true},
  {"id": "7E2D9A14-58C3-4B6F-8A0E-1C9B3D5F2E47", "canonicalText": "えーと、", "readings": [],
   "commonMisrecognitions": ["please "], "replacementText": "", "priority": 40, "enabled": true}
])";

std::string trimmed(std::string text) {
    while (!text.empty() && (text.back() == ' ' || text.back() == '\n')) {
        text.pop_back();
    }
    return text;
}

TEST(SameText, AppAndKelvoDictateAgreeOnTheSameAudioAndDictionary) {
    const std::filesystem::path home =
        std::filesystem::temp_directory_path() / ("kelvo-same-text-" + std::to_string(getpid()));
    std::filesystem::remove_all(home);
    const std::filesystem::path dictionary = KelvoVoiceApp::dictionaryFile(home);
    std::filesystem::create_directories(dictionary.parent_path());
    std::ofstream(dictionary) << kDictionary;

    std::string appText;
    std::string appLog;
    {
        KelvoVoiceApp app(home);
        ASSERT_TRUE(app.waitForLog("[KelvoVoice] GlobalHotkeyService started"));
        ASSERT_TRUE(app.waitForLog("[KelvoVoice] statusItem next-runloop"));
        // A silent hold first, so the recogniser's model is loaded before the words come.
        KelvoVoiceApp::tapTrigger(std::chrono::milliseconds(1500));
        ASSERT_TRUE(app.waitForLog("[KelvoVoice] statusItem idle"));
        InsertionTarget target("gtk-entry");
        const std::size_t finished = app.countInLog("[KelvoVoice] statusItem idle");
        // The key comes up once the recogniser has settled the sentence (the microphone goes on
        // with silence), so that a busy machine's decoding backlog is not cut off by the stop.
        KelvoVoiceApp::pressTrigger(true);
        std::this_thread::sleep_for(std::chrono::milliseconds(300));
        KelvoVoiceApp::play(KelvoVoiceApp::englishSample());
        ASSERT_TRUE(app.waitForLog("[Final] ")) << app.log();
        KelvoVoiceApp::pressTrigger(false);
        ASSERT_TRUE(app.waitForLog("[KelvoVoice] statusItem idle", finished + 1)) << app.log();
        const auto state =
            target.waitForState([](const InsertionTarget::State& s) { return !s.text.empty(); },
                                std::chrono::seconds(20));
        ASSERT_TRUE(state) << app.log();
        appText = state->text;
        appLog = app.log();
    }

    KelvoProcess kelvo(
        KELVO_BINARY,
        {"dictate", "--locale", "en-US", "--file", KelvoVoiceApp::englishSample().string()},
        std::vector<std::string>{"XDG_DATA_HOME=" + (home / "data").string(),
                                 "HOME=" + home.string(), "LANG=en_US.UTF-8",
                                 "PATH=/usr/bin:/bin"});
    const KelvoProcess::Outcome outcome = kelvo.finish();
    ASSERT_EQ(outcome.status, 0) << outcome.errors;
    const std::string toolText = trimmed(outcome.output);
    std::cout << "app:  " << trimmed(appText) << "\nkelvo: " << toolText << "\n";
    for (const std::string& text : {appText, toolText}) {
        EXPECT_NE(text.find("レポート"), std::string::npos) << text;
        EXPECT_EQ(text.find("please"), std::string::npos) << text;
        EXPECT_EQ(text.find("えーと"), std::string::npos) << text;
    }
    // At most one word of the sentence's six or seven (1/6 or 1/7); two would be at least 2/7.
    EXPECT_LE(testing::wordErrorRate(toolText, appText), 0.2) << appLog;
    std::filesystem::remove_all(home);
}

}  // namespace
}  // namespace kelvo::test
