#include "settings/settings_loader.h"

#include "app/check_point.h"
#include "platform/colour/colour_folders.h"
#include "platform/result.h"
#include "platform/text/unicode.h"
#include "settings/settings.h"
#include "settings/settings_io.h"

namespace orvanta::settings {

namespace {

// A key counts as empty when its first value index reports no more items; a few more
// indices are probed so that one unreadable value does not make a populated key look
// empty.
bool KeyHoldsValues(const platform::RegKey& key) {
    for (std::uint32_t index = 0; index < 10; ++index) {
        platform::RegValue value;
        const long error = key.EnumValue(index, value);
        if (error == ERROR_SUCCESS) {
            return true;
        }
        if (error == ERROR_NO_MORE_ITEMS) {
            return false;
        }
    }
    return false;
}

// With no mark store switched on, marks would have nowhere to go.
void ApplyRatingRule() {
    if (!CreateSidecarFiles.On() && !EmbedMetadata.On() && !PrefixFileNamesWithRating.On()) {
        EnableRating.Set(0);
        EnableLabelling.Set(0);
        EnableUrgency.Set(0);
    }
}

}  // namespace

std::string TargetProfileFromName(std::string_view name) {
    if (text::EqualsNoCase(name, kAutomaticProfile)) {
        return std::string(kAutomaticProfile);
    }
    return platform::FindColourProfile(name).string();
}

LoadOutcome LoadSettings(const std::shared_ptr<platform::RegistryStore>& store) {
    for (Setting* setting : AllSettings()) {
        setting->ResetToDefault();
    }
    TargetProfile.Set({});
    BookmarkFileName.Set(std::string(kDefaultBookmarkFileName));

    LoadOutcome outcome;
    platform::RegKey key;
    if (platform::RegKey::Open(store, kSettingsKey, key) != ERROR_SUCCESS || !KeyHoldsValues(key)) {
        SetCheckPoint(50);
        outcome.firstRun = true;
        outcome.writeError = WriteDefaults(store);
        return outcome;
    }

    SetCheckPoint(42);
    int index = 0;
    for (Setting* setting : AllSettings()) {
        std::uint32_t value = setting->Get();
        if (ReadDword(key, setting->Name(), value) == ERROR_SUCCESS) {
            setting->Set(setting->Normalise(value));
        }
        if (setting == &PrefixFileNamesWithRating) {
            ApplyRatingRule();
        }
        if (++index % 10 == 0) {
            SetCheckPoint(42 + index / 10);  // 43 .. 47
        }
        if (setting == &OverrideTargetProfile) {
            SetCheckPoint(48);
            std::string name;
            if (OverrideTargetProfile.On() &&
                ReadString(key, "CustomTargetColorProfile", name) == ERROR_SUCCESS &&
                text::Utf8ToUtf16(name).size() >= 2) {
                TargetProfile.Set(TargetProfileFromName(name));
            }
            SetCheckPoint(48.1);
        }
        if (setting == &EnableRatingAutoAdvance) {
            std::string name;
            if (ReadString(key, "ExternalBookmarkFileName", name) == ERROR_SUCCESS &&
                !name.empty()) {
                BookmarkFileName.Set(std::move(name));
            }
            SetCheckPoint(48.2);
        }
    }
    SetCheckPoint(49);
    return outcome;
}

long WriteDefaults(const std::shared_ptr<platform::RegistryStore>& store) {
    platform::RegKey key;
    if (const long error = platform::RegKey::Create(store, kSettingsKey, key)) {
        return error;
    }
    long firstError = ERROR_SUCCESS;
    const auto note = [&firstError](long error) {
        if (firstError == ERROR_SUCCESS) {
            firstError = error;
        }
    };
    for (Setting* setting : AllSettings()) {
        if (setting == &OverrideTargetProfile) {
            note(WriteDword(key, setting->Name(), 0));
            note(WriteString(key, "CustomTargetColorProfile", ""));
        } else if (setting->WrittenAtFirstRun()) {
            note(WriteDword(key, setting->Name(), setting->Get()));
        }
    }
    note(WriteDword(key, "UpdateLastWriteTimeWhenRating", 0));
    return firstError;
}

}  // namespace orvanta::settings
