#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>

#include "n7utility/platform/base/TextCodec.h"
#include "n7utility/platform/kernel/Time.h"
#include "n7utility/platform/system/Registry.h"
#include "n7utility/platform/system/RegistryNotify_internal.h"
#include "n7utility/platform/system/RegistryStore_internal.h"
#include "n7utility/platform/system/RegistryText_internal.h"

namespace n7platform::internal {
namespace {

// How long a call waits for another process's write before it fails with ERROR_BUSY.
constexpr int kBusyTimeoutMs = 10000;
// The change log keeps at least this many entries; it is cut back every kLogPruneInterval writes.
// A notifier that falls further behind than that signals every registration on the store.
constexpr std::int64_t kLogKept = 1024;
constexpr std::int64_t kLogPruneInterval = 256;
constexpr const char* kFormat = "1";

// Key ids are never reused (AUTOINCREMENT), so a handle to a deleted key never reaches a new
// one. The change log needs no AUTOINCREMENT (which would write one more page per commit): its
// newest entry is never pruned, so each new entry is numbered one past the last.
//
// A key's last-write time is the later of its row's last_write, set by the writes that change
// the key itself, and the `written` time of its values: setting a value then writes the value's
// row alone rather than the key's row as well, one page less per commit.
constexpr std::string_view kSchema = R"sql(
CREATE TABLE meta(name TEXT PRIMARY KEY, value TEXT NOT NULL) WITHOUT ROWID;
CREATE TABLE keys(
  id INTEGER PRIMARY KEY AUTOINCREMENT,
  parent INTEGER NOT NULL,
  name TEXT NOT NULL,
  folded TEXT NOT NULL,
  class TEXT NOT NULL,
  boot TEXT,
  last_write INTEGER NOT NULL,
  security BLOB);
CREATE UNIQUE INDEX keys_by_name ON keys(parent, folded);
CREATE TABLE vals(
  key INTEGER NOT NULL,
  name TEXT NOT NULL,
  folded TEXT NOT NULL,
  type INTEGER NOT NULL,
  data BLOB NOT NULL,
  written INTEGER NOT NULL DEFAULT 0);
CREATE UNIQUE INDEX vals_by_name ON vals(key, folded);
CREATE TABLE changes(seq INTEGER PRIMARY KEY, path TEXT NOT NULL, kinds INTEGER NOT NULL);
INSERT INTO keys(id, parent, name, folded, class, last_write) VALUES(1, 0, '', '', '', 0);
INSERT INTO meta VALUES('format', '1');
)sql";

// The Win32 code for an SQLite result.
DWORD ErrorOf(int result) {
  switch (result & 0xFF) {
    case SQLITE_OK:
    case SQLITE_ROW:
    case SQLITE_DONE:
      return ERROR_SUCCESS;
    case SQLITE_BUSY:
    case SQLITE_LOCKED:
      return ERROR_BUSY;
    case SQLITE_NOMEM:
      return ERROR_OUTOFMEMORY;
    case SQLITE_READONLY:
    case SQLITE_PERM:
    case SQLITE_AUTH:
      return ERROR_ACCESS_DENIED;
    case SQLITE_CORRUPT:
    case SQLITE_NOTADB:
    case SQLITE_FORMAT:
    case SQLITE_SCHEMA:
    case SQLITE_CONSTRAINT:
    case SQLITE_MISMATCH:
      return ERROR_REGISTRY_CORRUPT;
    case SQLITE_TOOBIG:
      return ERROR_INVALID_PARAMETER;
    default:
      return ERROR_REGISTRY_IO_FAILED;
  }
}

std::uint64_t Now() {
  FILETIME now;
  GetSystemTimeAsFileTime(&now);
  return std::uint64_t{now.dwHighDateTime} << 32 | now.dwLowDateTime;
}

DWORD ToDword(std::int64_t value) {
  return static_cast<DWORD>(std::clamp<std::int64_t>(value, 0, 0xFFFFFFFF));
}

// Creates a missing directory (and its missing parents) with mode 0700.
bool MakeDirectories(const std::string& path) {
  if (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST) return true;
  if (errno != ENOENT) return false;
  const std::size_t slash = path.find_last_of('/');
  if (slash == std::string::npos || slash == 0) return false;
  return MakeDirectories(path.substr(0, slash)) &&
         (mkdir(path.c_str(), 0700) == 0 || errno == EEXIST);
}

// Creates `path` with mode 0600 if it is missing (SQLite gives its journal files the mode of the
// database file). Returns the open descriptor, or -1.
int CreatePrivateFile(const std::string& path) {
  return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
}

// Opens (creating it when missing) the companion file that writers read to announce a commit; a
// read reports an access only when it reads a byte, so the file holds one.
int OpenAnnounceFile(const std::string& path) {
  const int fd = CreatePrivateFile(path);
  struct stat status;
  if (fd >= 0 && fstat(fd, &status) == 0 && status.st_size == 0 && pwrite(fd, "", 1, 0) != 1) {
    close(fd);
    return -1;
  }
  return fd;
}

}  // namespace

std::string AnnounceFileName(const std::string& store_path) { return store_path + "-changed"; }

std::string HiveFileName(Hive hive) {
  static constexpr std::array<const char*, kHiveCount> kNames = {
      "HKEY_CLASSES_ROOT", "HKEY_CURRENT_USER", "HKEY_LOCAL_MACHINE", "HKEY_USERS"};
  return std::string(kNames[static_cast<std::size_t>(hive)]) + ".db";
}

std::vector<BYTE> EmptySecurityDescriptor() {
  std::vector<BYTE> descriptor(20, 0);
  descriptor[0] = 1;     // revision
  descriptor[3] = 0x80;  // SE_SELF_RELATIVE
  return descriptor;
}

// ---------------------------------------------------------------------------------------------
// Statements

enum HiveStore::Sql : int {
  kBeginRead,
  kBeginWrite,
  kCommit,
  kRollback,
  kFindChild,
  kInsertKey,
  kTouchKey,
  kKeyRow,
  kHasChildren,
  kDeleteValuesOf,
  kDeleteKeyRow,
  kDeleteSubtreeValues,
  kDeleteSubtreeKeys,
  kUpsertValue,
  kInsertValue,
  kFindValue,
  kDeleteValue,
  kNthChild,
  kNthValue,
  kChildStats,
  kValueStats,
  kSetSecurity,
  kChildren,
  kValuesOf,
  kLogChange,
  kPruneLog,
  kLastChange,
  kChangesAfter,
  kSqlCount
};

// A prepared statement in use: bound, stepped, then reset when it goes out of scope. Bound text
// and blobs are not copied: they must outlive the Statement.
class HiveStore::Statement {
 public:
  Statement(HiveStore& store, Sql sql) REQUIRES(store.section_)
      : db_(store.db_), statement_(store.Prepared(sql)) {}
  ~Statement() {
    if (statement_ == nullptr) return;
    sqlite3_reset(statement_);
    sqlite3_clear_bindings(statement_);
  }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;

  Statement& Bind(std::int64_t value) {
    if (statement_ != nullptr) sqlite3_bind_int64(statement_, next_++, value);
    return *this;
  }
  Statement& Bind(const std::string& text) {
    if (statement_ != nullptr)
      sqlite3_bind_text(statement_, next_++, text.data(), static_cast<int>(text.size()),
                        SQLITE_STATIC);
    return *this;
  }
  Statement& Bind(std::string&&) = delete;
  // An empty blob is bound as a zero-length blob, not as NULL.
  Statement& Bind(std::span<const BYTE> data) {
    static constexpr BYTE kNothing = 0;
    if (statement_ != nullptr)
      sqlite3_bind_blob(statement_, next_++, data.empty() ? &kNothing : data.data(),
                        static_cast<int>(data.size()), SQLITE_STATIC);
    return *this;
  }
  Statement& BindNull() {
    if (statement_ != nullptr) sqlite3_bind_null(statement_, next_++);
    return *this;
  }

  // SQLITE_ROW, SQLITE_DONE, or an error code.
  int Step() {
    if (statement_ != nullptr) return sqlite3_step(statement_);
    const int error = sqlite3_errcode(db_);  // why the statement could not be prepared
    return error != SQLITE_OK ? error : SQLITE_ERROR;
  }
  // Steps a statement that returns no row: the Win32 code of the outcome.
  DWORD Execute() {
    const int result = Step();
    return result == SQLITE_DONE ? ERROR_SUCCESS : ErrorOf(result);
  }
  // Steps a statement expected to return a row: ERROR_SUCCESS with the row, `missing` without.
  DWORD Row(DWORD missing) {
    const int result = Step();
    if (result == SQLITE_ROW) return ERROR_SUCCESS;
    return result == SQLITE_DONE ? missing : ErrorOf(result);
  }

  std::int64_t Int(int column) { return sqlite3_column_int64(statement_, column); }
  std::string Text(int column) {
    const auto* text = sqlite3_column_text(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    return text == nullptr
               ? std::string()
               : std::string(reinterpret_cast<const char*>(text), static_cast<std::size_t>(size));
  }
  std::span<const BYTE> Blob(int column) {
    const void* data = sqlite3_column_blob(statement_, column);
    const int size = sqlite3_column_bytes(statement_, column);
    if (data == nullptr) return {};
    return {static_cast<const BYTE*>(data), static_cast<std::size_t>(size)};
  }
  bool IsNull(int column) { return sqlite3_column_type(statement_, column) == SQLITE_NULL; }

 private:
  sqlite3* db_;
  sqlite3_stmt* statement_;
  int next_ = 1;
};

// A transaction for the lifetime of the object: rolled back on destruction unless committed.
// Only constructed with the store's section held.
class HiveStore::Transaction {
 public:
  Transaction(HiveStore& store, Sql begin) REQUIRES(store.section_)
      : store_(store), error_(store.Run(begin)) {}
  ~Transaction() NO_THREAD_SAFETY_ANALYSIS {
    if (error_ == ERROR_SUCCESS && !done_) store_.Run(kRollback);
  }
  Transaction(const Transaction&) = delete;
  Transaction& operator=(const Transaction&) = delete;

  DWORD error() const { return error_; }

  // Commits; a write transaction is then announced to the watchers.
  DWORD Commit(bool announce) NO_THREAD_SAFETY_ANALYSIS {
    const DWORD error = store_.Run(kCommit);
    if (error != ERROR_SUCCESS) return error;
    done_ = true;
    if (announce) store_.Announce();
    return ERROR_SUCCESS;
  }

 private:
  HiveStore& store_;
  const DWORD error_;
  bool done_ = false;
};

// ---------------------------------------------------------------------------------------------
// Opening

namespace {

DWORD ExecuteScript(sqlite3* db, const char* sql) {
  return ErrorOf(sqlite3_exec(db, sql, nullptr, nullptr, nullptr));
}

// The single text a one-row, one-column query returns; empty on failure.
std::string QueryText(sqlite3* db, const char* sql, DWORD* error) {
  sqlite3_stmt* statement = nullptr;
  int result = sqlite3_prepare_v2(db, sql, -1, &statement, nullptr);
  std::string text;
  if (result == SQLITE_OK) {
    result = sqlite3_step(statement);
    if (result == SQLITE_ROW) {
      const auto* column = sqlite3_column_text(statement, 0);
      if (column != nullptr) text = reinterpret_cast<const char*>(column);
      result = SQLITE_OK;
    }
  }
  sqlite3_finalize(statement);
  *error = result == SQLITE_DONE ? ERROR_SUCCESS : ErrorOf(result);
  return text;
}

// Waits for another connection's write: short sleeps growing to 2 ms, so that writers queued
// behind one another follow closely (SQLite's own handler soon sleeps for 100 ms at a time),
// up to kBusyTimeoutMs in all.
int WaitWhileBusy(void* /*context*/, int attempts) {
  constexpr long kStepUs = 100, kLongestUs = 2000, kGrowing = kLongestUs / kStepUs;
  const long n = attempts;
  const long waited_us =
      n <= kGrowing ? kStepUs * n * (n + 1) / 2
                    : kStepUs * kGrowing * (kGrowing + 1) / 2 + (n - kGrowing) * kLongestUs;
  if (waited_us >= long{kBusyTimeoutMs} * 1000) return 0;
  usleep(static_cast<useconds_t>(std::min(kStepUs * (n + 1), kLongestUs)));
  return 1;
}

// Sets the connection up: WAL, the busy timeout, and a damaged file recognised as such.
DWORD Configure(sqlite3* db) {
  sqlite3_busy_handler(db, WaitWhileBusy, nullptr);
  sqlite3_extended_result_codes(db, 1);
  DWORD error = ExecuteScript(db, kStorePragmas);
  if (error == ERROR_SUCCESS && QueryText(db, "PRAGMA journal_mode", &error) != "wal" &&
      error == ERROR_SUCCESS)
    error = ERROR_REGISTRY_IO_FAILED;
  if (error != ERROR_SUCCESS) return error;
  const std::string check = QueryText(db, "PRAGMA quick_check", &error);
  if (error == ERROR_SUCCESS && check != "ok") error = ERROR_REGISTRY_CORRUPT;
  return error;
}

// Checks that a database is one of this store, and gives a store made before values carried
// their write time that column. Code that does not know the column still reads and writes such a
// store correctly (its writes set the key's row), so the format stays the same.
DWORD UpgradeSchema(sqlite3* db) {
  DWORD error = ERROR_SUCCESS;
  const std::string format = QueryText(db, "SELECT value FROM meta WHERE name = 'format'", &error);
  if (error != ERROR_SUCCESS || format != kFormat) return ERROR_REGISTRY_CORRUPT;
  const std::string has_written = QueryText(
      db, "SELECT count(*) FROM pragma_table_info('vals') WHERE name = 'written'", &error);
  if (error != ERROR_SUCCESS || has_written != "0") return error;
  return ExecuteScript(db, "ALTER TABLE vals ADD COLUMN written INTEGER NOT NULL DEFAULT 0");
}

// Creates the tables in an empty database, or checks that a database is one of this store;
// then drops the volatile keys of other boots. One transaction, so that two processes opening a
// new store at once create it once.
DWORD PrepareSchema(sqlite3* db, const std::string& boot_id) {
  DWORD error = ExecuteScript(db, "BEGIN IMMEDIATE");
  if (error != ERROR_SUCCESS) return error;
  const std::string tables = QueryText(db, "SELECT count(*) FROM sqlite_master", &error);
  if (error == ERROR_SUCCESS && tables == "0") {
    error = ExecuteScript(db, std::string(kSchema).c_str());
  } else if (error == ERROR_SUCCESS) {
    error = UpgradeSchema(db);
  }
  if (error == ERROR_SUCCESS) {
    sqlite3_stmt* purge = nullptr;
    const char* kPurge =
        "DELETE FROM vals WHERE key IN (SELECT id FROM keys WHERE boot IS NOT NULL AND boot <> ?1);"
        "DELETE FROM keys WHERE boot IS NOT NULL AND boot <> ?1;";
    for (const char* sql = kPurge; error == ERROR_SUCCESS && *sql != '\0';) {
      int result = sqlite3_prepare_v2(db, sql, -1, &purge, &sql);
      if (result == SQLITE_OK) {
        sqlite3_bind_text(purge, 1, boot_id.data(), static_cast<int>(boot_id.size()),
                          SQLITE_STATIC);
        result = sqlite3_step(purge);
      }
      sqlite3_finalize(purge);
      error = result == SQLITE_DONE ? ERROR_SUCCESS : ErrorOf(result);
    }
  }
  ExecuteScript(db, error == ERROR_SUCCESS ? "COMMIT" : "ROLLBACK");
  return error;
}

}  // namespace

DWORD HiveStore::Open(const StoreSettings& settings, Hive hive, std::shared_ptr<HiveStore>* store) {
  if (!MakeDirectories(settings.directory)) return ERROR_REGISTRY_IO_FAILED;
  const std::string file_name = HiveFileName(hive);
  const std::string path = settings.directory + "/" + file_name;
  const int database_fd = CreatePrivateFile(path);
  if (database_fd < 0) return errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_REGISTRY_IO_FAILED;
  close(database_fd);
  const int announce_fd = OpenAnnounceFile(AnnounceFileName(path));
  if (announce_fd < 0) return errno == EACCES ? ERROR_ACCESS_DENIED : ERROR_REGISTRY_IO_FAILED;

  sqlite3* db = nullptr;
  DWORD error = ErrorOf(sqlite3_open_v2(
      path.c_str(), &db, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | SQLITE_OPEN_EXRESCODE,
      nullptr));
  if (error == ERROR_SUCCESS) error = Configure(db);
  if (error == ERROR_SUCCESS) error = PrepareSchema(db, settings.boot_id);
  if (error != ERROR_SUCCESS) {
    sqlite3_close(db);
    close(announce_fd);
    return error;
  }
  store->reset(new HiveStore(db, settings, file_name, announce_fd));
  return ERROR_SUCCESS;
}

HiveStore::HiveStore(sqlite3* db, const StoreSettings& settings, std::string file_name,
                     int announce_fd)
    : db_(db),
      statements_(kSqlCount, nullptr),
      directory_(settings.directory),
      boot_id_(settings.boot_id),
      file_name_(std::move(file_name)),
      announce_fd_(announce_fd) {}

HiveStore::~HiveStore() NO_THREAD_SAFETY_ANALYSIS {
  for (sqlite3_stmt* statement : statements_) sqlite3_finalize(statement);
  sqlite3_close(db_);
  close(announce_fd_);
}

sqlite3_stmt* HiveStore::Prepared(Sql sql) {
  static constexpr std::array<const char*, kSqlCount> kStatements = {
      "BEGIN",
      "BEGIN IMMEDIATE",
      "COMMIT",
      "ROLLBACK",
      "SELECT id, boot IS NOT NULL FROM keys WHERE parent = ?1 AND folded = ?2",
      "INSERT INTO keys(parent, name, folded, class, boot, last_write, security) "
      "VALUES(?1, ?2, ?3, ?4, ?5, ?6, ?7)",
      "UPDATE keys SET last_write = ?2 WHERE id = ?1",
      "SELECT class, last_write, security, parent FROM keys WHERE id = ?1",
      "SELECT 1 FROM keys WHERE parent = ?1 LIMIT 1",
      "DELETE FROM vals WHERE key = ?1",
      "DELETE FROM keys WHERE id = ?1",
      "WITH RECURSIVE below(id) AS (SELECT id FROM keys WHERE parent = ?1 UNION ALL "
      "SELECT keys.id FROM keys JOIN below ON keys.parent = below.id) "
      "DELETE FROM vals WHERE key = ?1 OR key IN below",
      "WITH RECURSIVE below(id) AS (SELECT id FROM keys WHERE parent = ?1 UNION ALL "
      "SELECT keys.id FROM keys JOIN below ON keys.parent = below.id) "
      "DELETE FROM keys WHERE id IN below",
      "INSERT INTO vals(key, name, folded, type, data, written) "
      "SELECT ?1, ?2, ?3, ?4, ?5, ?6 WHERE EXISTS (SELECT 1 FROM keys WHERE id = ?1) "
      "ON CONFLICT(key, folded) DO UPDATE SET "
      "type = excluded.type, data = excluded.data, written = excluded.written",
      "INSERT INTO vals(key, name, folded, type, data) VALUES(?1, ?2, ?3, ?4, ?5)",
      "SELECT type, data FROM vals WHERE key = ?1 AND folded = ?2",
      "DELETE FROM vals WHERE key = ?1 AND folded = ?2",
      "SELECT name, class, max(last_write, "
      "ifnull((SELECT max(written) FROM vals WHERE vals.key = keys.id), 0)) "
      "FROM keys WHERE parent = ?1 ORDER BY folded LIMIT 1 OFFSET ?2",
      "SELECT name, type, data FROM vals WHERE key = ?1 ORDER BY rowid LIMIT 1 OFFSET ?2",
      "SELECT count(*), max(length(name)), max(length(class)) FROM keys WHERE parent = ?1",
      "SELECT count(*), max(length(name)), max(length(data)), ifnull(max(written), 0) "
      "FROM vals WHERE key = ?1",
      "UPDATE keys SET security = ?2, last_write = ?3 WHERE id = ?1",
      "SELECT id, name, class, last_write, security FROM keys "
      "WHERE parent = ?1 AND boot IS NULL ORDER BY folded",
      "SELECT name, type, data, written FROM vals WHERE key = ?1 ORDER BY rowid",
      "INSERT INTO changes(path, kinds) VALUES(?1, ?2)",
      "DELETE FROM changes WHERE seq <= ?1",
      "SELECT ifnull(max(seq), 0) FROM changes",
      "SELECT seq, path, kinds FROM changes WHERE seq > ?1 ORDER BY seq",
  };
  sqlite3_stmt*& statement = statements_[static_cast<std::size_t>(sql)];
  if (statement == nullptr) {
    sqlite3_prepare_v3(db_, kStatements[static_cast<std::size_t>(sql)], -1,
                       SQLITE_PREPARE_PERSISTENT, &statement, nullptr);
  }
  return statement;
}

DWORD HiveStore::Run(Sql sql) { return Statement(*this, sql).Execute(); }

void HiveStore::Announce() {
  char byte;
  [[maybe_unused]] const ssize_t read_count = pread(announce_fd_, &byte, 1, 0);
  WakeRegistryNotifier();
}

// ---------------------------------------------------------------------------------------------
// Keys

DWORD HiveStore::FindChild(std::int64_t parent, const std::string& folded, KeyRef* child) {
  Statement find(*this, kFindChild);
  find.Bind(parent).Bind(folded);
  const DWORD error = find.Row(ERROR_FILE_NOT_FOUND);
  if (error != ERROR_SUCCESS) return error;
  child->id = find.Int(0);
  child->is_volatile = find.Int(1) != 0;
  return ERROR_SUCCESS;
}

// Follows `path` from `from` as far as it exists: `*found` names, ending at `*key`.
DWORD HiveStore::Walk(const KeyRef& from, std::span<const RegName> path, KeyRef* key,
                      std::size_t* found) {
  *key = from;
  for (*found = 0; *found < path.size(); ++*found) {
    const RegName& name = path[*found];
    KeyRef child;
    const DWORD error = FindChild(key->id, name.folded, &child);
    if (error == ERROR_FILE_NOT_FOUND) return ERROR_SUCCESS;
    if (error != ERROR_SUCCESS) return error;
    child.path = key->path + '\\' + name.folded;
    *key = std::move(child);
  }
  return ERROR_SUCCESS;
}

DWORD HiveStore::InsertKey(const KeyRef& parent, const RegName& name, const std::string& class_name,
                           bool is_volatile, const std::vector<BYTE>& security,
                           std::uint64_t last_write, KeyRef* key) {
  Statement insert(*this, kInsertKey);
  insert.Bind(parent.id).Bind(name.name).Bind(name.folded).Bind(class_name);
  if (is_volatile) {
    insert.Bind(boot_id_);
  } else {
    insert.BindNull();
  }
  insert.Bind(static_cast<std::int64_t>(last_write));
  if (security.empty()) {
    insert.BindNull();
  } else {
    insert.Bind(std::span<const BYTE>(security));
  }
  const DWORD error = insert.Execute();
  if (error != ERROR_SUCCESS) return error;
  key->id = sqlite3_last_insert_rowid(db_);
  key->path = parent.path + '\\' + name.folded;
  key->is_volatile = is_volatile;
  return ERROR_SUCCESS;
}

DWORD HiveStore::Touch(const KeyRef& key) {
  Statement touch(*this, kTouchKey);
  const DWORD error = touch.Bind(key.id).Bind(static_cast<std::int64_t>(Now())).Execute();
  if (error != ERROR_SUCCESS) return error;
  return sqlite3_changes(db_) == 0 ? ERROR_KEY_DELETED : ERROR_SUCCESS;
}

DWORD HiveStore::LogChange(const std::string& path, DWORD kinds) {
  {
    Statement log(*this, kLogChange);
    const DWORD error = log.Bind(path).Bind(std::int64_t{kinds}).Execute();
    if (error != ERROR_SUCCESS) return error;
  }
  const std::int64_t seq = sqlite3_last_insert_rowid(db_);
  if (seq % kLogPruneInterval != 0) return ERROR_SUCCESS;
  return Statement(*this, kPruneLog).Bind(seq - kLogKept).Execute();
}

// `error_if_present` when the key exists, ERROR_KEY_DELETED when it does not.
DWORD HiveStore::KeyExists(const KeyRef& key, DWORD error_if_present) {
  Statement row(*this, kKeyRow);
  const DWORD error = row.Bind(key.id).Row(ERROR_KEY_DELETED);
  return error == ERROR_SUCCESS ? error_if_present : error;
}

DWORD HiveStore::CreateKey(const KeyRef& parent, std::span<const RegName> path,
                           const std::string& class_name, bool is_volatile,
                           const std::vector<BYTE>& security, KeyRef* key, DWORD* disposition) {
  ServiceGuard lock(section_);
  Transaction transaction(*this, kBeginWrite);
  if (DWORD error = transaction.error()) return error;
  std::size_t found = 0;
  if (DWORD error = Walk(parent, path, key, &found)) return error;
  if (found == path.size()) {
    *disposition = REG_OPENED_EXISTING_KEY;
    return transaction.Commit(false);
  }
  if (key->is_volatile && !is_volatile) return ERROR_CHILD_MUST_BE_VOLATILE;
  if (DWORD error = Touch(*key)) return error;
  const std::string changed_parent = key->path;
  const std::uint64_t now = Now();
  for (; found < path.size(); ++found) {
    const KeyRef above = *key;
    if (DWORD error = InsertKey(above, path[found], class_name, is_volatile, security, now, key))
      return error;
  }
  if (DWORD error = LogChange(changed_parent, REG_NOTIFY_CHANGE_NAME)) return error;
  *disposition = REG_CREATED_NEW_KEY;
  return transaction.Commit(true);
}

DWORD HiveStore::OpenKey(const KeyRef& parent, std::span<const RegName> path, KeyRef* key) {
  ServiceGuard lock(section_);
  std::size_t found = 0;
  if (DWORD error = Walk(parent, path, key, &found)) return error;
  return found == path.size() ? ERROR_SUCCESS : ERROR_FILE_NOT_FOUND;
}

DWORD HiveStore::DeleteKey(const KeyRef& parent, std::span<const RegName> path) {
  ServiceGuard lock(section_);
  Transaction transaction(*this, kBeginWrite);
  if (DWORD error = transaction.error()) return error;
  KeyRef key;
  std::size_t found = 0;
  if (DWORD error = Walk(parent, path, &key, &found)) return error;
  if (found != path.size()) return ERROR_FILE_NOT_FOUND;
  if (key.id == kRootKeyId) return ERROR_ACCESS_DENIED;
  KeyRef above;
  {
    Statement row(*this, kKeyRow);
    if (DWORD error = row.Bind(key.id).Row(ERROR_KEY_DELETED)) return error;
    above.id = row.Int(3);
    above.path = key.path.substr(0, key.path.find_last_of('\\'));
  }
  {
    Statement children(*this, kHasChildren);
    const DWORD error = children.Bind(key.id).Row(ERROR_FILE_NOT_FOUND);
    if (error == ERROR_SUCCESS) return ERROR_ACCESS_DENIED;
    if (error != ERROR_FILE_NOT_FOUND) return error;
  }
  if (DWORD error = Statement(*this, kDeleteValuesOf).Bind(key.id).Execute()) return error;
  if (DWORD error = Statement(*this, kDeleteKeyRow).Bind(key.id).Execute()) return error;
  if (DWORD error = Touch(above)) return error;
  if (DWORD error = LogChange(above.path, REG_NOTIFY_CHANGE_NAME)) return error;
  if (DWORD error = LogChange(key.path, kChangeKeyDeleted)) return error;
  return transaction.Commit(true);
}

// ---------------------------------------------------------------------------------------------
// Values

// The value's row carries the time of the write, which is the key's last-write time from then
// on; a key that is gone stores nothing (ERROR_KEY_DELETED).
DWORD HiveStore::UpsertValue(const KeyRef& key, const RegName& name, DWORD type,
                             std::span<const BYTE> data) {
  {
    Statement upsert(*this, kUpsertValue);
    upsert.Bind(key.id).Bind(name.name).Bind(name.folded).Bind(std::int64_t{type}).Bind(data);
    if (DWORD error = upsert.Bind(static_cast<std::int64_t>(Now())).Execute()) return error;
  }
  return sqlite3_changes(db_) == 0 ? ERROR_KEY_DELETED : ERROR_SUCCESS;
}

DWORD HiveStore::SetValue(const KeyRef& key, const RegName& name, DWORD type,
                          std::span<const BYTE> data) {
  ServiceGuard lock(section_);
  Transaction transaction(*this, kBeginWrite);
  if (DWORD error = transaction.error()) return error;
  if (DWORD error = UpsertValue(key, name, type, data)) return error;
  if (DWORD error = LogChange(key.path, REG_NOTIFY_CHANGE_LAST_SET)) return error;
  return transaction.Commit(true);
}

DWORD HiveStore::DeleteValue(const KeyRef& key, const std::string& folded) {
  ServiceGuard lock(section_);
  Transaction transaction(*this, kBeginWrite);
  if (DWORD error = transaction.error()) return error;
  if (DWORD error = Touch(key)) return error;
  if (DWORD error = Statement(*this, kDeleteValue).Bind(key.id).Bind(folded).Execute())
    return error;
  if (sqlite3_changes(db_) == 0) return ERROR_FILE_NOT_FOUND;
  if (DWORD error = LogChange(key.path, REG_NOTIFY_CHANGE_LAST_SET)) return error;
  return transaction.Commit(true);
}

DWORD HiveStore::QueryValue(const KeyRef& key, const std::string& folded, DWORD* type, BYTE* data,
                            DWORD* size) {
  ServiceGuard lock(section_);
  Statement find(*this, kFindValue);
  const DWORD error = find.Bind(key.id).Bind(folded).Row(ERROR_FILE_NOT_FOUND);
  if (error == ERROR_FILE_NOT_FOUND) return KeyExists(key, ERROR_FILE_NOT_FOUND);
  if (error != ERROR_SUCCESS) return error;
  if (type != nullptr) *type = static_cast<DWORD>(find.Int(0));
  const std::span<const BYTE> value = find.Blob(1);
  if (size == nullptr) return ERROR_SUCCESS;
  const DWORD room = *size;
  *size = static_cast<DWORD>(value.size());
  if (data == nullptr) return ERROR_SUCCESS;
  if (value.size() > room) return ERROR_MORE_DATA;
  std::copy(value.begin(), value.end(), data);
  return ERROR_SUCCESS;
}

// ---------------------------------------------------------------------------------------------
// Enumeration and information

DWORD HiveStore::EnumKey(const KeyRef& key, DWORD index, SubkeyEntry* entry) {
  ServiceGuard lock(section_);
  Statement nth(*this, kNthChild);
  const DWORD error = nth.Bind(key.id).Bind(std::int64_t{index}).Row(ERROR_NO_MORE_ITEMS);
  if (error == ERROR_NO_MORE_ITEMS) return KeyExists(key, ERROR_NO_MORE_ITEMS);
  if (error != ERROR_SUCCESS) return error;
  entry->name = nth.Text(0);
  entry->class_name = nth.Text(1);
  entry->last_write = static_cast<std::uint64_t>(nth.Int(2));
  return ERROR_SUCCESS;
}

DWORD HiveStore::EnumValue(const KeyRef& key, DWORD index, ValueEntry* entry) {
  ServiceGuard lock(section_);
  Statement nth(*this, kNthValue);
  const DWORD error = nth.Bind(key.id).Bind(std::int64_t{index}).Row(ERROR_NO_MORE_ITEMS);
  if (error == ERROR_NO_MORE_ITEMS) return KeyExists(key, ERROR_NO_MORE_ITEMS);
  if (error != ERROR_SUCCESS) return error;
  entry->name = nth.Text(0);
  entry->type = static_cast<DWORD>(nth.Int(1));
  const std::span<const BYTE> data = nth.Blob(2);
  entry->data.assign(data.begin(), data.end());
  return ERROR_SUCCESS;
}

DWORD HiveStore::QueryInfo(const KeyRef& key, KeyInfo* info) {
  ServiceGuard lock(section_);
  Transaction transaction(*this, kBeginRead);
  if (DWORD error = transaction.error()) return error;
  {
    Statement row(*this, kKeyRow);
    if (DWORD error = row.Bind(key.id).Row(ERROR_KEY_DELETED)) return error;
    info->class_name = row.Text(0);
    info->last_write = static_cast<std::uint64_t>(row.Int(1));
    info->security_size = row.IsNull(2) ? static_cast<DWORD>(EmptySecurityDescriptor().size())
                                        : static_cast<DWORD>(row.Blob(2).size());
  }
  {
    Statement children(*this, kChildStats);
    if (DWORD error = children.Bind(key.id).Row(ERROR_REGISTRY_CORRUPT)) return error;
    info->sub_keys = ToDword(children.Int(0));
    info->max_sub_key_length = ToDword(children.Int(1));
    info->max_class_length = ToDword(children.Int(2));
  }
  {
    Statement values(*this, kValueStats);
    if (DWORD error = values.Bind(key.id).Row(ERROR_REGISTRY_CORRUPT)) return error;
    info->values = ToDword(values.Int(0));
    info->max_value_name_length = ToDword(values.Int(1));
    info->max_value_length = ToDword(values.Int(2));
    info->last_write = std::max(info->last_write, static_cast<std::uint64_t>(values.Int(3)));
  }
  return transaction.Commit(false);
}

// ---------------------------------------------------------------------------------------------
// Security

DWORD HiveStore::GetSecurity(const KeyRef& key, std::vector<BYTE>* descriptor) {
  ServiceGuard lock(section_);
  Statement row(*this, kKeyRow);
  if (DWORD error = row.Bind(key.id).Row(ERROR_KEY_DELETED)) return error;
  if (row.IsNull(2)) {
    *descriptor = EmptySecurityDescriptor();
  } else {
    const std::span<const BYTE> stored = row.Blob(2);
    descriptor->assign(stored.begin(), stored.end());
  }
  return ERROR_SUCCESS;
}

DWORD HiveStore::SetSecurity(const KeyRef& key, std::span<const BYTE> descriptor) {
  ServiceGuard lock(section_);
  Transaction transaction(*this, kBeginWrite);
  if (DWORD error = transaction.error()) return error;
  {
    Statement update(*this, kSetSecurity);
    update.Bind(key.id).Bind(descriptor).Bind(static_cast<std::int64_t>(Now()));
    if (DWORD error = update.Execute()) return error;
  }
  if (sqlite3_changes(db_) == 0) return ERROR_KEY_DELETED;
  if (DWORD error = LogChange(key.path, REG_NOTIFY_CHANGE_SECURITY)) return error;
  return transaction.Commit(true);
}

// ---------------------------------------------------------------------------------------------
// Save and restore

DWORD HiveStore::SaveKey(std::int64_t id, SavedKey* tree, int depth) {
  if (depth > kMaxSavedDepth) return ERROR_REGISTRY_CORRUPT;
  {
    Statement values(*this, kValuesOf);
    values.Bind(id);
    int result;
    while ((result = values.Step()) == SQLITE_ROW) {
      const std::span<const BYTE> data = values.Blob(2);
      tree->values.push_back(SavedValue{values.Text(0), static_cast<DWORD>(values.Int(1)),
                                        std::vector<BYTE>(data.begin(), data.end())});
      tree->last_write = std::max(tree->last_write, static_cast<std::uint64_t>(values.Int(3)));
    }
    if (result != SQLITE_DONE) return ErrorOf(result);
  }
  // The children are read whole before descending: the statement is reused by the recursion.
  std::vector<std::int64_t> ids;
  {
    Statement children(*this, kChildren);
    children.Bind(id);
    int result;
    while ((result = children.Step()) == SQLITE_ROW) {
      ids.push_back(children.Int(0));
      SavedKey& child = tree->subkeys.emplace_back();
      child.name = children.Text(1);
      child.class_name = children.Text(2);
      child.last_write = static_cast<std::uint64_t>(children.Int(3));
      const std::span<const BYTE> security = children.Blob(4);
      child.security.assign(security.begin(), security.end());
    }
    if (result != SQLITE_DONE) return ErrorOf(result);
  }
  for (std::size_t i = 0; i < ids.size(); ++i) {
    if (DWORD error = SaveKey(ids[i], &tree->subkeys[i], depth + 1)) return error;
  }
  return ERROR_SUCCESS;
}

DWORD HiveStore::Save(const KeyRef& key, SavedKey* tree) {
  ServiceGuard lock(section_);
  Transaction transaction(*this, kBeginRead);
  if (DWORD error = transaction.error()) return error;
  {
    Statement row(*this, kKeyRow);
    if (DWORD error = row.Bind(key.id).Row(ERROR_KEY_DELETED)) return error;
    tree->class_name = row.Text(0);
    tree->last_write = static_cast<std::uint64_t>(row.Int(1));
    const std::span<const BYTE> security = row.Blob(2);
    tree->security.assign(security.begin(), security.end());
  }
  if (DWORD error = SaveKey(key.id, tree, 1)) return error;
  return transaction.Commit(false);
}

namespace {

// Whether a saved text is one the store could have written: valid UTF-8 without U+0000, which
// the store's length and comparison functions would stop at.
bool StorableText(const std::string& text, std::wstring* wide) {
  *wide = Utf8ToWide(text);
  return codec::ToUtf8(*wide) == text && wide->find(L'\0') == std::wstring::npos;
}

// The name as stored, upper-cased; false for text that is not storable, and for a key name that
// is empty, too long or holds a backslash.
bool StoredName(const std::string& name, bool is_key, RegName* out) {
  std::wstring wide;
  if (!StorableText(name, &wide)) return false;
  if (is_key && (wide.empty() || wide.size() > 255 || wide.find(L'\\') != std::wstring::npos))
    return false;
  if (!is_key && wide.size() > 16383) return false;
  out->name = name;
  out->folded = *codec::ToUtf8(FoldCase(wide));
  return true;
}

}  // namespace

DWORD HiveStore::RestoreKey(const KeyRef& key, const SavedKey& tree, int depth) {
  if (depth > kMaxSavedDepth) return ERROR_REGISTRY_CORRUPT;
  for (const SavedValue& value : tree.values) {
    RegName name;
    if (!StoredName(value.name, false, &name) || value.data.size() > kMaxDataSize)
      return ERROR_REGISTRY_CORRUPT;
    Statement insert(*this, kInsertValue);
    insert.Bind(key.id).Bind(name.name).Bind(name.folded).Bind(std::int64_t{value.type});
    if (DWORD error = insert.Bind(std::span<const BYTE>(value.data)).Execute()) return error;
  }
  for (const SavedKey& subtree : tree.subkeys) {
    RegName name;
    std::wstring class_name;
    if (!StoredName(subtree.name, true, &name) || !StorableText(subtree.class_name, &class_name))
      return ERROR_REGISTRY_CORRUPT;
    KeyRef child;
    if (DWORD error = InsertKey(key, name, subtree.class_name, key.is_volatile, subtree.security,
                                subtree.last_write, &child))
      return error;
    if (DWORD error = RestoreKey(child, subtree, depth + 1)) return error;
  }
  return ERROR_SUCCESS;
}

DWORD HiveStore::Restore(const KeyRef& key, const SavedKey& tree) {
  ServiceGuard lock(section_);
  Transaction transaction(*this, kBeginWrite);
  if (DWORD error = transaction.error()) return error;
  if (DWORD error = Touch(key)) return error;
  if (DWORD error = Statement(*this, kDeleteSubtreeValues).Bind(key.id).Execute()) return error;
  if (DWORD error = Statement(*this, kDeleteSubtreeKeys).Bind(key.id).Execute()) return error;
  const int depth = static_cast<int>(std::count(key.path.begin(), key.path.end(), '\\'));
  if (DWORD error = RestoreKey(key, tree, depth + 1)) return error;
  constexpr DWORD kEverything = REG_NOTIFY_CHANGE_NAME | REG_NOTIFY_CHANGE_ATTRIBUTES |
                                REG_NOTIFY_CHANGE_LAST_SET | REG_NOTIFY_CHANGE_SECURITY |
                                kChangeSubtreeReplaced;
  if (DWORD error = LogChange(key.path, kEverything)) return error;
  return transaction.Commit(true);
}

DWORD HiveStore::Flush() {
  // Commits reach the write-ahead log without a sync (synchronous=NORMAL); syncing the log and
  // the database makes every commit so far durable, without waiting for other processes.
  const std::string path = directory_ + "/" + file_name_;
  for (const std::string& file : {path + "-wal", path}) {
    const int fd = open(file.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) continue;
    const bool synced = fdatasync(fd) == 0;
    close(fd);
    if (!synced) return ERROR_REGISTRY_IO_FAILED;
  }
  return ERROR_SUCCESS;
}

// ---------------------------------------------------------------------------------------------
// The change log

DWORD HiveStore::LastChange(std::int64_t* seq) {
  ServiceGuard lock(section_);
  Statement last(*this, kLastChange);
  if (DWORD error = last.Row(ERROR_REGISTRY_CORRUPT)) return error;
  *seq = last.Int(0);
  return ERROR_SUCCESS;
}

DWORD HiveStore::ChangesAfter(std::int64_t seq, std::vector<Change>* changes) {
  ServiceGuard lock(section_);
  Statement after(*this, kChangesAfter);
  after.Bind(seq);
  int result;
  while ((result = after.Step()) == SQLITE_ROW) {
    changes->push_back(Change{after.Int(0), after.Text(1), static_cast<DWORD>(after.Int(2))});
  }
  return result == SQLITE_DONE ? ERROR_SUCCESS : ErrorOf(result);
}

}  // namespace n7platform::internal
