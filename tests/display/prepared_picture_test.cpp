// The picture ahead: a view prepares the smooth reduction of the picture it will likely
// show next, so that its first frame is already smooth.
#include <gtest/gtest.h>

#include "display/raster_view.h"
#include "view_pictures.h"

namespace orvanta::display {
namespace {

using test::FlatPicture;
using test::PatternPicture;
using test::PumpUntil;
using test::Smooth;

QImage Shot(PictureView& view) {
    return view.Screenshot().convertToFormat(QImage::Format_RGB32);
}

class PreparedPicture : public ::testing::Test {
protected:
    void SetUp() override {
        frame::test::App();
        view_ = std::make_unique<RasterView>();
        view_->resize(800, 600);
        view_->show();
        view_->SetPicture(PatternPicture(2400, 1800, 5));
        ASSERT_TRUE(Settle());
    }
    // Waits for the view to say it settled.
    bool Settle() {
        bool settled = false;
        const auto connection =
            QObject::connect(view_.get(), &PictureView::Settled, [&] { settled = true; });
        PumpUntil([&] { return settled; }, 5000);
        QObject::disconnect(connection);
        return settled;
    }

    std::unique_ptr<RasterView> view_;
};

TEST_F(PreparedPicture, FirstFrameOfThePreparedPictureIsSmooth) {
    const auto next = PatternPicture(2400, 1800, 17);
    view_->Prepare(next);
    ASSERT_TRUE(PumpUntil([&] { return view_->PreparedPicture(true) == next.get(); }));
    view_->SetPicture(next);
    // The first frame, before any event could bring a reduction made after the step.
    EXPECT_EQ(Shot(*view_), Smooth(*next, {800, 600}));
    EXPECT_EQ(view_->PreparedPicture(false), nullptr);  // handed over
}

TEST_F(PreparedPicture, StepBeforeThePreparationCameTakesItWhenItComes) {
    const auto next = PatternPicture(2400, 1800, 17);
    view_->Prepare(next);
    view_->SetPicture(next);
    // The reduction on its way becomes the picture's: the view settles (it would wait for
    // it forever if it were dropped) and shows it.
    ASSERT_TRUE(Settle());
    EXPECT_EQ(Shot(*view_), Smooth(*next, {800, 600}));

    // The same when the step goes elsewhere and comes back before the preparation is done.
    const auto other = PatternPicture(2400, 1800, 40);
    view_->Prepare(other);
    view_->SetPicture(PatternPicture(2400, 1800, 50));
    view_->SetPicture(other);
    ASSERT_TRUE(Settle());
    EXPECT_EQ(Shot(*view_), Smooth(*other, {800, 600}));
}

TEST_F(PreparedPicture, OnlyTheRightPictureAtTheRightSizeIsTaken) {
    // Replaced by another preparation: the first picture is reduced after its step.
    const auto first = PatternPicture(2400, 1800, 17);
    const auto flat = FlatPicture(2400, 1800);
    view_->Prepare(first);
    view_->Prepare(flat);
    ASSERT_TRUE(PumpUntil([&] { return view_->PreparedPicture(true) == flat.get(); }));
    view_->SetPicture(first);
    const QImage quick = Shot(*view_);
    EXPECT_NE(quick, Smooth(*flat, {800, 600}));
    EXPECT_NE(quick.pixel(400, 300), Smooth(*flat, {800, 600}).pixel(400, 300));
    ASSERT_TRUE(Settle());
    EXPECT_EQ(Shot(*view_), Smooth(*first, {800, 600}));

    // Prepared for a view size that changed before the step: made again at the new size.
    view_->Prepare(flat);
    ASSERT_TRUE(PumpUntil([&] { return view_->PreparedPicture(true) == flat.get(); }));
    view_->resize(600, 600);
    view_->SetPicture(flat);
    ASSERT_TRUE(Settle());
    EXPECT_EQ(view_->LastDestination(), QRect(0, 75, 600, 450));
    EXPECT_EQ(Shot(*view_).copy(0, 75, 600, 450), Smooth(*flat, {600, 450}));

    // Nothing is made for a picture drawn from its own pixels, nor for the one shown.
    view_->Prepare(PatternPicture(700, 500));
    EXPECT_EQ(view_->PreparedPicture(false), nullptr);
    view_->Prepare(view_->Picture());
    EXPECT_EQ(view_->PreparedPicture(false), nullptr);
}

}  // namespace
}  // namespace orvanta::display
