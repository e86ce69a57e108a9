#include "platform/registry/registry.h"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <system_error>

#include <sqlite3.h>

#include "platform/result.h"
#include "platform/text/unicode.h"

namespace orvanta::platform {

namespace {

constexpr const char* kSchema =
    "CREATE TABLE IF NOT EXISTS keys("
    "  id INTEGER PRIMARY KEY, parent INTEGER NOT NULL, name TEXT NOT NULL,"
    "  fold TEXT NOT NULL, UNIQUE(parent, fold));"
    "CREATE TABLE IF NOT EXISTS vals("
    "  key INTEGER NOT NULL, name TEXT NOT NULL, fold TEXT NOT NULL,"
    "  type INTEGER NOT NULL, data BLOB NOT NULL, PRIMARY KEY(key, fold));";

// Another process may hold the write lock for a while (a large import); waiting this long
// before giving up keeps concurrent writers from losing anything.
constexpr int kBusyTimeoutMs = 15000;

// Says a thing about the store once per process, whichever store or thread notices first.
void SayOnce(const std::string& text) {
    static std::atomic<bool> said{false};
    if (!said.exchange(true)) {
        std::fprintf(stderr, "orvanta: %s\n", text.c_str());
    }
}

std::vector<std::string_view> SplitPath(std::string_view path) {
    std::vector<std::string_view> parts;
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t end = path.find('\\', start);
        if (end == std::string_view::npos) {
            end = path.size();
        }
        if (end > start) {
            parts.push_back(path.substr(start, end - start));
        }
        start = end + 1;
    }
    return parts;
}

std::string TimeSuffix() {
    const std::time_t now = std::time(nullptr);
    std::tm local{};
    localtime_r(&now, &local);
    char text[32];
    std::strftime(text, sizeof text, "%Y%m%d-%H%M%S", &local);
    return text;
}

struct StatementReset {
    sqlite3_stmt* statement;
    ~StatementReset() {
        sqlite3_reset(statement);
        sqlite3_clear_bindings(statement);
    }
};

void BindText(sqlite3_stmt* s, int index, std::string_view text) {
    sqlite3_bind_text(s, index, text.data(), static_cast<int>(text.size()), SQLITE_TRANSIENT);
}

}  // namespace

// One immediate transaction: takes the database's write lock at once (waiting out other
// writers through the busy timeout), so two writers never both read then both write.
class RegistryStore::Transaction {
public:
    explicit Transaction(sqlite3* db) : db_(db) {
        status_ = sqlite3_exec(db_, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr);
    }
    ~Transaction() {
        if (status_ == SQLITE_OK && !committed_) {
            sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
        }
    }
    int Status() const { return status_; }
    int Commit() {
        const int code = sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr);
        committed_ = code == SQLITE_OK;
        return code;
    }

private:
    sqlite3* db_;
    int status_;
    bool committed_ = false;
};

std::filesystem::path RegistryStore::DefaultPath() {
    if (const char* chosen = std::getenv("ORVANTA_REGISTRY"); chosen && *chosen) {
        return chosen;
    }
    std::filesystem::path config;
    if (const char* xdg = std::getenv("XDG_CONFIG_HOME"); xdg && *xdg == '/') {
        config = xdg;
    } else if (const char* home = std::getenv("HOME"); home && *home) {
        config = std::filesystem::path(home) / ".config";
    } else {
        config = std::filesystem::temp_directory_path();
    }
    return config / "Tavrel" / "Orvanta" / "registry.db";
}

std::shared_ptr<RegistryStore> RegistryStore::User() {
    static std::shared_ptr<RegistryStore> store = Open(DefaultPath());
    return store;
}

std::shared_ptr<RegistryStore> RegistryStore::Open(const std::filesystem::path& path) {
    std::shared_ptr<RegistryStore> store(new RegistryStore(path));
    store->OpenOrRecover();
    return store;
}

RegistryStore::RegistryStore(std::filesystem::path path) : path_(std::move(path)) {
}

RegistryStore::~RegistryStore() {
    for (auto& [sql, statement] : statements_) {
        sqlite3_finalize(statement);
    }
    if (db_) {
        sqlite3_close(db_);
    }
}

bool RegistryStore::TryOpen(std::string& reason, bool& damaged) {
    damaged = false;
    std::error_code error;
    if (path_.has_parent_path()) {
        std::filesystem::create_directories(path_.parent_path(), error);
    }
    sqlite3* db = nullptr;
    int code =
        sqlite3_open_v2(path_.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    std::unique_ptr<sqlite3, decltype(&sqlite3_close)> owner(db, &sqlite3_close);
    if (code != SQLITE_OK) {
        reason = db ? sqlite3_errmsg(db) : sqlite3_errstr(code);
        return false;
    }
    sqlite3_busy_timeout(db, kBusyTimeoutMs);
    sqlite3_extended_result_codes(db, 0);
    // A file that is not a database at all fails on the first read of its header.
    code = sqlite3_exec(db,
                        "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;"
                        "PRAGMA foreign_keys=OFF;",
                        nullptr, nullptr, nullptr);
    if (code == SQLITE_OK) {
        code = sqlite3_exec(db, kSchema, nullptr, nullptr, nullptr);
    }
    if (code == SQLITE_OK) {
        // quick_check reads every page once; the store is small, so this costs little at
        // start-up and catches a torn or overwritten file before any setting is trusted.
        sqlite3_stmt* check = nullptr;
        code = sqlite3_prepare_v2(db, "PRAGMA quick_check", -1, &check, nullptr);
        if (code == SQLITE_OK) {
            const int step = sqlite3_step(check);
            const auto* verdict = sqlite3_column_text(check, 0);
            if (step != SQLITE_ROW) {
                code = step;
            } else if (!verdict ||
                       std::string_view(reinterpret_cast<const char*>(verdict)) != "ok") {
                code = SQLITE_CORRUPT;
            }
            sqlite3_finalize(check);
        }
    }
    if (code == SQLITE_OK) {
        // A database of some other program has tables of these names with other columns.
        code = sqlite3_exec(db,
                            "SELECT id, parent, name, fold FROM keys LIMIT 0;"
                            "SELECT key, name, fold, type, data FROM vals LIMIT 0;",
                            nullptr, nullptr, nullptr);
        if (code != SQLITE_OK) {
            code = SQLITE_CORRUPT;
        }
    }
    if (code != SQLITE_OK) {
        reason = sqlite3_errstr(code);
        damaged = code == SQLITE_NOTADB || code == SQLITE_CORRUPT;
        return false;
    }
    db_ = owner.release();
    return true;
}

void RegistryStore::OpenOrRecover() {
    std::string reason;
    bool damaged = false;
    if (TryOpen(reason, damaged)) {
        return;
    }
    if (!damaged) {
        SayOnce("the settings database " + path_.string() + " cannot be opened (" + reason +
                "); running on the default settings");
        return;
    }
    // Keep the damaged file (and its journal) for whoever wants to look at it.
    std::filesystem::path aside = path_.string() + ".damaged-" + TimeSuffix();
    for (int n = 2; std::filesystem::exists(aside) && n < 100; ++n) {
        aside = path_.string() + ".damaged-" + TimeSuffix() + "-" + std::to_string(n);
    }
    std::error_code error;
    std::filesystem::rename(path_, aside, error);
    if (error && std::filesystem::exists(path_)) {
        SayOnce("the settings database " + path_.string() + " is damaged (" + reason +
                ") and cannot be moved aside; running on the default settings");
        return;
    }
    for (const char* journal : {"-wal", "-shm"}) {
        std::error_code ignored;
        std::filesystem::rename(path_.string() + journal, aside.string() + journal, ignored);
    }
    if (TryOpen(reason, damaged)) {
        SayOnce("the settings database " + path_.string() + " was damaged (" + reason +
                "); it was moved to " + aside.string() + " and a new one was started");
    } else {
        SayOnce("the settings database " + path_.string() +
                " is damaged and a new one cannot "
                "be started (" +
                reason + "); running on the default settings");
    }
}

sqlite3_stmt* RegistryStore::Prepare(const char* sql) {
    for (auto& [text, statement] : statements_) {
        if (text == sql) {
            return statement;
        }
    }
    sqlite3_stmt* statement = nullptr;
    if (sqlite3_prepare_v3(db_, sql, -1, SQLITE_PREPARE_PERSISTENT, &statement, nullptr) !=
        SQLITE_OK) {
        return nullptr;
    }
    statements_.emplace_back(sql, statement);
    return statement;
}

long RegistryStore::ErrorFromSqlite(int code) {
    switch (code) {
        case SQLITE_OK:
        case SQLITE_DONE:
        case SQLITE_ROW:
            return ERROR_SUCCESS;
        case SQLITE_NOMEM:
            return ERROR_OUTOFMEMORY;
        case SQLITE_READONLY:
        case SQLITE_PERM:
        case SQLITE_AUTH:
            return ERROR_ACCESS_DENIED;
        case SQLITE_FULL:
            return ERROR_HANDLE_DISK_FULL;
        case SQLITE_BUSY:
        case SQLITE_LOCKED:
            return ERROR_SHARING_VIOLATION;
        case SQLITE_CORRUPT:
        case SQLITE_NOTADB:
            SayOnce("the settings database " + path_.string() +
                    " is damaged; settings may not be saved");
            return ERROR_BADDB;
        default:
            return ERROR_BADDB;
    }
}

std::int64_t RegistryStore::FindKey(std::string_view path) {
    sqlite3_stmt* s = Prepare("SELECT id FROM keys WHERE parent = ?1 AND fold = ?2");
    if (!s) {
        return -1;
    }
    std::int64_t id = 0;
    for (std::string_view part : SplitPath(path)) {
        StatementReset reset{s};
        sqlite3_bind_int64(s, 1, id);
        BindText(s, 2, text::FoldCase(part));
        if (sqlite3_step(s) != SQLITE_ROW) {
            return -1;
        }
        id = sqlite3_column_int64(s, 0);
    }
    return id;
}

std::int64_t RegistryStore::CreateKey(std::string_view path) {
    sqlite3_stmt* find = Prepare("SELECT id FROM keys WHERE parent = ?1 AND fold = ?2");
    sqlite3_stmt* insert = Prepare("INSERT INTO keys(parent, name, fold) VALUES(?1, ?2, ?3)");
    if (!find || !insert) {
        return -1;
    }
    std::int64_t id = 0;
    for (std::string_view part : SplitPath(path)) {
        const std::string fold = text::FoldCase(part);
        {
            StatementReset reset{find};
            sqlite3_bind_int64(find, 1, id);
            BindText(find, 2, fold);
            if (sqlite3_step(find) == SQLITE_ROW) {
                id = sqlite3_column_int64(find, 0);
                continue;
            }
        }
        StatementReset reset{insert};
        sqlite3_bind_int64(insert, 1, id);
        BindText(insert, 2, part);
        BindText(insert, 3, fold);
        if (sqlite3_step(insert) != SQLITE_DONE) {
            return -1;
        }
        id = sqlite3_last_insert_rowid(db_);
    }
    return id;
}

long RegKey::Open(std::shared_ptr<RegistryStore> store, std::string_view path, RegKey& key) {
    key.Close();
    if (!store || !store->Available()) {
        return ERROR_FILE_NOT_FOUND;
    }
    {
        std::scoped_lock lock(store->mutex_);
        if (store->FindKey(path) < 0) {
            return ERROR_FILE_NOT_FOUND;
        }
    }
    key.store_ = std::move(store);
    key.path_ = std::string(path);
    return ERROR_SUCCESS;
}

long RegKey::Create(std::shared_ptr<RegistryStore> store, std::string_view path, RegKey& key) {
    key.Close();
    if (!store || !store->Available()) {
        return ERROR_ACCESS_DENIED;
    }
    {
        std::scoped_lock lock(store->mutex_);
        RegistryStore::Transaction transaction(store->db_);
        if (transaction.Status() != SQLITE_OK) {
            return store->ErrorFromSqlite(transaction.Status());
        }
        if (store->CreateKey(path) < 0) {
            return store->ErrorFromSqlite(sqlite3_errcode(store->db_));
        }
        if (const int code = transaction.Commit(); code != SQLITE_OK) {
            return store->ErrorFromSqlite(code);
        }
    }
    key.store_ = std::move(store);
    key.path_ = std::string(path);
    return ERROR_SUCCESS;
}

long RegKey::QueryValue(std::string_view name, RegType& type,
                        std::vector<std::uint8_t>& data) const {
    if (!store_) {
        return ERROR_INVALID_HANDLE;
    }
    std::scoped_lock lock(store_->mutex_);
    const std::int64_t id = store_->FindKey(path_);
    if (id < 0) {
        return ERROR_KEY_DELETED;
    }
    sqlite3_stmt* s = store_->Prepare("SELECT type, data FROM vals WHERE key = ?1 AND fold = ?2");
    if (!s) {
        return store_->ErrorFromSqlite(sqlite3_errcode(store_->db_));
    }
    StatementReset reset{s};
    sqlite3_bind_int64(s, 1, id);
    BindText(s, 2, text::FoldCase(name));
    const int step = sqlite3_step(s);
    if (step == SQLITE_DONE) {
        return ERROR_FILE_NOT_FOUND;
    }
    if (step != SQLITE_ROW) {
        return store_->ErrorFromSqlite(step);
    }
    type = static_cast<RegType>(sqlite3_column_int64(s, 0));
    const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(s, 1));
    data.assign(bytes, bytes + sqlite3_column_bytes(s, 1));
    return ERROR_SUCCESS;
}

long RegKey::SetValue(std::string_view name, RegType type, std::span<const std::uint8_t> data) {
    if (!store_) {
        return ERROR_INVALID_HANDLE;
    }
    std::scoped_lock lock(store_->mutex_);
    RegistryStore::Transaction transaction(store_->db_);
    if (transaction.Status() != SQLITE_OK) {
        return store_->ErrorFromSqlite(transaction.Status());
    }
    const std::int64_t id = store_->FindKey(path_);
    if (id < 0) {
        return ERROR_KEY_DELETED;
    }
    // An update keeps the row (and so the value's place in the enumeration order) and
    // takes the new spelling of the name, as the registry does.
    sqlite3_stmt* s = store_->Prepare(
        "INSERT INTO vals(key, name, fold, type, data) VALUES(?1, ?2, ?3, ?4, ?5) "
        "ON CONFLICT(key, fold) DO UPDATE SET name = ?2, type = ?4, data = ?5");
    if (!s) {
        return store_->ErrorFromSqlite(sqlite3_errcode(store_->db_));
    }
    {
        StatementReset reset{s};
        sqlite3_bind_int64(s, 1, id);
        BindText(s, 2, name);
        BindText(s, 3, text::FoldCase(name));
        sqlite3_bind_int64(s, 4, static_cast<std::int64_t>(type));
        // A zero-length blob must still be a blob, never NULL.
        static const std::uint8_t kEmpty = 0;
        sqlite3_bind_blob(s, 5, data.empty() ? &kEmpty : data.data(), static_cast<int>(data.size()),
                          SQLITE_TRANSIENT);
        if (const int step = sqlite3_step(s); step != SQLITE_DONE) {
            return store_->ErrorFromSqlite(step);
        }
    }
    return store_->ErrorFromSqlite(transaction.Commit());
}

long RegKey::DeleteValue(std::string_view name) {
    if (!store_) {
        return ERROR_INVALID_HANDLE;
    }
    std::scoped_lock lock(store_->mutex_);
    RegistryStore::Transaction transaction(store_->db_);
    if (transaction.Status() != SQLITE_OK) {
        return store_->ErrorFromSqlite(transaction.Status());
    }
    const std::int64_t id = store_->FindKey(path_);
    if (id < 0) {
        return ERROR_KEY_DELETED;
    }
    sqlite3_stmt* s = store_->Prepare("DELETE FROM vals WHERE key = ?1 AND fold = ?2");
    if (!s) {
        return store_->ErrorFromSqlite(sqlite3_errcode(store_->db_));
    }
    {
        StatementReset reset{s};
        sqlite3_bind_int64(s, 1, id);
        BindText(s, 2, text::FoldCase(name));
        if (const int step = sqlite3_step(s); step != SQLITE_DONE) {
            return store_->ErrorFromSqlite(step);
        }
        if (sqlite3_changes(store_->db_) == 0) {
            return ERROR_FILE_NOT_FOUND;
        }
    }
    return store_->ErrorFromSqlite(transaction.Commit());
}

long RegKey::EnumValue(std::uint32_t index, RegValue& value) const {
    if (!store_) {
        return ERROR_INVALID_HANDLE;
    }
    std::scoped_lock lock(store_->mutex_);
    const std::int64_t id = store_->FindKey(path_);
    if (id < 0) {
        return ERROR_KEY_DELETED;
    }
    sqlite3_stmt* s = store_->Prepare(
        "SELECT name, type, data FROM vals WHERE key = ?1 ORDER BY rowid LIMIT 1 OFFSET ?2");
    if (!s) {
        return store_->ErrorFromSqlite(sqlite3_errcode(store_->db_));
    }
    StatementReset reset{s};
    sqlite3_bind_int64(s, 1, id);
    sqlite3_bind_int64(s, 2, index);
    const int step = sqlite3_step(s);
    if (step == SQLITE_DONE) {
        return ERROR_NO_MORE_ITEMS;
    }
    if (step != SQLITE_ROW) {
        return store_->ErrorFromSqlite(step);
    }
    value.name = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
    value.type = static_cast<RegType>(sqlite3_column_int64(s, 1));
    const auto* bytes = static_cast<const std::uint8_t*>(sqlite3_column_blob(s, 2));
    value.data.assign(bytes, bytes + sqlite3_column_bytes(s, 2));
    return ERROR_SUCCESS;
}

long RegKey::EnumKey(std::uint32_t index, std::string& name) const {
    if (!store_) {
        return ERROR_INVALID_HANDLE;
    }
    std::scoped_lock lock(store_->mutex_);
    const std::int64_t id = store_->FindKey(path_);
    if (id < 0) {
        return ERROR_KEY_DELETED;
    }
    sqlite3_stmt* s =
        store_->Prepare("SELECT name FROM keys WHERE parent = ?1 ORDER BY fold LIMIT 1 OFFSET ?2");
    if (!s) {
        return store_->ErrorFromSqlite(sqlite3_errcode(store_->db_));
    }
    StatementReset reset{s};
    sqlite3_bind_int64(s, 1, id);
    sqlite3_bind_int64(s, 2, index);
    const int step = sqlite3_step(s);
    if (step == SQLITE_DONE) {
        return ERROR_NO_MORE_ITEMS;
    }
    if (step != SQLITE_ROW) {
        return store_->ErrorFromSqlite(step);
    }
    name = reinterpret_cast<const char*>(sqlite3_column_text(s, 0));
    return ERROR_SUCCESS;
}

long RegKey::DeleteTree(std::string_view subKey) {
    if (!store_) {
        return ERROR_INVALID_HANDLE;
    }
    std::scoped_lock lock(store_->mutex_);
    RegistryStore::Transaction transaction(store_->db_);
    if (transaction.Status() != SQLITE_OK) {
        return store_->ErrorFromSqlite(transaction.Status());
    }
    const std::int64_t id = store_->FindKey(JoinKeyPath(path_, subKey));
    if (id < 0) {
        return subKey.empty() ? ERROR_KEY_DELETED : ERROR_FILE_NOT_FOUND;
    }
    sqlite3_stmt* values = store_->Prepare(
        "WITH RECURSIVE tree(id) AS (SELECT ?1 UNION ALL "
        "  SELECT keys.id FROM keys JOIN tree ON keys.parent = tree.id) "
        "DELETE FROM vals WHERE key IN tree");
    sqlite3_stmt* keys = store_->Prepare(
        "WITH RECURSIVE tree(id) AS (SELECT ?1 UNION ALL "
        "  SELECT keys.id FROM keys JOIN tree ON keys.parent = tree.id) "
        "DELETE FROM keys WHERE id IN tree AND (id <> ?1 OR ?2)");
    if (!values || !keys) {
        return store_->ErrorFromSqlite(sqlite3_errcode(store_->db_));
    }
    {
        StatementReset reset{values};
        sqlite3_bind_int64(values, 1, id);
        if (const int step = sqlite3_step(values); step != SQLITE_DONE) {
            return store_->ErrorFromSqlite(step);
        }
    }
    {
        StatementReset reset{keys};
        sqlite3_bind_int64(keys, 1, id);
        // HKEY_CURRENT_USER itself (id 0) is never a row; a named sub-key goes too.
        sqlite3_bind_int(keys, 2, subKey.empty() ? 0 : 1);
        if (const int step = sqlite3_step(keys); step != SQLITE_DONE) {
            return store_->ErrorFromSqlite(step);
        }
    }
    return store_->ErrorFromSqlite(transaction.Commit());
}

long RegKey::DeleteKey(std::string_view subKey) {
    if (!store_) {
        return ERROR_INVALID_HANDLE;
    }
    if (subKey.empty()) {
        return ERROR_INVALID_PARAMETER;
    }
    {
        RegKey child;
        if (const long error = Open(store_, JoinKeyPath(path_, subKey), child)) {
            return error;
        }
        std::string name;
        if (child.EnumKey(0, name) == ERROR_SUCCESS) {
            return ERROR_ACCESS_DENIED;
        }
    }
    return DeleteTree(subKey);
}

std::vector<std::uint8_t> EncodeDword(std::uint32_t value) {
    return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8),
            static_cast<std::uint8_t>(value >> 16), static_cast<std::uint8_t>(value >> 24)};
}

std::vector<std::uint8_t> EncodeQword(std::uint64_t value) {
    std::vector<std::uint8_t> bytes(8);
    for (int i = 0; i < 8; ++i) {
        bytes[i] = static_cast<std::uint8_t>(value >> (8 * i));
    }
    return bytes;
}

std::vector<std::uint8_t> EncodeString(std::string_view utf8) {
    const std::u16string wide = text::Utf8ToUtf16(utf8);
    std::vector<std::uint8_t> bytes;
    bytes.reserve((wide.size() + 1) * 2);
    for (char16_t c : wide) {
        bytes.push_back(static_cast<std::uint8_t>(c));
        bytes.push_back(static_cast<std::uint8_t>(c >> 8));
    }
    bytes.push_back(0);
    bytes.push_back(0);
    return bytes;
}

std::string DecodeString(std::span<const std::uint8_t> data) {
    std::u16string wide;
    for (std::size_t i = 0; i + 1 < data.size(); i += 2) {
        const char16_t c = static_cast<char16_t>(data[i] | (data[i + 1] << 8));
        if (c == 0) {
            break;
        }
        wide += c;
    }
    return text::Utf16ToUtf8(wide);
}

std::string JoinKeyPath(std::string_view parent, std::string_view child) {
    std::string path(parent);
    if (!path.empty() && !child.empty() && path.back() != '\\') {
        path += '\\';
    }
    path += child;
    return path;
}

}  // namespace orvanta::platform
