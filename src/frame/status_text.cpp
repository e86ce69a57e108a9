#include "frame/status_text.h"

#include "i18n/format_text.h"
#include "i18n/string_ids.h"
#include "marks/labels.h"

namespace orvanta::frame {
namespace {

namespace ids = i18n::string_ids;

constexpr std::size_t kCountChars = 20;

std::string Counter(const StatusInput& in) {
    std::string count = std::to_string(in.count);
    if (in.scanning) {
        count += "+";
    }
    if (in.newPictures > 0) {
        count += i18n::FormatText("+[%u]", {in.newPictures});
    }
    return std::to_string(in.position) + "/" + i18n::Truncate(count, kCountChars - 1);
}

int OrderTextId(std::uint32_t sortOrder) {
    switch (sortOrder) {
        case 0:
            return ids::kOrderByName;
        case 1:
        case 2:
            return ids::kOrderByFileTime;
        case 3:
            return ids::kOrderByDateTaken;
        default:
            return ids::kOrderByGpsTime;
    }
}

std::string OrderAndBookmark(const StatusInput& in, const TextLookup& text) {
    std::string part = " " + text(OrderTextId(in.sortOrder));
    bool named = !in.bookmarkName.empty();
    if (in.bookmarkNumber && named) {
        part += i18n::FormatText(" [%u, %.64s]", {*in.bookmarkNumber, in.bookmarkName});
    } else if (in.bookmarkNumber) {
        part += i18n::FormatText(" [%u]", {*in.bookmarkNumber});
    } else if (named) {
        part += i18n::FormatText(" [%.64s]", {in.bookmarkName});
    }
    return part;
}

std::string Details(const StatusInput& in, const TextLookup& text) {
    std::string out;
    auto add = [&](std::string piece) {
        if (!piece.empty()) {
            out += "  ";
            out += piece;
        }
    };
    if (in.width > 0 && in.height > 0) {
        add(i18n::FormatText(text(ids::kDetailSize), {in.width, in.height}));
    }
    if (in.bitsPerPixel > 0) {
        add(i18n::FormatText(text(ids::kDetailBits), {in.bitsPerPixel}));
    }
    if (in.rating >= 1) {
        add(i18n::FormatText(text(ids::kDetailRating), {in.rating}));
    }
    if (in.label >= 1) {
        std::string_view name =
            marks::LabelName(in.label, static_cast<std::uint32_t>(in.labellingConvention));
        std::string shown = name.empty() ? std::to_string(in.label) : std::string(name);
        add(i18n::FormatText(text(ids::kDetailLabel), {shown}));
    }
    if (in.urgency >= 1) {
        add(i18n::FormatText(text(ids::kDetailUrgency), {in.urgency}));
    }
    if (in.kept) {
        add(text(ids::kDetailKept));
    }
    return out;
}

std::string Zoom(const StatusInput& in, const TextLookup& text) {
    int wayId = in.way == ViewWay::Fit          ? ids::kZoomFit
                : in.way == ViewWay::ActualSize ? ids::kZoomActualSize
                                                : ids::kZoomMagnifier;
    int scaleId = in.enlarged || in.zoomPercent > 100 ? ids::kZoomEnlarged
                  : in.zoomPercent < 100              ? ids::kZoomReduced
                                                      : ids::kZoomOneToOne;
    if (!in.tag.empty()) {
        return i18n::FormatText("[%s] %d%% %s %s",
                                {in.tag, in.zoomPercent, text(wayId), text(scaleId)});
    }
    return i18n::FormatText("%d%% %s %s", {in.zoomPercent, text(wayId), text(scaleId)});
}

int ModeTextId(const StatusInput& in) {
    switch (in.mode) {
        case RunningMode::Auto:
            return in.looping ? ids::kModeAutoLooping : ids::kModeAuto;
        case RunningMode::Track:
            return in.subFolders ? ids::kModeTrackSubFolders : ids::kModeTrack;
        case RunningMode::Camera:
            return in.connecting ? ids::kModeCameraConnecting : ids::kModeCamera;
        case RunningMode::None:
            break;
    }
    return 0;
}

}  // namespace

std::string StatusLine(const StatusInput& in, const TextLookup& text) {
    std::string line = Counter(in) + OrderAndBookmark(in, text);
    if (in.hasPicture) {
        std::string details = Details(in, text);
        if (!details.empty()) {
            line += " " + details;
        }
        line += "   " + Zoom(in, text);
    }
    if (int mode = ModeTextId(in)) {
        line += i18n::FormatText("  [%s]", {text(mode)});
    }
    return line;
}

std::string SliderLabel(std::uint32_t position, std::uint32_t count, std::string_view fileName,
                        std::uint32_t frameIndex, std::uint32_t frameCount,
                        std::string_view sortTime) {
    std::string label = frameCount > 1
                            ? i18n::FormatText("%s [%u/%u]", {fileName, frameIndex + 1, frameCount})
                            : i18n::FormatText("%s / %s", {position, count});
    if (!sortTime.empty()) {
        label += "  ";
        label += sortTime;
    }
    return label;
}

}  // namespace orvanta::frame
