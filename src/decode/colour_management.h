// The colour step of the decoder: chooses the source profile of a picture (its embedded ICC
// profile, else the EXIF ICC tag; for a raw file's embedded preview, the colour space its
// maker note names, through the built-in Adobe RGB and ProPhoto RGB profiles) and the
// target (sRGB, a profile file the user chose, or the monitor's profile), and puts the
// colour-transform stage over the source when a transform applies. An sRGB picture with no
// custom target is recognised by its profile's description before any transform is made,
// so the common case costs nothing. Every failure gives back the source untouched: a
// picture is then shown without colour management, never not at all.
//
// Thread rules: called from the decode workers in parallel; profiles and transforms are
// made per call; the warning gate is atomic; the monitor provider must be thread-safe.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "decode/colour_notices.h"
#include "platform/imaging/decoder.h"
#include "platform/imaging/metadata_query_reader.h"

namespace orvanta::decode {

// The monitor's profile, supplied by the window code (the X11 root window's _ICC_PROFILE);
// the command-line tool has one only when it is given a file.
class MonitorProfileProvider {
public:
    virtual ~MonitorProfileProvider() = default;
    // The profile's bytes; empty when the monitor has none.
    virtual std::vector<std::uint8_t> MonitorProfile() const = 0;
};

struct ColourSettings {
    // Empty: no custom target (sRGB). "<Automatic>": the monitor's profile. Otherwise the
    // full path of a profile file.
    std::string targetProfile;
    const MonitorProfileProvider* monitor = nullptr;
    ProfileWarnings* warnings = nullptr;

    // The process's target setting and warning gate.
    static ColourSettings FromProcess(const MonitorProfileProvider* monitor);
    bool CustomTarget() const { return !targetProfile.empty(); }
};

struct ColourRequest {
    bool warn = false;  // WarnOnInvalidProfile, for camera-colour containers only
    imaging::PixelFormat outputFormat = imaging::PixelFormat::Pbgra32;
};

struct ColourOutcome {
    std::unique_ptr<imaging::BitmapSource> source;  // transformed, or the input untouched
    std::string profileDescription;                 // the source profile's name, or empty
    bool transformed = false;
};

// The frame's colour data: its embedded ICC profile, else the EXIF ICC tag (34675) found
// through `reader` (may be null).
std::vector<std::uint8_t> EmbeddedProfileBytes(const imaging::BitmapFrame& frame,
                                               const imaging::MetadataQueryReader* reader);

// `source` is the frame itself or a variant of it. With `profileRequired`, a picture
// without colour data is left alone even when a custom target is set.
ColourOutcome TransformForFrame(std::unique_ptr<imaging::BitmapSource> source,
                                const imaging::BitmapFrame& frame,
                                const imaging::MetadataQueryReader* reader,
                                const ColourRequest& request, const ColourSettings& settings,
                                bool profileRequired = false);

// The embedded preview of a raw file, with the colour data of its full frame, or failing
// that the colour space of the camera's maker note.
ColourOutcome TransformForRawPreview(std::unique_ptr<imaging::BitmapSource> preview,
                                     const imaging::BitmapFrame& frame,
                                     const imaging::MetadataQueryReader* reader,
                                     const ColourRequest& request, const ColourSettings& settings);

}  // namespace orvanta::decode
