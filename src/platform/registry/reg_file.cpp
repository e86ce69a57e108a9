#include "platform/registry/reg_file.h"

#include <cstdio>
#include <variant>

#include "platform/result.h"
#include "platform/text/trim.h"
#include "platform/text/unicode.h"

namespace orvanta::platform {

namespace {

std::string Quote(std::string_view text) {
    std::string out = "\"";
    for (char c : text) {
        if (c == '\\' || c == '"') {
            out += '\\';
        }
        out += c;
    }
    out += '"';
    return out;
}

// A REG_SZ that the quoted form can carry unchanged: UTF-16 with one terminator at the
// end, no line breaks, and a clean round trip through UTF-8.
bool PrintableString(const RegValue& value) {
    const auto& d = value.data;
    if (value.type != RegType::Sz || d.size() < 2 || d.size() % 2 != 0 || d[d.size() - 1] != 0 ||
        d[d.size() - 2] != 0) {
        return false;
    }
    const std::string textForm = DecodeString(d);
    if (textForm.find_first_of("\r\n") != std::string::npos) {
        return false;
    }
    return EncodeString(textForm) == d;
}

void AppendHex(std::string& line, std::string_view prefix, const std::vector<std::uint8_t>& data) {
    line += prefix;
    std::size_t width = line.size();
    for (std::size_t i = 0; i < data.size(); ++i) {
        char byte[4];
        std::snprintf(byte, sizeof byte, "%02x", data[i]);
        line += byte;
        width += 2;
        if (i + 1 < data.size()) {
            line += ',';
            ++width;
            // Wrapped as the platform's editor wraps long binary values.
            if (width >= 76) {
                line += "\\\n  ";
                width = 2;
            }
        }
    }
}

long ExportKey(const RegKey& key, const std::string& fullName, std::string& text) {
    text += "[" + fullName + "]\n";
    for (std::uint32_t i = 0;; ++i) {
        RegValue value;
        const long error = key.EnumValue(i, value);
        if (error == ERROR_NO_MORE_ITEMS) {
            break;
        }
        if (error) {
            return error;
        }
        std::string line = value.name.empty() ? "@=" : Quote(value.name) + "=";
        if (value.type == RegType::Dword && value.data.size() == 4) {
            char number[16];
            std::snprintf(number, sizeof number, "dword:%08x",
                          value.data[0] | (value.data[1] << 8) | (value.data[2] << 16) |
                              (static_cast<unsigned>(value.data[3]) << 24));
            line += number;
        } else if (PrintableString(value)) {
            line += Quote(DecodeString(value.data));
        } else if (value.type == RegType::Binary) {
            AppendHex(line, "hex:", value.data);
        } else {
            char prefix[24];
            std::snprintf(prefix, sizeof prefix, "hex(%x):", static_cast<unsigned>(value.type));
            AppendHex(line, prefix, value.data);
        }
        text += line + "\n";
    }
    text += "\n";
    for (std::uint32_t i = 0;; ++i) {
        std::string name;
        const long error = key.EnumKey(i, name);
        if (error == ERROR_NO_MORE_ITEMS) {
            break;
        }
        if (error) {
            return error;
        }
        RegKey child;
        if (const long openError =
                RegKey::Open(key.Store(), JoinKeyPath(key.Path(), name), child)) {
            return openError;
        }
        if (const long childError = ExportKey(child, fullName + "\\" + name, text)) {
            return childError;
        }
    }
    return ERROR_SUCCESS;
}

struct SetKey {
    std::string path;
};
struct DeleteKeyTree {
    std::string path;
};
struct SetValue {
    std::string name;
    RegType type;
    std::vector<std::uint8_t> data;
};
struct DeleteValue {
    std::string name;
};
using Action = std::variant<SetKey, DeleteKeyTree, SetValue, DeleteValue>;

std::string ToUtf8(std::string_view text) {
    if (text.size() >= 2 && static_cast<unsigned char>(text[0]) == 0xFF &&
        static_cast<unsigned char>(text[1]) == 0xFE) {
        std::u16string wide;
        for (std::size_t i = 2; i + 1 < text.size(); i += 2) {
            wide += static_cast<char16_t>(static_cast<unsigned char>(text[i]) |
                                          (static_cast<unsigned char>(text[i + 1]) << 8));
        }
        return text::Utf16ToUtf8(wide);
    }
    if (text.size() >= 3 && text.substr(0, 3) == "\xEF\xBB\xBF") {
        text.remove_prefix(3);
    }
    return std::string(text);
}

// Reads a quoted string at the start of `s`, unescaping \\ and \"; advances past it.
bool ReadQuoted(std::string_view& s, std::string& out) {
    if (s.empty() || s.front() != '"') {
        return false;
    }
    out.clear();
    for (std::size_t i = 1; i < s.size(); ++i) {
        if (s[i] == '\\' && i + 1 < s.size()) {
            out += s[++i];
        } else if (s[i] == '"') {
            s.remove_prefix(i + 1);
            return true;
        } else {
            out += s[i];
        }
    }
    return false;
}

// Hexadecimal digits (no prefix) into `value`; false for anything else or an empty text.
bool ParseHex(std::string_view digits, std::uint32_t& value) {
    value = 0;
    for (char c : digits) {
        value <<= 4;
        if (c >= '0' && c <= '9')
            value |= c - '0';
        else if (c >= 'a' && c <= 'f')
            value |= c - 'a' + 10;
        else if (c >= 'A' && c <= 'F')
            value |= c - 'A' + 10;
        else
            return false;
    }
    return !digits.empty();
}

bool ReadHexBytes(std::string_view s, std::vector<std::uint8_t>& out) {
    out.clear();
    s = text::TrimBlanks(s);
    while (!s.empty()) {
        const std::size_t comma = s.find(',');
        const std::string_view item = text::TrimBlanks(s.substr(0, comma));
        if (item.size() != 2 && !(item.empty() && comma == std::string_view::npos)) {
            return false;
        }
        if (!item.empty()) {
            std::uint32_t value = 0;
            if (!ParseHex(item, value)) {
                return false;
            }
            out.push_back(static_cast<std::uint8_t>(value));
        }
        if (comma == std::string_view::npos) {
            break;
        }
        s.remove_prefix(comma + 1);
    }
    return true;
}

// "HKEY_CURRENT_USER\a\b" (or "HKCU\...") to "a\b" when it lies within `allowedRoot`.
bool KeyBelowRoot(std::string_view fullName, std::string_view allowedRoot, std::string& path) {
    for (std::string_view hive :
         {std::string_view("HKEY_CURRENT_USER"), std::string_view("HKCU")}) {
        if (fullName.size() > hive.size() && fullName[hive.size()] == '\\' &&
            text::EqualsNoCase(fullName.substr(0, hive.size()), hive)) {
            path = std::string(fullName.substr(hive.size() + 1));
            const std::string root(allowedRoot);
            return text::EqualsNoCase(path, root) ||
                   (path.size() > root.size() && path[root.size()] == '\\' &&
                    text::EqualsNoCase(std::string_view(path).substr(0, root.size()), root));
        }
    }
    return false;
}

}  // namespace

long ExportRegText(const std::shared_ptr<RegistryStore>& store, std::string_view path,
                   std::string& text) {
    RegKey key;
    if (const long error = RegKey::Open(store, path, key)) {
        return error;
    }
    text = std::string(kRegFileHeader) + "\n\n";
    return ExportKey(key, JoinKeyPath(kCurrentUserRoot, path), text);
}

long ImportRegText(const std::shared_ptr<RegistryStore>& store, std::string_view input,
                   std::string_view allowedRoot, std::string& message) {
    const std::string whole = ToUtf8(input);
    std::vector<Action> actions;
    bool sawHeader = false;
    bool inKey = false;
    int lineNumber = 0;
    std::size_t pos = 0;
    const auto fail = [&](const std::string& what) {
        message = "line " + std::to_string(lineNumber) + ": " + what;
        return ERROR_INVALID_DATA;
    };
    while (pos < whole.size()) {
        // One logical line: physical lines joined while they end with a backslash.
        std::string line;
        const int firstLine = lineNumber + 1;
        while (pos < whole.size()) {
            std::size_t end = whole.find('\n', pos);
            if (end == std::string::npos) {
                end = whole.size();
            }
            ++lineNumber;
            std::string_view piece = text::TrimBlanks(std::string_view(whole).substr(pos, end - pos));
            pos = end + 1;
            // Only binary values wrap; a text value never ends its line with a backslash.
            if (!piece.empty() && piece.back() == '\\' &&
                (!line.empty() || piece.find("=hex") != std::string_view::npos)) {
                piece.remove_suffix(1);
                line += piece;
                continue;
            }
            line += piece;
            break;
        }
        const std::string_view l = text::TrimBlanks(line);
        if (l.empty() || l.front() == ';') {
            continue;
        }
        if (!sawHeader) {
            if (l != kRegFileHeader && l != "REGEDIT4") {
                lineNumber = firstLine;
                return fail("not a registry file (expected \"" + std::string(kRegFileHeader) +
                            "\")");
            }
            sawHeader = true;
            continue;
        }
        if (l.front() == '[') {
            if (l.back() != ']') {
                return fail("unterminated key name");
            }
            std::string_view name = l.substr(1, l.size() - 2);
            const bool remove = !name.empty() && name.front() == '-';
            if (remove) {
                name.remove_prefix(1);
            }
            std::string path;
            if (!KeyBelowRoot(name, allowedRoot, path)) {
                return fail("key outside HKEY_CURRENT_USER\\" + std::string(allowedRoot) + ": " +
                            std::string(name));
            }
            if (remove) {
                actions.emplace_back(DeleteKeyTree{path});
                inKey = false;
            } else {
                actions.emplace_back(SetKey{path});
                inKey = true;
            }
            continue;
        }
        if (!inKey) {
            return fail("value outside a key section");
        }
        std::string_view rest = l;
        std::string name;
        if (rest.front() == '@') {
            rest.remove_prefix(1);
        } else if (!ReadQuoted(rest, name)) {
            return fail("expected a quoted value name");
        }
        rest = text::TrimBlanks(rest);
        if (rest.empty() || rest.front() != '=') {
            return fail("expected '=' after the value name");
        }
        rest = text::TrimBlanks(rest.substr(1));
        if (rest == "-") {
            actions.emplace_back(DeleteValue{name});
            continue;
        }
        SetValue set{name, RegType::Sz, {}};
        if (!rest.empty() && rest.front() == '"') {
            std::string textValue;
            if (!ReadQuoted(rest, textValue) || !text::TrimBlanks(rest).empty()) {
                return fail("malformed text value");
            }
            set.data = EncodeString(textValue);
        } else if (rest.substr(0, 6) == "dword:") {
            const std::string_view digits = rest.substr(6);
            if (digits.empty() || digits.size() > 8) {
                return fail("malformed dword value");
            }
            std::uint32_t number = 0;
            if (!ParseHex(digits, number)) {
                return fail("malformed dword value");
            }
            set.type = RegType::Dword;
            set.data = EncodeDword(number);
        } else if (rest.substr(0, 3) == "hex") {
            rest.remove_prefix(3);
            set.type = RegType::Binary;
            if (!rest.empty() && rest.front() == '(') {
                const std::size_t close = rest.find(')');
                if (close == std::string_view::npos || close == 1 || close > 9) {
                    return fail("malformed hex type");
                }
                std::uint32_t type = 0;
                if (!ParseHex(rest.substr(1, close - 1), type)) {
                    return fail("malformed hex type");
                }
                set.type = static_cast<RegType>(type);
                rest.remove_prefix(close + 1);
            }
            if (rest.empty() || rest.front() != ':' || !ReadHexBytes(rest.substr(1), set.data)) {
                return fail("malformed hex value");
            }
        } else {
            return fail("unknown value form: " + std::string(rest.substr(0, 20)));
        }
        actions.push_back(std::move(set));
    }
    if (!sawHeader) {
        return fail("empty file");
    }

    RegKey key;
    for (Action& action : actions) {
        long error = ERROR_SUCCESS;
        if (auto* k = std::get_if<SetKey>(&action)) {
            error = RegKey::Create(store, k->path, key);
        } else if (auto* d = std::get_if<DeleteKeyTree>(&action)) {
            RegKey root;
            error = RegKey::Open(store, "", root);
            if (!error) {
                error = root.DeleteTree(d->path);
                if (error == ERROR_FILE_NOT_FOUND) {
                    error = ERROR_SUCCESS;
                }
            }
        } else if (auto* s = std::get_if<SetValue>(&action)) {
            error = key.SetValue(s->name, s->type, s->data);
        } else if (auto* v = std::get_if<DeleteValue>(&action)) {
            error = key.DeleteValue(v->name);
            if (error == ERROR_FILE_NOT_FOUND) {
                error = ERROR_SUCCESS;
            }
        }
        if (error) {
            message = "the settings store refused a change (error " + std::to_string(error) + ")";
            return error;
        }
    }
    return ERROR_SUCCESS;
}

}  // namespace orvanta::platform
