#include "frame/main_frame.h"

#include <QElapsedTimer>
#include <QThread>
#include <gtest/gtest.h>

#include "display/raster_view.h"
#include "frame_app.h"
#include "i18n/current_language.h"
#include "platform/registry/registry.h"
#include "settings/settings.h"
#include "settings/settings_io.h"
#include "support/english_module.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::frame {
namespace {

using orvanta::test::TempFolder;

using test::PumpUntil;

class MainFrameTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::App();
        i18n::SetCurrentLanguage(
            std::make_shared<i18n::LanguageModule>(orvanta::test::EnglishModule()));
        // a: landscape, b: portrait, c: a PNG, in name order.
        orvanta::test::WriteFile(folder_ / "a.jpg", orvanta::test::MakeJpeg(300, 200));
        orvanta::test::WriteFile(folder_ / "b.jpg", orvanta::test::MakeJpeg(200, 300));
        orvanta::test::WriteFile(folder_ / "c.png", orvanta::test::MakePng(64, 48));
        frame_ = std::make_unique<MainFrame>(2);
        frame_->resize(900, 700);
        frame_->show();
    }
    void TearDown() override { frame_.reset(); }

    // The size of the picture the view shows, once it is the entry at `position`'s.
    bool ShowsPicture(std::uint32_t position, std::uint32_t width, std::uint32_t height) {
        const bool shown = PumpUntil([&] {
            const auto& picture = frame_->View().Picture();
            return frame_->List().Position() == position && picture && picture->width == width &&
                   picture->height == height;
        });
        if (!shown) {
            const auto& picture = frame_->View().Picture();
            ADD_FAILURE() << "at " << frame_->List().Position() << " of " << frame_->List().Count()
                          << ", picture "
                          << (picture ? std::to_string(picture->width) + "x" +
                                            std::to_string(picture->height)
                                      : std::string("none"));
        }
        return shown;
    }

    // The first picture shown is that of the entry the scan found first; waits for it and
    // then for the scan's end.
    void OpenAndSettle() {
        ASSERT_TRUE(frame_->OpenFolder(folder_.Path().string()));
        ASSERT_TRUE(PumpUntil([&] { return frame_->View().Picture() != nullptr; }));
        ASSERT_TRUE(PumpUntil([&] { return frame_->List().ScanComplete(); }));
        frame_->RunCommand(Command::kFirst);
        ASSERT_TRUE(ShowsPicture(1, 300, 200));
    }

    TempFolder folder_;
    std::unique_ptr<MainFrame> frame_;
};

TEST_F(MainFrameTest, OpeningAFolderShowsItsFirstPictureAndLabel) {
    frame_->ShowStartPicture();
    EXPECT_EQ(frame_->View().Picture(), nullptr);
    ASSERT_TRUE(frame_->OpenFolder(folder_.Path().string()));
    // Whichever entry the scan found first is shown, with its own picture and label.
    ASSERT_TRUE(PumpUntil([&] { return frame_->View().Picture() != nullptr; }));
    const std::string first = frame_->List().Current()->BasePath();
    const auto& picture = frame_->View().Picture();
    const std::uint32_t expectedWidth = first.ends_with("/a")   ? 300
                                        : first.ends_with("/b") ? 200
                                                                : 64;
    EXPECT_EQ(picture->width, expectedWidth) << first;
    const std::string name = first.substr(first.rfind('/') + 1);
    EXPECT_TRUE(PumpUntil([&] {
        return frame_->FileLabelText().contains(QString::fromStdString("/" + name + "."));
    })) << frame_->FileLabelText().toStdString();
    frame_->RunCommand(Command::kFirst);
    ASSERT_TRUE(ShowsPicture(1, 300, 200));
    EXPECT_TRUE(PumpUntil([&] { return frame_->FileLabelText().endsWith("a.jpg"); }))
        << frame_->FileLabelText().toStdString();
    EXPECT_TRUE(PumpUntil([&] { return frame_->StatusLineText().contains("300"); }))
        << frame_->StatusLineText().toStdString();
}

TEST_F(MainFrameTest, NavigationCommandsMoveTheListAndTheView) {
    OpenAndSettle();

    frame_->RunCommand(Command::kNext, 0, true);
    EXPECT_TRUE(ShowsPicture(2, 200, 300));
    frame_->RunCommand(Command::kLast);
    EXPECT_TRUE(ShowsPicture(3, 64, 48));
    frame_->RunCommand(Command::kFirst);
    EXPECT_TRUE(ShowsPicture(1, 300, 200));
    frame_->RunCommand(Command::kNextFile);
    EXPECT_TRUE(ShowsPicture(2, 200, 300));
    frame_->RunCommand(Command::kPrevious);
    EXPECT_TRUE(ShowsPicture(1, 300, 200));
    // A command the frame does not know leaves the list where it is.
    frame_->RunCommand(4242);
    EXPECT_EQ(frame_->List().Position(), 1u);
}

TEST_F(MainFrameTest, OpeningFilesShowsTheFirstNamedInItsFolder) {
    const std::string joined =
        (folder_ / "b.jpg").string() + "|" + (folder_ / "c.png").string() + "|";
    ASSERT_TRUE(frame_->OpenList(joined));
    EXPECT_TRUE(PumpUntil([&] { return frame_->List().ScanComplete(); }));
    EXPECT_TRUE(ShowsPicture(2, 200, 300));
    EXPECT_EQ(frame_->List().Count(), 3u);
    // An empty list of entries opens nothing and refuses nothing.
    EXPECT_TRUE(frame_->OpenList("|"));
    EXPECT_EQ(frame_->List().Count(), 3u);
}

// Closing remembers the picture shown relative to its folder, and the window placement.
TEST_F(MainFrameTest, ClosingSavesTheSession) {
    settings::ReuseLastPictureFolder.Set(1);
    OpenAndSettle();
    frame_->RunCommand(Command::kNext);
    ASSERT_TRUE(ShowsPicture(2, 200, 300));
    frame_->close();
    platform::RegKey key;
    ASSERT_EQ(platform::RegKey::Open(platform::RegistryStore::User(), settings::kSettingsKey, key),
              0);
    std::string lastViewed;
    std::string placement;
    EXPECT_EQ(settings::ReadString(key, "LastImageViewed", lastViewed), 0);
    EXPECT_EQ(lastViewed, "b.jpg");
    EXPECT_EQ(settings::ReadString(key, "AppWindow", placement), 0);
    EXPECT_FALSE(placement.empty());
    settings::ReuseLastPictureFolder.Set(0);
}

// While the view rests, the decoded picture ahead in the direction of travel is handed to it
// to prepare, and the step to it shows that very picture; pictures the list gains after the
// first one was shown are decoded ahead too, without waiting for a move.
TEST_F(MainFrameTest, PictureAheadFollowsTheDirectionOfTravel) {
    TempFolder shoot;
    orvanta::test::WriteFile(shoot / "d1.jpg", orvanta::test::MakeJpeg(1800, 1350));
    ASSERT_TRUE(frame_->OpenFolder(shoot.Path().string()));
    ASSERT_TRUE(PumpUntil([&] { return frame_->View().Picture() != nullptr; }));
    ASSERT_TRUE(PumpUntil([&] { return frame_->List().ScanComplete(); }));
    auto& view = frame_->View();
    for (const char* name : {"d2.jpg", "d3.jpg", "d4.jpg"}) {
        orvanta::test::WriteFile(shoot / name, orvanta::test::MakeJpeg(1800, 1350));
    }
    ASSERT_TRUE(PumpUntil([&] { return frame_->List().Count() == 4; }));
    ASSERT_TRUE(PumpUntil([&] { return view.PreparedPicture(true) != nullptr; }));
    const auto* ahead = view.PreparedPicture(true);
    frame_->RunCommand(Command::kNext, 0, true);
    EXPECT_EQ(frame_->List().Position(), 2u);
    EXPECT_EQ(view.Picture().get(), ahead);

    frame_->RunCommand(Command::kNext, 0, true);
    ASSERT_TRUE(PumpUntil([&] { return view.PreparedPicture(true) != nullptr; }));
    const auto* fourth = view.PreparedPicture(true);
    frame_->RunCommand(Command::kPrevious, 0, true);
    EXPECT_EQ(frame_->List().Position(), 2u);
    // Now travelling backwards: the picture before is the one made ready.
    ASSERT_TRUE(PumpUntil([&] {
        return view.PreparedPicture(true) != nullptr && view.PreparedPicture(true) != fourth;
    }));
    ahead = view.PreparedPicture(true);
    frame_->RunCommand(Command::kPrevious, 0, true);
    EXPECT_EQ(frame_->List().Position(), 1u);
    EXPECT_EQ(view.Picture().get(), ahead);
}

}  // namespace
}  // namespace orvanta::frame
