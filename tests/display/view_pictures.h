// Pictures for the view tests, made in memory in the display format: a pattern whose every
// region differs, so that a shifted or scaled drawing shows.
#pragma once

#include <algorithm>
#include <memory>

#include <QElapsedTimer>
#include <QMouseEvent>
#include <QThread>

#include "decode/decoded_picture.h"
#include "display/picture_view.h"
#include "frame/frame_app.h"

namespace orvanta::display::test {

// Smooth colour ramps with a grid of dark lines every 64 pixels, moved right by `shift`.
inline std::shared_ptr<const decode::DecodedPicture> PatternPicture(int width, int height,
                                                                    int shift = 0) {
    auto picture = std::make_shared<decode::DecodedPicture>();
    const Result made = imaging::PixelBuffer::Create(
        {static_cast<std::uint32_t>(width), static_cast<std::uint32_t>(height)},
        imaging::PixelFormat::Pbgra32, 0, picture->pixels);
    if (made.Failed()) {
        return picture;
    }
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<std::uint8_t*>(picture->pixels.Row(y));
        for (int x = 0; x < width; ++x) {
            const bool line = (x + 64 - shift % 64) % 64 < 2 || y % 64 < 2;
            row[4 * x] = line ? 20 : static_cast<std::uint8_t>(255 * x / width);
            row[4 * x + 1] = line ? 20 : static_cast<std::uint8_t>(255 * y / height);
            row[4 * x + 2] = line ? 20 : static_cast<std::uint8_t>(128 + (x + y) % 128);
            row[4 * x + 3] = 255;
        }
    }
    picture->width = static_cast<std::uint32_t>(width);
    picture->height = static_cast<std::uint32_t>(height);
    picture->sourceBitsPerPixel = 24;
    return picture;
}

// A picture of one colour, the size of a pattern picture but nothing like it.
inline std::shared_ptr<const decode::DecodedPicture> FlatPicture(int width, int height) {
    auto picture = std::const_pointer_cast<decode::DecodedPicture>(PatternPicture(width, height));
    for (int y = 0; y < height; ++y) {
        auto* row = reinterpret_cast<std::uint32_t*>(picture->pixels.Row(y));
        std::fill(row, row + width, 0xFF30A050u);
    }
    return picture;
}

// The view's smooth reduction of `picture` to `size`, as the screen shows it.
inline QImage Smooth(const decode::DecodedPicture& picture, QSize size) {
    return WrapPicture(picture)
        .scaled(size, Qt::IgnoreAspectRatio, Qt::SmoothTransformation)
        .convertToFormat(QImage::Format_RGB32);
}

template <typename Done>
bool PumpUntil(Done done, int limitMs = 10'000) {
    QElapsedTimer clock;
    clock.start();
    while (!done() && clock.elapsed() < limitMs) {
        QCoreApplication::processEvents(QEventLoop::AllEvents, 5);
        QThread::msleep(1);
    }
    return done();
}

inline void Mouse(QWidget& widget, QEvent::Type type, Qt::MouseButton button,
                  Qt::MouseButtons buttons, QPoint local,
                  Qt::KeyboardModifiers modifiers = Qt::NoModifier) {
    QMouseEvent event(type, QPointF(local), QPointF(widget.mapToGlobal(local)), button, buttons,
                      modifiers);
    QCoreApplication::sendEvent(&widget, &event);
}

inline void Pump(int ms) {
    PumpUntil([] { return false; }, ms);
}

}  // namespace orvanta::display::test
