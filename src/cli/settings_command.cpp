// orvanta-cli settings: the settings store from the command line.
#include <charconv>
#include <cstdio>
#include <fstream>
#include <iostream>
#include <sstream>

#include "cli/command.h"
#include "platform/registry/reg_file.h"
#include "platform/registry/registry.h"
#include "platform/result.h"
#include "settings/settings.h"
#include "settings/settings_io.h"
#include "settings/settings_loader.h"

namespace orvanta::cli {

namespace {

using platform::RegKey;
using platform::RegType;

constexpr std::string_view kUsage =
    "settings list [--json]\n"
    "settings get NAME [--json]\n"
    "settings set NAME VALUE [--type dword|qword|sz|expand_sz]\n"
    "settings delete NAME\n"
    "settings export [FILE]\n"
    "settings import FILE\n"
    "settings effective [--json]";

std::string TypeName(RegType type) {
    switch (type) {
        case RegType::Dword:
            return "dword";
        case RegType::Qword:
            return "qword";
        case RegType::Sz:
            return "sz";
        case RegType::ExpandSz:
            return "expand_sz";
        case RegType::Binary:
            return "binary";
        default:
            return "type" + std::to_string(static_cast<unsigned>(type));
    }
}

std::uint64_t LittleEndian(const std::vector<std::uint8_t>& data) {
    std::uint64_t value = 0;
    for (std::size_t i = data.size(); i-- > 0;) {
        value = (value << 8) | data[i];
    }
    return value;
}

// The value as text, and as a JSON literal.
std::pair<std::string, std::string> Render(const platform::RegValue& value) {
    if ((value.type == RegType::Dword && value.data.size() == 4) ||
        (value.type == RegType::Qword && value.data.size() == 8)) {
        const std::string number = std::to_string(LittleEndian(value.data));
        return {number, number};
    }
    if (value.type == RegType::Sz || value.type == RegType::ExpandSz) {
        const std::string text = platform::DecodeString(value.data);
        return {text, JsonString(text)};
    }
    std::string hex;
    for (std::uint8_t b : value.data) {
        char pair[3];
        std::snprintf(pair, sizeof pair, "%02x", b);
        hex += pair;
    }
    return {hex, JsonString(hex)};
}

std::shared_ptr<platform::RegistryStore> Store() {
    auto store = platform::RegistryStore::User();
    return store;
}

bool HasFlag(std::span<const std::string>& args, std::string_view flag) {
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == flag) {
            return true;
        }
    }
    return false;
}

int List(bool json) {
    RegKey key;
    if (RegKey::Open(Store(), settings::kSettingsKey, key) != ERROR_SUCCESS) {
        std::printf(json ? "{}\n" : "");
        return 0;
    }
    std::string out = json ? "{" : "";
    for (std::uint32_t i = 0;; ++i) {
        platform::RegValue value;
        const long error = key.EnumValue(i, value);
        if (error == ERROR_NO_MORE_ITEMS) {
            break;
        }
        if (error) {
            return Failure("cannot read the settings (error " + std::to_string(error) + ")");
        }
        const auto [textForm, jsonForm] = Render(value);
        if (json) {
            out += (i ? "," : "") + JsonString(value.name) + ":" + jsonForm;
        } else {
            out += value.name + " = " + textForm + " (" + TypeName(value.type) + ")\n";
        }
    }
    std::fputs((json ? out + "}\n" : out).c_str(), stdout);
    return 0;
}

int Get(const std::string& name, bool json) {
    const settings::KnownValue* known = settings::FindKnownValue(name);
    if (known == nullptr) {
        return UsageError("unknown setting '" + name + "'");
    }
    RegKey key;
    platform::RegValue value{std::string(known->name), RegType::None, {}};
    long error = RegKey::Open(Store(), settings::kSettingsKey, key);
    if (!error) {
        error = key.QueryValue(known->name, value.type, value.data);
    }
    if (error == ERROR_FILE_NOT_FOUND) {
        return Failure(std::string(known->name) + " is not set");
    }
    if (error) {
        return Failure("cannot read " + std::string(known->name) + " (error " +
                       std::to_string(error) + ")");
    }
    const auto [textForm, jsonForm] = Render(value);
    if (json) {
        std::printf("{%s:%s}\n", JsonString(known->name).c_str(), jsonForm.c_str());
    } else {
        std::printf("%s\n", textForm.c_str());
    }
    return 0;
}

// Decimal or 0x-hexadecimal, with a minus sign allowed down to the type's signed minimum.
bool ParseNumber(std::string_view text, int bits, std::uint64_t& out) {
    bool negative = false;
    if (!text.empty() && text.front() == '-') {
        negative = true;
        text.remove_prefix(1);
    }
    int base = 10;
    if (text.size() > 2 && text[0] == '0' && (text[1] == 'x' || text[1] == 'X')) {
        base = 16;
        text.remove_prefix(2);
    }
    std::uint64_t magnitude = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), magnitude, base);
    if (text.empty() || error != std::errc() || end != text.data() + text.size()) {
        return false;
    }
    const std::uint64_t max = bits == 64 ? ~0ull : (1ull << bits) - 1;
    if (negative) {
        if (magnitude > (1ull << (bits - 1))) {
            return false;
        }
        out = (~magnitude + 1) & max;
    } else {
        if (magnitude > max) {
            return false;
        }
        out = magnitude;
    }
    return true;
}

int Set(const std::string& name, const std::string& text, std::string_view typeOption) {
    const settings::KnownValue* known = settings::FindKnownValue(name);
    if (known == nullptr) {
        return UsageError("unknown setting '" + name + "'");
    }
    RegType type = known->type;
    if (!typeOption.empty()) {
        if (typeOption == "dword")
            type = RegType::Dword;
        else if (typeOption == "qword")
            type = RegType::Qword;
        else if (typeOption == "sz")
            type = RegType::Sz;
        else if (typeOption == "expand_sz")
            type = RegType::ExpandSz;
        else
            return UsageError("unknown type '" + std::string(typeOption) + "'");
    }
    std::vector<std::uint8_t> data;
    if (type == RegType::Dword || type == RegType::Qword) {
        std::uint64_t number = 0;
        if (!ParseNumber(text, type == RegType::Dword ? 32 : 64, number)) {
            return UsageError("'" + text + "' is not a " + TypeName(type) + " number");
        }
        data = type == RegType::Dword ? platform::EncodeDword(static_cast<std::uint32_t>(number))
                                      : platform::EncodeQword(number);
    } else {
        data = platform::EncodeString(text);
    }
    RegKey key;
    long error = RegKey::Create(Store(), settings::kSettingsKey, key);
    if (!error) {
        error = key.SetValue(known->name, type, data);
    }
    if (error) {
        return Failure("cannot write " + std::string(known->name) + " (error " +
                       std::to_string(error) + ")");
    }
    return 0;
}

int Delete(const std::string& name) {
    const settings::KnownValue* known = settings::FindKnownValue(name);
    if (known == nullptr) {
        return UsageError("unknown setting '" + name + "'");
    }
    RegKey key;
    long error = RegKey::Open(Store(), settings::kSettingsKey, key);
    if (!error) {
        error = key.DeleteValue(known->name);
    }
    if (error == ERROR_FILE_NOT_FOUND) {
        return Failure(std::string(known->name) + " is not set");
    }
    if (error) {
        return Failure("cannot delete " + std::string(known->name) + " (error " +
                       std::to_string(error) + ")");
    }
    return 0;
}

// Written beside the target and renamed into place, so an interrupted export never leaves
// half a file where a good one was.
bool WriteFileAtomically(const std::string& path, const std::string& content) {
    const std::string temporary = path + ".tmp-orvanta";
    {
        std::ofstream out(temporary, std::ios::binary | std::ios::trunc);
        out << content;
        out.flush();
        if (!out) {
            std::remove(temporary.c_str());
            return false;
        }
    }
    if (std::rename(temporary.c_str(), path.c_str()) != 0) {
        std::remove(temporary.c_str());
        return false;
    }
    return true;
}

int Export(std::span<const std::string> args) {
    std::string text;
    const long error = platform::ExportRegText(Store(), settings::kSettingsKey, text);
    if (error == ERROR_FILE_NOT_FOUND) {
        text = std::string(platform::kRegFileHeader) + "\n\n[" +
               platform::JoinKeyPath(platform::kCurrentUserRoot, settings::kSettingsKey) + "]\n\n";
    } else if (error) {
        return Failure("cannot read the settings (error " + std::to_string(error) + ")");
    }
    if (args.empty() || args[0] == "-") {
        std::fputs(text.c_str(), stdout);
        return 0;
    }
    if (!WriteFileAtomically(args[0], text)) {
        return Failure("cannot write " + args[0]);
    }
    return 0;
}

int Import(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) {
        return Failure("cannot read " + path);
    }
    std::stringstream buffer;
    buffer << in.rdbuf();
    std::string message;
    const long error =
        platform::ImportRegText(Store(), buffer.str(), settings::kSettingsKey, message);
    if (error) {
        return Failure(path + ": " + message);
    }
    return 0;
}

int Effective(bool json) {
    const auto outcome = settings::LoadSettings(Store());
    if (outcome.firstRun && outcome.writeError) {
        std::fprintf(stderr, "orvanta-cli: the default settings could not be saved (error %ld)\n",
                     outcome.writeError);
    }
    std::string out = json ? "{" : "";
    bool first = true;
    const auto add = [&](std::string_view name, const std::string& jsonForm,
                         const std::string& textForm) {
        if (json) {
            out += (first ? "" : ",") + JsonString(name) + ":" + jsonForm;
        } else {
            out += std::string(name) + " = " + textForm + "\n";
        }
        first = false;
    };
    for (const settings::Setting* setting : settings::AllSettings()) {
        const std::string number = std::to_string(setting->Get());
        add(setting->Name(), number, number);
        if (setting == &settings::OverrideTargetProfile) {
            const std::string profile = settings::TargetProfile.Get();
            add("CustomTargetColorProfile", JsonString(profile), profile);
        }
        if (setting == &settings::EnableRatingAutoAdvance) {
            const std::string name = settings::BookmarkFileName.Get();
            add("ExternalBookmarkFileName", JsonString(name), name);
        }
    }
    std::fputs((json ? out + "}\n" : out).c_str(), stdout);
    return 0;
}

int Run(std::span<const std::string> all) {
    if (all.empty()) {
        return UsageError(
            "settings needs a sub-command (list, get, set, delete, export, "
            "import, effective)");
    }
    const std::string& verb = all[0];
    std::span<const std::string> args = all.subspan(1);
    const bool json = HasFlag(args, "--json");
    std::vector<std::string> positional;
    std::string typeOption;
    for (std::size_t i = 0; i < args.size(); ++i) {
        if (args[i] == "--json") {
            continue;
        }
        if (args[i] == "--type") {
            if (i + 1 >= args.size()) {
                return UsageError("--type needs a value");
            }
            typeOption = args[++i];
            continue;
        }
        if (args[i].size() > 2 && args[i].rfind("--", 0) == 0) {
            return UsageError("unknown option '" + args[i] + "'");
        }
        positional.push_back(args[i]);
    }
    const auto expect = [&](std::size_t count) { return positional.size() == count; };
    if (verb == "list" && expect(0))
        return List(json);
    if (verb == "get" && expect(1))
        return Get(positional[0], json);
    if (verb == "set" && expect(2))
        return Set(positional[0], positional[1], typeOption);
    if (verb == "delete" && expect(1))
        return Delete(positional[0]);
    if (verb == "export" && positional.size() <= 1)
        return Export(positional);
    if (verb == "import" && expect(1))
        return Import(positional[0]);
    if (verb == "effective" && expect(0))
        return Effective(json);
    return UsageError("usage: orvanta-cli " + std::string(kUsage.substr(0, kUsage.find('\n'))) +
                      " ... (see orvanta-cli help)");
}

const CommandRegistrar registrar({"settings", kUsage, Run});

}  // namespace

}  // namespace orvanta::cli
