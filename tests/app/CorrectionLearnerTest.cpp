#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "KelvoVoiceMac/session/CorrectionLearner.h"
#include "fakes/FakeAccessibilityClient.h"
#include "fakes/FakeClock.h"
#include "fakes/FakeFieldEditWatcher.h"
#include "fakes/FakeKeySynthesizer.h"
#include "fakes/FakePasteboard.h"
#include "fakes/FakePreferences.h"
#include "fakes/FakeStatusItemPresenter.h"
#include "fakes/FakeWorkspace.h"
#include "fakes/RecordingLog.h"
#include "fakes/TestEventLoop.h"

namespace kelvo::test {
namespace {

using namespace std::chrono_literals;
using TextRange = platform::AccessibilityClient::TextRange;

QCoro::Task<> runInsert(app::CorrectionLearner& learner, std::string text) {
    co_await learner.insert(std::move(text), true);
}

// A word of the dictation typed over once the accessibility insertion is verified becomes a
// suggestion and ends the watch; a paste is never watched; a new recording ends a watch.
TEST(CorrectionLearnerTest, WatchesOnlyFieldsTheTextWentIntoUntilTheNextDictation) {
    ensureCoreApplication();
    FakeClock clock;
    FakeAccessibilityClient accessibility{clock};
    FakePasteboard pasteboard;
    FakeKeySynthesizer keys;
    FakeWorkspace workspace;
    RecordingLog trace;
    FakePreferences preferences;
    FakeStatusItemPresenter statusItem;
    FakeFieldEditWatcher watcher;
    app::TextInsertionService inserter{{accessibility, pasteboard, keys, workspace, clock, trace}};
    std::vector<CorrectionSuggestion> suggested;
    int firstUses = 0;
    app::CorrectionLearner learner{{inserter, statusItem, watcher, nullptr, preferences, clock,
                                    trace, [&](const auto& s) { suggested.push_back(s); },
                                    [&] { ++firstUses; }}};
    accessibility.element->state = {"", std::nullopt, TextRange{0, 0}};
    accessibility.stateAfterSet = {"send the report", std::nullopt, TextRange{15, 0}};
    watcher.baseline = platform::FieldEditWatcher::Baseline{"send the report", 0, 0, 15};

    runInsert(learner, "send the report");
    runFor(clock, 200ms);
    ASSERT_TRUE(learner.isWatching());
    EXPECT_EQ(watcher.watched, "send the report");
    watcher.handlers.deleted(0, 4);
    watcher.handlers.inserted(0, "mail");
    runFor(clock, 2s);
    ASSERT_EQ(suggested.size(), 1u);
    EXPECT_EQ(suggested[0].misrecognition + "→" + suggested[0].canonical, "send→mail");
    EXPECT_FALSE(learner.isWatching());

    accessibility.changeDelay.reset();  // the element ignores the set: the text is pasted
    runInsert(learner, "send the report");
    runFor(clock, 2s);
    EXPECT_FALSE(learner.isWatching());

    accessibility.changeDelay = 0ms;
    accessibility.element->state = {"", std::nullopt, TextRange{0, 0}};
    runInsert(learner, "send the report");
    runFor(clock, 200ms);
    ASSERT_TRUE(learner.isWatching());
    learner.refresh(app::RecordingState::recording);
    EXPECT_FALSE(learner.isWatching());
    EXPECT_EQ(statusItem.refreshes.back(), app::RecordingState::recording);
    EXPECT_EQ(firstUses, 1);
}

}  // namespace
}  // namespace kelvo::test
