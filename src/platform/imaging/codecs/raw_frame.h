// A frame of a camera raw file (the developed picture or the embedded preview). The pixels
// keep the sensor's orientation: LibRaw is told not to rotate, because the pipeline applies
// the EXIF orientation itself. RawFlip() reports the rotation LibRaw read from the file,
// for callers that want LibRaw's view of it.
//
// Thread rules: single-thread, like every frame.
#pragma once

#include "platform/imaging/decoder.h"

namespace orvanta::imaging::codecs {

class RawFrame : public BitmapFrame {
public:
    // LibRaw's flip value: 0 none, 3 rotate 180, 5 rotate 90 counter-clockwise, 6 rotate 90
    // clockwise (bit 0 mirrors, bit 1 flips, bit 2 transposes).
    virtual int RawFlip() const = 0;

protected:
    using BitmapFrame::BitmapFrame;
};

}  // namespace orvanta::imaging::codecs
