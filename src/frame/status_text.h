// The bottom panel's status line and the navigation slider's label, built from plain values
// (what the frame reads from the picture list, the current entry and the view) and the
// language texts, so that they can be checked without a window. From the left, the status
// line holds the counter, the sort order and the bookmark, the picture's details with its
// marks, the zoom and the running mode. Pure functions; thread-safe given a thread-safe
// text look-up.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

namespace orvanta::frame {

// Looks a language text up by id (i18n::Text in the program).
using TextLookup = std::function<std::string(int id)>;

enum class ViewWay { Fit, ActualSize, Magnifier };
enum class RunningMode { None, Auto, Track, Camera };

struct StatusInput {
    // Counter
    std::uint32_t position = 0;  // 1-based place of the current picture; 0 without one
    std::uint32_t count = 0;
    bool scanning = false;          // the folder is still being read
    std::uint32_t newPictures = 0;  // arrived but not yet counted
    // Order and bookmark
    std::uint32_t sortOrder = 0;  // SortByDateTime
    std::optional<std::uint32_t> bookmarkNumber;
    std::string bookmarkName;
    // The current picture; the rest is shown only with one.
    bool hasPicture = false;
    std::uint32_t width = 0;  // full size, 0 when unknown
    std::uint32_t height = 0;
    std::uint32_t bitsPerPixel = 0;  // of the source, 0 when unknown
    bool kept = false;               // copied to the keep folder
    std::int32_t rating = -1;
    std::int32_t label = -1;
    std::int32_t labellingConvention = 0;
    std::int32_t urgency = -1;
    // Zoom, from the view
    std::int32_t zoomPercent = 100;
    ViewWay way = ViewWay::Fit;
    bool enlarged = false;
    std::string tag;  // an extra tag shown in brackets before the zoom
    // Mode
    RunningMode mode = RunningMode::None;
    bool looping = false;     // auto mode wraps round at the end of the list
    bool subFolders = false;  // track mode follows sub-folders too
    bool connecting = false;  // camera mode waits for its camera
};

// The bookmark names are cut to this many characters.
inline constexpr std::size_t kBookmarkNameChars = 64;

std::string StatusLine(const StatusInput& input, const TextLookup& text);

// The navigation slider's tool tip: "position / count", or for a frame of a multi-frame
// file "name [frame/count]"; `sortTime` (the picture's date and time as the user's locale
// writes them) is added when the list is sorted by time.
std::string SliderLabel(std::uint32_t position, std::uint32_t count, std::string_view fileName,
                        std::uint32_t frameIndex, std::uint32_t frameCount,
                        std::string_view sortTime);

}  // namespace orvanta::frame
