#include "settings/placement.h"

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstdlib>

namespace orvanta::settings {

namespace {

// value * numerator / denominator rounded half away from zero, in 64 bits.
int MulDiv(int value, int numerator, int denominator) {
    const long long product = static_cast<long long>(value) * numerator;
    const long long half = std::llabs(static_cast<long long>(denominator)) / 2;
    const long long rounded = (product >= 0) == (denominator > 0)
                                  ? (std::llabs(product) + half) / std::llabs(denominator)
                                  : -((std::llabs(product) + half) / std::llabs(denominator));
    return static_cast<int>(rounded);
}

}  // namespace

std::string FormatPlacement(const WindowPlacement& p, int dpiX, int dpiY) {
    char text[200];
    std::snprintf(text, sizeof text, "%d %d %d %d %d %d %d %d %d %d %d %d %d", p.length, p.flags,
                  p.showCmd, p.minX, p.minY, p.maxX, p.maxY, p.normal.left, p.normal.top,
                  p.normal.right, p.normal.bottom, dpiX, dpiY);
    return text;
}

std::optional<StoredPlacement> ParsePlacement(std::string_view text) {
    // The scanf rule: integers separated by white space, stopping at the first thing that
    // is not one.
    int numbers[15] = {};
    int count = 0;
    std::size_t pos = 0;
    while (count < 15) {
        while (pos < text.size() &&
               (text[pos] == ' ' || text[pos] == '\t' || text[pos] == '\n' || text[pos] == '\r')) {
            ++pos;
        }
        if (pos < text.size() && text[pos] == '+') {
            ++pos;
        }
        int value = 0;
        const auto [end, error] =
            std::from_chars(text.data() + pos, text.data() + text.size(), value);
        if (error != std::errc()) {
            break;
        }
        numbers[count++] = value;
        pos = static_cast<std::size_t>(end - text.data());
    }
    if (count < 13 || numbers[0] != kPlacementLength) {
        return std::nullopt;
    }
    StoredPlacement stored;
    WindowPlacement& p = stored.placement;
    p.length = numbers[0];
    p.flags = numbers[1];
    p.showCmd = numbers[2];
    p.minX = numbers[3];
    p.minY = numbers[4];
    p.maxX = numbers[5];
    p.maxY = numbers[6];
    p.normal = {numbers[7], numbers[8], numbers[9], numbers[10]};
    stored.dpiX = numbers[11];
    stored.dpiY = numbers[12];
    return stored;
}

Rect KeepOnScreen(const Rect& rect, const Rect& work) {
    const int width = rect.Width();
    const int height = rect.Height();
    const int left = std::max(work.left, std::min(work.right - width, rect.left));
    const int top = std::max(work.top, std::min(work.bottom - height, rect.top));
    return {left, top, left + width, top + height};
}

Rect RescaleForDpi(const Rect& rect, int storedDpiX, int storedDpiY, int dpiX, int dpiY) {
    const int fromX = storedDpiX == 0 ? 96 : storedDpiX;
    const int fromY = storedDpiY == 0 ? 96 : storedDpiY;
    return {rect.left, rect.top, rect.left + MulDiv(rect.Width(), dpiX, fromX),
            rect.top + MulDiv(rect.Height(), dpiY, fromY)};
}

PlacementRestore PlanPlacementRestore(std::optional<std::string_view> stored, int requestedShow,
                                      const std::function<Rect(const Rect&)>& workAreaNearest,
                                      int dpiX, int dpiY, bool rescale) {
    PlacementRestore plan;
    plan.showCmd = requestedShow < 0 ? kShowNormal : requestedShow;
    const auto parsed = stored ? ParsePlacement(*stored) : std::nullopt;
    if (!parsed) {
        return plan;
    }
    WindowPlacement p = parsed->placement;
    if (requestedShow >= 0) {
        p.showCmd = requestedShow;
    } else if (p.showCmd == kShowMinimized) {
        p.showCmd = kShowNormal;
    }
    p.flags |= kPlacementAsync;
    p.normal = KeepOnScreen(p.normal, workAreaNearest(p.normal));
    if (rescale) {
        p.normal = RescaleForDpi(p.normal, parsed->dpiX, parsed->dpiY, dpiX, dpiY);
    }
    plan.usePlacement = true;
    plan.showCmd = p.showCmd;
    plan.placement = p;
    return plan;
}

}  // namespace orvanta::settings
