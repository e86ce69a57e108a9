// The ".reg" text form of a key tree: "Windows Registry Editor Version 5.00", sections
// "[HKEY_CURRENT_USER\...]", values "Name"=dword:0000000a, "Name"="text", hex:, hex(2):
// (expandable text), hex(b): (QWORD), hex(N): for any other type, "Name"=- and [-Key] for
// deletions. Used by the command-line tool to export and import the settings. Pure text
// handling over a RegistryStore; thread rules are the store's.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/registry/registry.h"

namespace orvanta::platform {

inline constexpr std::string_view kRegFileHeader = "Windows Registry Editor Version 5.00";
inline constexpr std::string_view kCurrentUserRoot = "HKEY_CURRENT_USER";

// The key at `path` (below HKEY_CURRENT_USER) with all its values and sub-keys.
long ExportRegText(const std::shared_ptr<RegistryStore>& store, std::string_view path,
                   std::string& text);

// Parses the whole text first (UTF-8, or UTF-16LE with its byte-order mark) and applies it
// only when every line is understood; keys outside HKEY_CURRENT_USER\`allowedRoot` are
// refused. On failure `message` says what and on which line.
long ImportRegText(const std::shared_ptr<RegistryStore>& store, std::string_view text,
                   std::string_view allowedRoot, std::string& message);

}  // namespace orvanta::platform
