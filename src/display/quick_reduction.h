// The quick reduction of a picture for its first frame: each pixel of the result is the
// picture pixel under its centre (no filtering), made in bands shared between the calling
// thread and one pool thread when one is free. The smooth reduction that follows replaces it.
//
// Thread rules: call from one thread at a time per destination image; `rowsDone` is called
// on the calling thread only.
#pragma once

#include <functional>

#include <QImage>
#include <QSize>

namespace orvanta::display {

// Reduces the whole of `picture` (a 32-bit format) to `size` into `into`, whose storage is
// reused when it already has that size and format and is not shared. Other formats are
// converted first. `rowsDone(first, count)`, when given, hears of the finished rows in
// order, as soon as they are finished, so that the caller can pass them on (to a texture)
// while the rest is being made. Returns false (leaving `into` null) when either size is
// empty.
bool QuickReduction(const QImage& picture, QSize size, QImage& into,
                    const std::function<void(int first, int count)>& rowsDone = {});

}  // namespace orvanta::display
