#include <gtest/gtest.h>

#include <QTemporaryDir>

#include "fakes/TestEventLoop.h"
#include "platform/QSettingsPreferences.h"

namespace kelvo::test {
namespace {

TEST(QSettingsPreferencesTest, RegisteredDefaultAnswersUntilAValueIsStoredAndPersisted) {
    ensureCoreApplication();
    QTemporaryDir folder;
    ASSERT_TRUE(folder.isValid());
    auto path = folder.filePath("settings.ini");
    const std::string key = "kvmac_fillerRemovalEnabled";
    {
        platform::QSettingsPreferences preferences(path);
        EXPECT_FALSE(preferences.boolValue(key));
        preferences.registerDefault(key, true);
        EXPECT_TRUE(preferences.boolValue(key));
        preferences.setBool(key, false);
        EXPECT_FALSE(preferences.boolValue(key));
    }
    platform::QSettingsPreferences reopened(path);
    reopened.registerDefault(key, true);
    EXPECT_FALSE(reopened.boolValue(key)) << "the stored false wins over the default";
    reopened.setBool(key, true);
    EXPECT_TRUE(reopened.boolValue(key));
}

}  // namespace
}  // namespace kelvo::test
