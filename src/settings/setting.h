// One process-wide 32-bit setting: its registry value name, its default, the normalisation
// applied when it is loaded, and whether the first run writes it. The value is an atomic so
// that worker threads may read it at any time without locking; only the user-interface
// thread (loader, options dialog, menu toggles) writes it. Constant-initialised, so every
// setting holds its default from program start.
#pragma once

#include <atomic>
#include <cstdint>
#include <string_view>

namespace orvanta::settings {

enum class Normalisation : std::uint8_t {
    None,
    Boolean,        // any non-zero value becomes 1
    ClampAbove,     // values above the limit become the limit
    ZeroAbove,      // values above the limit become 0
    RaiseBelow,     // values below the limit become the limit
    AllOnesToZero,  // 0xFFFFFFFF becomes 0
};

class Setting {
public:
    constexpr Setting(std::string_view name, std::uint32_t defaultValue,
                      Normalisation normalisation, std::uint32_t limit, bool writtenAtFirstRun)
        : name_(name),
          default_(defaultValue),
          normalisation_(normalisation),
          limit_(limit),
          writtenAtFirstRun_(writtenAtFirstRun),
          value_(defaultValue) {}
    Setting(const Setting&) = delete;
    Setting& operator=(const Setting&) = delete;

    std::string_view Name() const { return name_; }
    std::uint32_t Default() const { return default_; }
    bool IsBoolean() const { return normalisation_ == Normalisation::Boolean; }
    bool WrittenAtFirstRun() const { return writtenAtFirstRun_; }

    std::uint32_t Get() const { return value_.load(std::memory_order_relaxed); }
    bool On() const { return Get() != 0; }
    void Set(std::uint32_t value) { value_.store(value, std::memory_order_relaxed); }
    void ResetToDefault() { Set(default_); }

    std::uint32_t Normalise(std::uint32_t raw) const;

private:
    std::string_view name_;
    std::uint32_t default_;
    Normalisation normalisation_;
    std::uint32_t limit_;
    bool writtenAtFirstRun_;
    std::atomic<std::uint32_t> value_;
};

}  // namespace orvanta::settings
