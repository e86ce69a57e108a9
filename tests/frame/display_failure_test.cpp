#include "frame/display_failure.h"

#include <gtest/gtest.h>

#include "display/picture_view.h"
#include "frame/main_frame.h"
#include "frame_app.h"
#include "platform/registry/registry.h"
#include "settings/settings.h"
#include "settings/settings_io.h"
#include "support/temp_folder.h"

namespace orvanta::frame {
namespace {

TEST(DisplayFailure, RelaunchArgumentsCarryOnlyKnownFolders) {
    using V = std::vector<std::string>;
    EXPECT_EQ(RelaunchArguments("", ""), V{});
    EXPECT_EQ(RelaunchArguments("/p/a b", ""), (V{"-i", "/p/a b"}));
    EXPECT_EQ(RelaunchArguments("", "/keep"), (V{"-c", "/keep"}));
    EXPECT_EQ(RelaunchArguments("/p", "/keep"), (V{"-i", "/p", "-c", "/keep"}));
}

// A display failure tells the user once, stores DisableHWA = 1, and closes the frame with a
// restart on the open folder asked for; a second report changes nothing.
TEST(DisplayFailure, FrameClosesAndAsksForARestartWithoutAcceleration) {
    test::App();
    orvanta::test::TempFolder folder;
    int messages = 0;
    SetDisplayFailureMessage([&](const QString&) { ++messages; });
    settings::DisableHWA.Set(0);
    {
        MainFrame frame(1);
        frame.show();
        frame.OpenFolder(folder.Path().string());
        ASSERT_FALSE(frame.RelaunchRequest().has_value());
        emit frame.View().DisplayFailed();
        emit frame.View().DisplayFailed();
        QCoreApplication::processEvents();
        ASSERT_TRUE(frame.RelaunchRequest().has_value());
        EXPECT_EQ(*frame.RelaunchRequest(),
                  (std::vector<std::string>{"-i", frame.List().Folder().string()}));
        EXPECT_FALSE(frame.isVisible());
    }
    EXPECT_EQ(messages, 1);
    EXPECT_TRUE(settings::DisableHWA.On());
    platform::RegKey key;
    ASSERT_EQ(platform::RegKey::Open(platform::RegistryStore::User(), settings::kSettingsKey, key),
              0);
    std::uint32_t stored = 0;
    settings::ReadDword(key, "DisableHWA", stored);
    EXPECT_EQ(stored, 1u);
    SetDisplayFailureMessage(nullptr);
}

}  // namespace
}  // namespace orvanta::frame
