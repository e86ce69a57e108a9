#include "display/gl_view.h"

#include <cstdlib>

#include <QDir>
#include <gtest/gtest.h>

#include "display/raster_view.h"
#include "settings/settings.h"
#include "view_pictures.h"

namespace orvanta::display {
namespace {

using test::PatternPicture;
using test::PumpUntil;

struct Difference {
    double within = 0;  // share of pixels whose channels all differ by at most the tolerance
    int largest = 0;
};

Difference Compare(const QImage& a, const QImage& b, int tolerance) {
    Difference d;
    if (a.size() != b.size()) {
        return d;
    }
    std::int64_t close = 0;
    for (int y = 0; y < a.height(); ++y) {
        for (int x = 0; x < a.width(); ++x) {
            const QRgb p = a.pixel(x, y);
            const QRgb q = b.pixel(x, y);
            const int most = std::max({std::abs(qRed(p) - qRed(q)), std::abs(qGreen(p) - qGreen(q)),
                                       std::abs(qBlue(p) - qBlue(q))});
            d.largest = std::max(d.largest, most);
            close += most <= tolerance ? 1 : 0;
        }
    }
    d.within = static_cast<double>(close) / (static_cast<double>(a.width()) * a.height());
    return d;
}

// Keeps the screenshots for a person to look at when ORVANTA_SHOTS names a folder.
void Keep(const QImage& image, const std::string& name) {
    if (const char* folder = std::getenv("ORVANTA_SHOTS"); folder != nullptr && *folder != 0) {
        QDir().mkpath(folder);
        image.save(QString::fromUtf8(folder) + "/" + QString::fromStdString(name) + ".png");
    }
}

class GlViewTest : public ::testing::Test {
protected:
    void SetUp() override {
        frame::test::App();
        if (!OpenGlAvailable()) {
            GTEST_SKIP() << "no OpenGL 3.3 context on this display";
        }
        settings::MultiSampling.Set(1);
        settings::SmoothPixelsInZoomModes.Set(0);
        settings::EnableCopiedStampOverlay.Set(1);
        gl_ = std::make_unique<GlView>();
        raster_ = std::make_unique<RasterView>();
        for (PictureView* view :
             {static_cast<PictureView*>(gl_.get()), static_cast<PictureView*>(raster_.get())}) {
            view->resize(800, 600);
            view->show();
        }
        PumpUntil([&] { return gl_->PaintCount() > 0 && raster_->PaintCount() > 0; }, 5000);
    }
    void TearDown() override {
        gl_.reset();
        raster_.reset();
        settings::MultiSampling.ResetToDefault();
        settings::EnableCopiedStampOverlay.ResetToDefault();
    }
    void ShowBoth(const std::shared_ptr<const decode::DecodedPicture>& picture) {
        gl_->SetPicture(picture);
        raster_->SetPicture(picture);
        test::Pump(400);  // the raster path's reduction comes back
    }
    // Both screenshots, kept under `name`; the two views must have laid out the same.
    std::pair<QImage, QImage> Shots(const std::string& name) {
        const QImage gl = gl_->Screenshot();
        const QImage raster = raster_->Screenshot();
        Keep(gl, name + "-gl");
        Keep(raster, name + "-raster");
        EXPECT_EQ(gl_->LastDestination(), raster_->LastDestination()) << name;
        return {gl, raster};
    }

    std::unique_ptr<GlView> gl_;
    std::unique_ptr<RasterView> raster_;
};

// Pixel for pixel where both draw unfiltered; a reduced picture differs only by filtering.
TEST_F(GlViewTest, ShowsWhatTheRasterPathShows) {
    ShowBoth(PatternPicture(200, 100));
    auto [gl, raster] = Shots("small");
    EXPECT_EQ(Compare(gl, raster, 2).within, 1.0);

    // The first frame of a much reduced picture, before the smooth reduction comes: both
    // sample without filtering (a grid line may fall between samples on one path only),
    // the right way up.
    gl_->SetPicture(PatternPicture(2400, 1800));
    raster_->SetPicture(PatternPicture(2400, 1800));
    std::tie(gl, raster) = Shots("quick");
    EXPECT_GT(Compare(gl, raster, 8).within, 0.9);

    test::Pump(400);  // the raster path's reduction comes back
    std::tie(gl, raster) = Shots("reduced");
    EXPECT_EQ(gl_->LastDestination(), QRect(0, 0, 800, 600));
    // Both draw the view's smooth reduction one to one.
    EXPECT_EQ(Compare(gl, raster, 2).within, 1.0);

    // The magnifier enlarges without smoothing on both paths.
    for (PictureView* view :
         {static_cast<PictureView*>(gl_.get()), static_cast<PictureView*>(raster_.get())}) {
        test::Mouse(*view, QEvent::MouseButtonPress, Qt::RightButton, Qt::RightButton, {360, 290});
    }
    std::tie(gl, raster) = Shots("magnified");
    EXPECT_EQ(gl_->LastDestination(), QRect(0, 0, 800, 600));
    EXPECT_EQ(gl_->Geometry().PanX(), raster_->Geometry().PanX());
    EXPECT_GT(Compare(gl, raster, 8).within, 0.97);
    for (PictureView* view :
         {static_cast<PictureView*>(gl_.get()), static_cast<PictureView*>(raster_.get())}) {
        test::Mouse(*view, QEvent::MouseButtonRelease, Qt::RightButton, Qt::NoButton, {360, 290});
    }

    gl_->ToggleActualSize();
    raster_->ToggleActualSize();
    std::tie(gl, raster) = Shots("actual");
    EXPECT_EQ(Compare(gl, raster, 2).within, 1.0);
}

// Pictures above the texture limit are cut into tiles that meet without a seam; the next
// picture of the same size is loaded into the same tiles and shows no trace of the last.
TEST_F(GlViewTest, TilesJoinWithoutSeams) {
    gl_->SetMaxTileSize(256);
    ShowBoth(PatternPicture(1000, 700));
    gl_->ToggleActualSize();
    raster_->ToggleActualSize();
    auto [gl, raster] = Shots("tiled");
    EXPECT_EQ(gl_->TileCount(), 4 * 3);
    EXPECT_EQ(Compare(gl, raster, 2).within, 1.0);

    ShowBoth(PatternPicture(1000, 700, 17));
    std::tie(gl, raster) = Shots("tiled-next");
    EXPECT_EQ(gl_->TileCount(), 4 * 3);
    EXPECT_EQ(Compare(gl, raster, 2).within, 1.0);
}

// The caption box under the lifted start picture, the copied stamp and the mark badge are
// blended in the same places on both paths.
TEST_F(GlViewTest, CaptionAndStamps) {
    gl_->ShowStartPicture(QStringLiteral("Open a folder to look at its pictures"));
    raster_->ShowStartPicture(QStringLiteral("Open a folder to look at its pictures"));
    auto [gl, raster] = Shots("caption");
    const DrawPlan plan = gl_->Plan(800, 600);
    ASSERT_FALSE(plan.captionBox.isEmpty());
    const QRect box = plan.captionBox;
    EXPECT_GT(Compare(gl.copy(box), raster.copy(box), 4).within, 0.99);
    EXPECT_GT(Compare(gl, raster, 40).within, 0.99);

    const auto picture = PatternPicture(1600, 1200);
    gl_->SetStamps(true, true);
    raster_->SetStamps(true, true);
    ShowBoth(picture);
    std::tie(gl, raster) = Shots("stamps");
    const QRect stamp = gl_->Plan(800, 600).copiedStamp;
    const QRect badge = gl_->Plan(800, 600).markBadge;
    EXPECT_GT(Compare(gl.copy(stamp), raster.copy(stamp), 40).within, 0.97);
    EXPECT_GT(Compare(gl.copy(badge), raster.copy(badge), 40).within, 0.97);
    // The stamp changes what is under it.
    gl_->SetStamps(false, false);
    EXPECT_LT(Compare(gl_->Screenshot().copy(stamp), gl.copy(stamp), 40).within, 0.5);
}

// The picture ahead is drawn at its step from the texture loaded while the view was idle,
// and only a texture holding that very picture is taken.
TEST_F(GlViewTest, PreparedPictureComesFromItsOwnTexture) {
    ShowBoth(PatternPicture(2400, 1800, 5));
    const auto next = PatternPicture(2400, 1800, 17);
    const auto flat = test::FlatPicture(2400, 1800);
    gl_->Prepare(next);
    ASSERT_TRUE(PumpUntil([&] { return gl_->PreparedPicture(true) == next.get(); }));
    gl_->SetPicture(next);
    QImage shot = gl_->Screenshot();
    Keep(shot, "prepared");
    EXPECT_EQ(gl_->AheadTaken(), 1);
    EXPECT_EQ(Compare(shot, test::Smooth(*next, {800, 600}), 0).within, 1.0);

    // Another picture of the same size is not drawn from it.
    gl_->Prepare(flat);
    ASSERT_TRUE(PumpUntil([&] { return gl_->PreparedPicture(true) == flat.get(); }));
    const auto other = PatternPicture(2400, 1800, 40);
    gl_->SetPicture(other);
    shot = gl_->Screenshot();
    EXPECT_EQ(gl_->AheadTaken(), 1);
    EXPECT_GT(Compare(shot, test::Smooth(*other, {800, 600}), 60).within, 0.9);
    // The prepared one still is, once its step comes.
    gl_->SetPicture(flat);
    shot = gl_->Screenshot();
    EXPECT_EQ(gl_->AheadTaken(), 2);
    EXPECT_EQ(Compare(shot, test::Smooth(*flat, {800, 600}), 0).within, 1.0);
}

// One lost context leaves a black frame and comes back by itself; a second loss before a
// frame was drawn again gives up.
TEST_F(GlViewTest, ContextLoss) {
    int failures = 0;
    QObject::connect(gl_.get(), &PictureView::DisplayFailed, [&] { ++failures; });
    ShowBoth(PatternPicture(1200, 900));
    const QPoint centre(400, 300);
    const QRgb shown = gl_->Screenshot().pixel(centre);
    ASSERT_NE(qGray(shown), 0);

    gl_->SimulateContextLoss();
    EXPECT_EQ(qGray(gl_->Screenshot().pixel(centre)), 0);
    EXPECT_EQ(gl_->LostCount(), 1);
    ASSERT_TRUE(PumpUntil([&] { return gl_->LostCount() == 0; }));
    EXPECT_EQ(gl_->Screenshot().pixel(centre), shown);
    EXPECT_EQ(failures, 0);

    gl_->SimulateContextLoss();
    gl_->Screenshot();
    gl_->SimulateContextLoss();
    EXPECT_TRUE(PumpUntil([&] { return failures == 1; }));
    EXPECT_EQ(gl_->LostCount(), 2);
}

}  // namespace
}  // namespace orvanta::display
