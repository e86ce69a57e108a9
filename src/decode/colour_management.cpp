#include "decode/colour_management.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

#include "decode/colour_profiles.h"
#include "decode/colour_transform.h"
#include "metadata/maker_notes.h"
#include "platform/imaging/format_converter.h"
#include "platform/text/unicode.h"
#include "settings/settings.h"

namespace orvanta::decode {

namespace {

using imaging::BitmapSource;

std::vector<std::uint8_t> FirstBlob(const imaging::MetadataQueryReader* reader,
                                    std::initializer_list<std::string_view> names) {
    if (reader == nullptr) {
        return {};
    }
    for (const std::string_view name : names) {
        imaging::MetadataValue value;
        if (reader->GetMetadataByName(name, value) == S_OK) {
            if (auto* blob = std::get_if<imaging::MetadataBlob>(&value); blob && !blob->empty()) {
                return std::move(*blob);
            }
        }
    }
    return {};
}

void Warn(const ColourSettings& settings, bool warn, bool invalidTarget, Result code) {
    if (!warn || settings.warnings == nullptr) {
        return;
    }
    if (invalidTarget) {
        settings.warnings->InvalidTargetProfile(code);
    } else {
        settings.warnings->UnreadableEmbeddedProfile(code);
    }
}

// The target profile; sRGB without a custom target, when the monitor has no profile or
// when the file cannot be had. `invalid` is set for a file that exists but that lcms2
// refuses, which is warned about like a target the transform refuses.
Profile TargetProfile(const ColourSettings& settings, bool& invalid) {
    invalid = false;
    if (!settings.CustomTarget()) {
        return SrgbProfile();
    }
    Profile profile;
    if (text::EqualsNoCase(settings.targetProfile, settings::kAutomaticProfile)) {
        if (settings.monitor != nullptr) {
            const std::vector<std::uint8_t> bytes = settings.monitor->MonitorProfile();
            profile = OpenProfile(bytes);
            invalid = !bytes.empty() && !profile;
        }
    } else {
        std::error_code error;
        if (std::filesystem::is_regular_file(settings.targetProfile, error)) {
            profile = OpenProfileFile(settings.targetProfile);
            invalid = !profile;
        }
    }
    invalid = invalid || (profile && !IsRgbProfile(profile));
    return profile && !invalid ? std::move(profile) : SrgbProfile();
}

// Transforms made for earlier pictures, by the bytes of their two profiles and their pixel
// format: a shoot has one or two profiles, and making a transform (lcms2's and our tables)
// costs about 3 ms, a few percent of a decode. Transforms are immutable and shared.
class TransformCache {
public:
    static TransformCache& Process() {
        static TransformCache cache;
        return cache;
    }

    Result Get(const Profile& source, const Profile& target, imaging::PixelFormat format,
               std::shared_ptr<const ColourTransform>& transform) {
        std::vector<std::uint8_t> key = ProfileBytes(source);
        const std::vector<std::uint8_t> targetBytes = ProfileBytes(target);
        if (key.empty() || targetBytes.empty()) {
            return ColourTransform::Create(source, target, format, transform);
        }
        key.push_back(0);
        key.insert(key.end(), targetBytes.begin(), targetBytes.end());
        key.push_back(static_cast<std::uint8_t>(format));
        {
            const std::scoped_lock lock(mutex_);
            for (auto it = made_.begin(); it != made_.end(); ++it) {
                if (it->first == key) {
                    transform = it->second;
                    std::rotate(made_.begin(), it, it + 1);  // most recent first
                    return S_OK;
                }
            }
        }
        const Result made = ColourTransform::Create(source, target, format, transform);
        if (made == S_OK) {
            const std::scoped_lock lock(mutex_);
            if (made_.size() == kKept) {
                made_.pop_back();
            }
            made_.insert(made_.begin(), {std::move(key), transform});
        }
        return made;
    }

private:
    static constexpr std::size_t kKept = 8;
    std::mutex mutex_;  // a leaf lock
    std::vector<std::pair<std::vector<std::uint8_t>, std::shared_ptr<const ColourTransform>>> made_;
};

// Steps shared by both entries once the source profile is known: the target, the
// transform with its retries, and the stage.
ColourOutcome Transform(std::unique_ptr<BitmapSource> source, const Profile& sourceProfile,
                        std::string description, const ColourRequest& request,
                        const ColourSettings& settings) {
    ColourOutcome outcome{nullptr, std::move(description), false};
    bool invalidTarget = false;
    Profile target = TargetProfile(settings, invalidTarget);
    if (invalidTarget) {
        Warn(settings, request.warn, true, E_INVALID_PROFILE);
    }
    std::shared_ptr<const ColourTransform> transform;
    TransformCache& cache = TransformCache::Process();
    Result made = cache.Get(sourceProfile, target, source->Format(), transform);
    if (made == WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT && request.outputFormat != source->Format() &&
        imaging::CanConvert(source->Format(), request.outputFormat)) {
        source = imaging::Converted(std::move(source), request.outputFormat);
        made = cache.Get(sourceProfile, target, source->Format(), transform);
    }
    if (made == E_INVALID_PROFILE && settings.CustomTarget() && !invalidTarget) {
        Warn(settings, request.warn, true, E_INVALID_PROFILE);
        target = SrgbProfile();
        made = cache.Get(sourceProfile, target, source->Format(), transform);
    }
    if (made != S_OK) {
        outcome.source = std::move(source);
        return outcome;
    }
    outcome.source = ColourTransformed(std::move(source), std::move(transform));
    outcome.transformed = true;
    return outcome;
}

}  // namespace

ColourSettings ColourSettings::FromProcess(const MonitorProfileProvider* monitor) {
    return {settings::TargetProfile.Get(), monitor, &ProfileWarnings::Process()};
}

std::vector<std::uint8_t> EmbeddedProfileBytes(const imaging::BitmapFrame& frame,
                                               const imaging::MetadataQueryReader* reader) {
    const auto icc = frame.Metadata().icc;
    if (!icc.empty()) {
        return {icc.begin(), icc.end()};
    }
    return FirstBlob(reader, {"/ifd/{ushort=34675}", "/ifd/exif/{ushort=34675}",
                              "/app1/ifd/exif/{ushort=34675}"});
}

ColourOutcome TransformForFrame(std::unique_ptr<BitmapSource> source,
                                const imaging::BitmapFrame& frame,
                                const imaging::MetadataQueryReader* reader,
                                const ColourRequest& request, const ColourSettings& settings,
                                bool profileRequired) {
    if (!source) {
        return {};
    }
    const std::vector<std::uint8_t> bytes = EmbeddedProfileBytes(frame, reader);
    if (bytes.empty()) {
        if (profileRequired || !settings.CustomTarget()) {
            return {std::move(source), {}, false};
        }
        // A picture without colour data is taken as sRGB, as it would be shown.
        return Transform(std::move(source), SrgbProfile(), {}, request, settings);
    }
    const Profile profile = OpenProfile(bytes);
    if (!profile) {
        Warn(settings, request.warn, false, E_INVALID_PROFILE);
        return {std::move(source), {}, false};
    }
    std::string description = ProfileDescription(profile);
    if (!IsRgbProfile(profile) || (!settings.CustomTarget() && DescribesSrgb(description))) {
        return {std::move(source), std::move(description), false};
    }
    return Transform(std::move(source), profile, std::move(description), request, settings);
}

ColourOutcome TransformForRawPreview(std::unique_ptr<BitmapSource> preview,
                                     const imaging::BitmapFrame& frame,
                                     const imaging::MetadataQueryReader* reader,
                                     const ColourRequest& request, const ColourSettings& settings) {
    ColourOutcome fromFrame =
        TransformForFrame(std::move(preview), frame, reader, request, settings, true);
    if (fromFrame.transformed || !fromFrame.source) {
        return fromFrame;
    }
    const std::vector<std::uint8_t> note = FirstBlob(
        reader,
        {"System.Photo.MakerNote", "/ifd/exif/{ushort=37500}", "/app1/ifd/exif/{ushort=37500}"});
    std::int32_t code = -1;
    if (!note.empty()) {
        for (const auto read :
             {metadata::NikonColourSpaceFromMakerNote, metadata::CanonColourSpaceFromMakerNote,
              metadata::OlympusColourSpaceFromMakerNote}) {
            if (code = read(note); code > 0) {
                break;
            }
        }
    }
    switch (code) {
        case 1:
            return {std::move(fromFrame.source), std::string(kSrgbName), false};
        case 2:
            return Transform(std::move(fromFrame.source), AdobeRgbProfile(),
                             std::string(kAdobeRgbName), request, settings);
        case 3:
            return Transform(std::move(fromFrame.source), ProPhotoRgbProfile(),
                             std::string(kProPhotoRgbName), request, settings);
        default:
            return {std::move(fromFrame.source), {}, false};
    }
}

}  // namespace orvanta::decode
