#include "display/raster_view.h"

#include <atomic>

#include <QApplication>
#include <QElapsedTimer>
#include <QThread>
#include <gtest/gtest.h>
#include <turbojpeg.h>

#include "decode/decode_entry.h"
#include "frame/frame_app.h"
#include "metadata/picture_metadata.h"
#include "support/picture_fixtures.h"
#include "support/temp_folder.h"

namespace orvanta::display {
namespace {

QApplication& App() {
    return frame::test::App();
}

// A JPEG of one colour, decoded by the workers' pipeline into the raster path's format.
std::shared_ptr<const decode::DecodedPicture> SolidPicture(const test::TempFolder& folder,
                                                           int width, int height) {
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(width) * height * 3);
    for (std::size_t i = 0; i < rgb.size(); i += 3) {
        rgb[i] = 200;
        rgb[i + 1] = 120;
        rgb[i + 2] = 40;
    }
    tjhandle tj = tjInitCompress();
    unsigned char* out = nullptr;
    unsigned long size = 0;
    tjCompress2(tj, rgb.data(), width, 0, height, TJPF_RGB, &out, &size, TJSAMP_444, 95, 0);
    const auto path =
        folder / ("p" + std::to_string(width) + "x" + std::to_string(height) + ".jpg");
    test::WriteFile(path, test::Bytes(out, out + size));
    tjFree(out);
    tjDestroy(tj);

    auto picture = std::make_shared<decode::DecodedPicture>();
    metadata::PictureMetadata record;
    const std::atomic<std::uint32_t> abortFlag{0};
    const auto options =
        decode::DecodeOptions::FromSettings(imaging::PixelFormat::Pbgra32, false, nullptr);
    EXPECT_TRUE(decode::DecodePicture(path, 0, options, abortFlag, *picture, record).Succeeded());
    return picture;
}

void Pump(int ms) {
    QElapsedTimer clock;
    clock.start();
    while (clock.elapsed() < ms) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(1);
    }
}

bool IsPictureColour(QRgb pixel) {
    return std::abs(qRed(pixel) - 200) < 12 && std::abs(qGreen(pixel) - 120) < 12 &&
           std::abs(qBlue(pixel) - 40) < 12;
}

struct PlacementCase {
    const char* name;
    int width;
    int height;
    QRect destination;  // in an 800 x 600 view
};

class RasterViewPlacement : public ::testing::TestWithParam<PlacementCase> {};

// Landscape and portrait pictures land in their rectangle, the margins around it are
// filled, and the picture's pixels fill the rectangle both before and after the reduction
// made off the user-interface thread arrives.
TEST_P(RasterViewPlacement, PaintsPictureInItsRectangleWithFilledMargins) {
    App();
    const PlacementCase& c = GetParam();
    test::TempFolder folder;
    RasterView view;
    view.resize(800, 600);
    view.SetPicture(SolidPicture(folder, c.width, c.height));
    for (int pass = 0; pass < 2; ++pass) {
        const QImage shot = view.grab().toImage();
        EXPECT_EQ(view.LastDestination(), c.destination) << "pass " << pass;
        const QRect d = c.destination;
        EXPECT_TRUE(IsPictureColour(shot.pixel(d.center()))) << "pass " << pass;
        EXPECT_TRUE(IsPictureColour(shot.pixel(d.left() + 1, d.top() + 1))) << "pass " << pass;
        EXPECT_TRUE(IsPictureColour(shot.pixel(d.right() - 1, d.bottom() - 1))) << "pass " << pass;
        if (d.left() > 0) {
            EXPECT_EQ(qGray(shot.pixel(d.left() - 2, d.center().y())), 0);
            EXPECT_EQ(qGray(shot.pixel(d.right() + 2, d.center().y())), 0);
        }
        if (d.top() > 0) {
            EXPECT_EQ(qGray(shot.pixel(d.center().x(), d.top() - 2)), 0);
            EXPECT_EQ(qGray(shot.pixel(d.center().x(), d.bottom() + 2)), 0);
        }
        Pump(300);  // the reduction comes back
    }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, RasterViewPlacement,
    ::testing::Values(PlacementCase{"Landscape", 1600, 800, QRect(0, 100, 800, 400)},
                      PlacementCase{"Portrait", 800, 1600, QRect(250, 0, 300, 600)},
                      PlacementCase{"SmallAtActualSize", 200, 100, QRect(300, 250, 200, 100)}),
    [](const auto& info) { return std::string(info.param.name); });

// The start picture moves up to leave room for its caption; the error picture, without a
// caption, stays centred; a picture that cannot be wrapped shows the error picture.
TEST(RasterView, OwnedPicturesAndUnusablePixels) {
    App();
    RasterView view;
    view.resize(800, 600);
    view.ShowErrorPicture();
    view.grab();
    const QRect error = view.LastDestination();
    EXPECT_EQ(error.center().y(), 299);
    view.ShowStartPicture(QStringLiteral("Open a folder."));
    view.grab();
    EXPECT_LT(view.LastDestination().top(), error.top());
    EXPECT_EQ(view.LastDestination().size(), error.size());

    auto empty = std::make_shared<decode::DecodedPicture>();
    view.SetPicture(empty);
    EXPECT_EQ(view.Picture(), empty);
    view.grab();
    EXPECT_EQ(view.LastDestination(), error);
}

}  // namespace
}  // namespace orvanta::display
