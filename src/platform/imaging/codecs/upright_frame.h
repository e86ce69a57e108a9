// A frame whose codec has already turned the picture upright: libheif applies the rotation
// and mirroring items of a HEIF or AVIF file, libjxl the orientation of a JPEG XL
// codestream. The EXIF orientation such a file may also carry describes the stored
// picture, so the pipeline must not apply it a second time.
//
// Thread rules: single-thread, like every frame.
#pragma once

#include "platform/imaging/decoder.h"

namespace orvanta::imaging::codecs {

class UprightFrame : public BitmapFrame {
public:
    // True when the codec applied the file's own rotation and mirroring to the pixels.
    virtual bool TransformsApplied() const = 0;

protected:
    using BitmapFrame::BitmapFrame;
};

}  // namespace orvanta::imaging::codecs
