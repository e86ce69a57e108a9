// The per-user settings store: a typed, hierarchical key/value store with the registry's
// semantics, kept in one SQLite database. Keys are backslash paths below
// HKEY_CURRENT_USER ("SOFTWARE\Tavrel\Orvanta\ExternalEditors\1"); key and value names
// compare without regard to case and keep the case they were created with; values carry a
// registry type and raw bytes (REG_SZ as UTF-16LE with its terminator), so the type,
// length and terminator checks of the callers behave as on the platform this replaces.
//
// Thread rules: RegistryStore is guarded by its own mutex (one SQLite connection per
// store); several threads and several processes may read and write at once (WAL journal,
// busy timeout, every write one immediate transaction), and no write is lost. RegKey is a
// small value (store + path); copies may be used from different threads.
//
// A database that cannot be opened leaves the store unavailable: every call fails, the
// program runs on its defaults, and stderr says so once. A damaged database is never
// overwritten or deleted: it is renamed with a time suffix and a new one is started.
#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

struct sqlite3;
struct sqlite3_stmt;

namespace orvanta::platform {

enum class RegType : std::uint32_t {
    None = 0,
    Sz = 1,
    ExpandSz = 2,
    Binary = 3,
    Dword = 4,
    Qword = 11,
};

struct RegValue {
    std::string name;
    RegType type = RegType::None;
    std::vector<std::uint8_t> data;
};

class RegistryStore {
public:
    // Opens (creating when needed) the database at `path`; never fails, see above.
    static std::shared_ptr<RegistryStore> Open(const std::filesystem::path& path);
    // ORVANTA_REGISTRY when set, else ${XDG_CONFIG_HOME:-~/.config}/Tavrel/Orvanta/registry.db.
    static std::filesystem::path DefaultPath();
    // The process's per-user store at DefaultPath(), opened on first use.
    static std::shared_ptr<RegistryStore> User();

    ~RegistryStore();
    RegistryStore(const RegistryStore&) = delete;
    RegistryStore& operator=(const RegistryStore&) = delete;

    bool Available() const { return db_ != nullptr; }
    const std::filesystem::path& Path() const { return path_; }

private:
    friend class RegKey;
    class Transaction;

    explicit RegistryStore(std::filesystem::path path);
    void OpenOrRecover();
    bool TryOpen(std::string& reason, bool& damaged);
    sqlite3_stmt* Prepare(const char* sql);
    // Resolves a key path to its id; 0 is HKEY_CURRENT_USER itself, -1 a missing key.
    std::int64_t FindKey(std::string_view path);
    std::int64_t CreateKey(std::string_view path);
    long ErrorFromSqlite(int code);

    std::filesystem::path path_;
    // Guards db_ and the statement cache; taken after any lock of the caller, never held
    // while calling out of the store.
    std::mutex mutex_;
    sqlite3* db_ = nullptr;
    std::vector<std::pair<const char*, sqlite3_stmt*>> statements_;
};

// An open key: the store and the key's path. Calls return Win32 error codes (0 on
// success, 2 for a missing key or value, 259 past the last item of an enumeration).
class RegKey {
public:
    RegKey() = default;

    static long Open(std::shared_ptr<RegistryStore> store, std::string_view path, RegKey& key);
    // Creates the key and any missing parents.
    static long Create(std::shared_ptr<RegistryStore> store, std::string_view path, RegKey& key);

    bool IsOpen() const { return store_ != nullptr; }
    void Close() { store_.reset(); }
    const std::string& Path() const { return path_; }
    const std::shared_ptr<RegistryStore>& Store() const { return store_; }

    long QueryValue(std::string_view name, RegType& type, std::vector<std::uint8_t>& data) const;
    long SetValue(std::string_view name, RegType type, std::span<const std::uint8_t> data);
    long DeleteValue(std::string_view name);
    // Values in the order they were first written; sub-keys in name order.
    long EnumValue(std::uint32_t index, RegValue& value) const;
    long EnumKey(std::uint32_t index, std::string& name) const;
    // Deletes `subKey` with everything below it; an empty `subKey` deletes this key's
    // values and sub-keys but keeps the key.
    long DeleteTree(std::string_view subKey);
    // Deletes a sub-key that has no sub-keys of its own (ERROR_ACCESS_DENIED otherwise).
    long DeleteKey(std::string_view subKey);

private:
    std::shared_ptr<RegistryStore> store_;
    std::string path_;
};

// Byte-level encodings of the registry types.
std::vector<std::uint8_t> EncodeDword(std::uint32_t value);
std::vector<std::uint8_t> EncodeQword(std::uint64_t value);
// UTF-16LE with the terminating NUL, as REG_SZ and REG_EXPAND_SZ are stored.
std::vector<std::uint8_t> EncodeString(std::string_view utf8);
// The text of a REG_SZ: everything before the first NUL (an odd trailing byte is dropped).
std::string DecodeString(std::span<const std::uint8_t> data);

// Joins key paths with one backslash.
std::string JoinKeyPath(std::string_view parent, std::string_view child);

}  // namespace orvanta::platform
