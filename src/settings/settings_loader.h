// Loading the settings at start-up and the first-run write of their defaults. Runs on the
// user-interface thread before any worker exists.
#pragma once

#include <memory>

#include "platform/registry/registry.h"

namespace orvanta::settings {

struct LoadOutcome {
    // The key was missing or held no values: the defaults were written (or would have
    // been, had the store allowed it).
    bool firstRun = false;
    // The first-run write failed; the program runs on the defaults in memory.
    long writeError = 0;
};

// Resets every setting to its default, then loads and normalises what the settings key
// holds, in table order; on a first run writes the defaults.
LoadOutcome LoadSettings(const std::shared_ptr<platform::RegistryStore>& store);

// Creates the settings key and writes every setting marked for the first run with its
// current value, OverrideTargetProfile as 0, CustomTargetColorProfile empty and
// UpdateLastWriteTimeWhenRating 0. No window or session state.
long WriteDefaults(const std::shared_ptr<platform::RegistryStore>& store);

// The target profile that a CustomTargetColorProfile value selects: "<Automatic>" (any
// case), the full path of an existing profile in the colour folders, or empty.
std::string TargetProfileFromName(std::string_view name);

}  // namespace orvanta::settings
