#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "fakes/TestEventLoop.h"
#include "platform/QSettingsPreferences.h"

namespace kelvo::test {
namespace {

// Values survive a reopening; a registered default answers only until a value is stored; absent
// or mistyped keys give the fallback.
TEST(QSettingsPreferencesTest, ValuesPersistOverDefaultsAndFallBackWhenAbsentOrMistyped) {
    ensureCoreApplication();
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    const auto path = folder.filePath("settings.ini");
    const std::string key = "kvmac_fillerRemovalEnabled";
    {
        platform::QSettingsPreferences preferences(path);
        EXPECT_FALSE(preferences.boolValue(key));
        preferences.registerDefault(key, true);
        EXPECT_TRUE(preferences.boolValue(key));
        preferences.setBool(key, false);
        EXPECT_EQ(preferences.stringValue("kvmac_triggerKey", "Control_R"), "Control_R");
        EXPECT_TRUE(preferences.stringListValue("kvmac_terminalWindowClasses").empty());
        EXPECT_EQ(preferences.intValue("kvmac_modelIdleReleaseMinutes", 10), 10);
        preferences.setString("kvmac_triggerKey", "Alt_R");
        preferences.setString("kvmac_microphoneSource", "");
        preferences.setString("kvmac_modelDownloadBaseURL", "https://mirror.example/a, b");
        preferences.setStringList("one", {"kitty"});
        preferences.setStringList("two", {"kitty", "Alacritty, beta"});
        preferences.setStringList("none", {});
        preferences.setInt("kvmac_modelIdleReleaseMinutes", 25);
    }
    platform::QSettingsPreferences reopened(path);
    reopened.registerDefault(key, true);
    EXPECT_FALSE(reopened.boolValue(key)) << "the stored false wins over the default";
    EXPECT_EQ(reopened.stringValue("kvmac_triggerKey", "Control_R"), "Alt_R");
    EXPECT_EQ(reopened.stringValue("kvmac_microphoneSource", "x"), "") << "empty is a value";
    EXPECT_EQ(reopened.stringValue("kvmac_modelDownloadBaseURL", ""),
              "https://mirror.example/a, b");
    EXPECT_EQ(reopened.stringListValue("one"), std::vector<std::string>{"kitty"});
    EXPECT_EQ(reopened.stringListValue("two"),
              (std::vector<std::string>{"kitty", "Alacritty, beta"}));
    EXPECT_TRUE(reopened.stringListValue("none").empty());
    EXPECT_EQ(reopened.stringValue("two", "fallback"), "fallback") << "a list is not a string";
    EXPECT_EQ(reopened.intValue("kvmac_modelIdleReleaseMinutes", 10), 25);
    EXPECT_EQ(reopened.intValue("kvmac_triggerKey", 10), 10) << "not a number";
}

}  // namespace
}  // namespace kelvo::test
