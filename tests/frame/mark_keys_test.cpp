#include <QApplication>
#include <QElapsedTimer>
#include <QKeyEvent>
#include <QThread>
#include <gtest/gtest.h>

#include "display/raster_view.h"
#include "frame/main_frame.h"
#include "frame_app.h"
#include "i18n/current_language.h"
#include "marks/mark_fakes.h"
#include "settings/settings.h"
#include "support/english_module.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::frame {
namespace {

using test::PumpUntil;

class MarkKeysTest : public ::testing::Test {
protected:
    void SetUp() override {
        test::App();
        i18n::SetCurrentLanguage(
            std::make_shared<i18n::LanguageModule>(orvanta::test::EnglishModule()));
        orvanta::test::WriteFile(folder_ / "a.jpg", orvanta::test::MakeJpeg(64, 48));
        orvanta::test::WriteFile(folder_ / "b.jpg", orvanta::test::MakeJpeg(48, 64));
        settings::EnableRating.Set(1);
        settings::CreateSidecarFiles.Set(1);
        frame_ = std::make_unique<MainFrame>(2);
        frame_->resize(600, 400);
        frame_->show();
        frame_->AttachMarkStores(stores_);
        ASSERT_TRUE(frame_->OpenFolder(folder_.Path().string()));
        ASSERT_TRUE(PumpUntil([&] { return frame_->List().ScanComplete(); }));
        frame_->RunCommand(Command::kFirst);
        ASSERT_TRUE(PumpUntil([&] { return frame_->View().Picture() != nullptr; }));
    }
    void TearDown() override {
        frame_.reset();
        for (auto* setting : settings::AllSettings()) {
            setting->ResetToDefault();
        }
    }
    void PressDigit(int digit) {
        QKeyEvent press(QEvent::KeyPress, Qt::Key_0 + digit, Qt::NoModifier,
                        QString::number(digit));
        QApplication::sendEvent(frame_.get(), &press);
    }

    orvanta::test::TempFolder folder_;
    marks::test::FakeStores stores_;
    std::unique_ptr<MainFrame> frame_;
};

TEST_F(MarkKeysTest, DigitShowsTheRatingAtOnceAndQueuesItsWrite) {
    PressDigit(3);
    // No event loop turn in between: the status line and the badge follow the key itself.
    EXPECT_TRUE(frame_->StatusLineText().contains("Rated 3"))
        << frame_->StatusLineText().toStdString();
    EXPECT_TRUE(frame_->View().ShowsMarkBadge());
    EXPECT_EQ(frame_->List().Current()->marks.rating, 3);
    ASSERT_TRUE(PumpUntil([&] { return !stores_.Calls().empty(); }));
    const auto calls = stores_.Calls();
    EXPECT_EQ(calls[0].kind, "create");
    EXPECT_EQ(calls[0].path, (folder_ / "a.xmp").string());
    EXPECT_EQ(calls[0].request.value, 3u);
    EXPECT_EQ(frame_->List().Position(), 1u);

    PressDigit(0);
    EXPECT_FALSE(frame_->StatusLineText().contains("Rated"));
    EXPECT_FALSE(frame_->View().ShowsMarkBadge());
    ASSERT_TRUE(PumpUntil([&] { return !frame_->MarkWriter()->HasWork(); }));
    EXPECT_TRUE(frame_->WaitForPendingFileWork());
}

TEST_F(MarkKeysTest, RatingAdvancesWhenAutoAdvanceIsOn) {
    settings::EnableRatingAutoAdvance.Set(1);
    PressDigit(5);
    EXPECT_TRUE(PumpUntil([&] { return frame_->List().Position() == 2u; }));
    EXPECT_EQ(frame_->List().First()->marks.rating, 5);
}

}  // namespace
}  // namespace orvanta::frame
