// The registry's persistent side: one SQLite database per predefined key, and the change
// notifications that watch it.
//
// A HiveStore holds the process's one connection to a database and its prepared statements,
// behind a mutex. It knows keys by id: the Win32 layer (Registry.cpp) resolves a handle to the
// KeyRef it was opened on, so a call on an open key runs one prepared statement and never walks
// the key's path again. Names reach the store as UTF-8 text, each with its upper-cased form, which
// is what lookups, uniqueness and the order of subkeys use.
//
// Every write is one IMMEDIATE transaction that also appends to a change log in the same
// database. After it commits, the store reads the one byte of a companion file (inotify reports
// the access to every process watching that file) and wakes this process's notifier, which reads
// the log from the last entry it saw and signals the registrations that a logged change concerns.
// Announcing after the commit, rather than watching the database files, means a watcher that
// wakes always finds the change committed. A read costs less than touching the file's times,
// which dirties its inode; a touch (IN_ATTRIB) is still taken as an announcement.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "n7utility/platform/base/ServiceMutex.h"
#include "n7utility/platform/base/ThreadAnnotations.h"
#include "n7utility/platform/base/WindowsTypes.h"
#include "n7utility/platform/system/RegistryFile_internal.h"

namespace n7platform::internal {

enum class Hive { kClassesRoot, kCurrentUser, kLocalMachine, kUsers };
inline constexpr int kHiveCount = 4;
// The largest value the store holds, in bytes.
inline constexpr std::size_t kMaxDataSize = 16u << 20;

// A name of a key path or a value name: as given, and upper-cased (both UTF-8).
struct RegName {
  std::string name;
  std::string folded;
};

// Where an open key is. `path` is the upper-cased path from the hive's root, each name preceded
// by a backslash ("" for the root). Keys are never renamed, and a deleted key's id is never used
// again, so a KeyRef stays right for as long as its key exists.
struct KeyRef {
  std::int64_t id = 0;
  std::string path;
  bool is_volatile = false;
};

inline constexpr std::int64_t kRootKeyId = 1;

// Kinds of change in the log: the REG_NOTIFY_CHANGE_* bits, and two that concern the keys below.
inline constexpr DWORD kChangeKeyDeleted = 0x80000000u;       // the key and all below it
inline constexpr DWORD kChangeSubtreeReplaced = 0x40000000u;  // the keys below, not the key

struct Change {
  std::int64_t seq = 0;
  std::string path;
  DWORD kinds = 0;
};

struct SubkeyEntry {
  std::string name;
  std::string class_name;
  std::uint64_t last_write = 0;
};

struct ValueEntry {
  std::string name;
  DWORD type = 0;
  std::vector<BYTE> data;
};

struct KeyInfo {
  std::string class_name;
  DWORD sub_keys = 0;
  DWORD max_sub_key_length = 0;  // characters
  DWORD max_class_length = 0;
  DWORD values = 0;
  DWORD max_value_name_length = 0;
  DWORD max_value_length = 0;  // bytes
  DWORD security_size = 0;
  std::uint64_t last_write = 0;
};

// How every connection to a store is set up: write-ahead log, synced at checkpoints only.
inline constexpr const char* kStorePragmas = "PRAGMA journal_mode=WAL; PRAGMA synchronous=NORMAL;";

struct StoreSettings {
  std::string directory;
  std::string boot_id;  // volatile keys made under another boot id are dropped on opening
};

// The file of `hive` in the store directory.
std::string HiveFileName(Hive hive);
// The companion file of a store file, which writers read after each commit; watchers watch it.
std::string AnnounceFileName(const std::string& store_path);

// The self-relative descriptor of a key that was never given one: revision 1, no parts.
std::vector<BYTE> EmptySecurityDescriptor();

class HiveStore {
 public:
  // Opens (creating it when missing) the database of `hive` in `settings.directory`; drops the
  // volatile keys of earlier boots.
  static DWORD Open(const StoreSettings& settings, Hive hive, std::shared_ptr<HiveStore>* store);
  ~HiveStore();
  HiveStore(const HiveStore&) = delete;
  HiveStore& operator=(const HiveStore&) = delete;

  const std::string& directory() const { return directory_; }
  std::string announce_path() const { return AnnounceFileName(directory_ + "/" + file_name_); }

  // Creates the keys of `path` below `parent` that do not exist yet.
  DWORD CreateKey(const KeyRef& parent, std::span<const RegName> path,
                  const std::string& class_name, bool is_volatile,
                  const std::vector<BYTE>& security, KeyRef* key, DWORD* disposition)
      EXCLUDES(section_);
  DWORD OpenKey(const KeyRef& parent, std::span<const RegName> path, KeyRef* key)
      EXCLUDES(section_);
  // Deletes the key at `path` below `parent` (`parent` itself for an empty path).
  DWORD DeleteKey(const KeyRef& parent, std::span<const RegName> path) EXCLUDES(section_);

  DWORD SetValue(const KeyRef& key, const RegName& name, DWORD type, std::span<const BYTE> data)
      EXCLUDES(section_);
  DWORD DeleteValue(const KeyRef& key, const std::string& folded) EXCLUDES(section_);
  // RegQueryValueExW's buffer rules: `data` may be null to learn the size into `*size`.
  DWORD QueryValue(const KeyRef& key, const std::string& folded, DWORD* type, BYTE* data,
                   DWORD* size) EXCLUDES(section_);

  DWORD EnumKey(const KeyRef& key, DWORD index, SubkeyEntry* entry) EXCLUDES(section_);
  DWORD EnumValue(const KeyRef& key, DWORD index, ValueEntry* entry) EXCLUDES(section_);
  DWORD QueryInfo(const KeyRef& key, KeyInfo* info) EXCLUDES(section_);

  DWORD GetSecurity(const KeyRef& key, std::vector<BYTE>* descriptor) EXCLUDES(section_);
  DWORD SetSecurity(const KeyRef& key, std::span<const BYTE> descriptor) EXCLUDES(section_);

  // Reads the key's subtree, volatile keys left out.
  DWORD Save(const KeyRef& key, SavedKey* tree) EXCLUDES(section_);
  // Replaces the key's values and subkeys with `tree`'s; ERROR_REGISTRY_CORRUPT when `tree`
  // holds a name a key or value cannot have, or two of the same name.
  DWORD Restore(const KeyRef& key, const SavedKey& tree) EXCLUDES(section_);
  // Makes the committed changes durable.
  DWORD Flush() EXCLUDES(section_);

  // The last entry of the change log (0 when empty), and the entries after `seq`, oldest first.
  DWORD LastChange(std::int64_t* seq) EXCLUDES(section_);
  DWORD ChangesAfter(std::int64_t seq, std::vector<Change>* changes) EXCLUDES(section_);

 private:
  class Statement;
  class Transaction;
  enum Sql : int;

  HiveStore(sqlite3* db, const StoreSettings& settings, std::string file_name, int announce_fd);

  sqlite3_stmt* Prepared(Sql sql) REQUIRES(section_);
  DWORD Run(Sql sql) REQUIRES(section_);
  // The child of `parent` named `folded`: its id, or 0 (with ERROR_FILE_NOT_FOUND).
  DWORD FindChild(std::int64_t parent, const std::string& folded, KeyRef* child) REQUIRES(section_);
  DWORD Walk(const KeyRef& from, std::span<const RegName> path, KeyRef* key, std::size_t* found)
      REQUIRES(section_);
  DWORD InsertKey(const KeyRef& parent, const RegName& name, const std::string& class_name,
                  bool is_volatile, const std::vector<BYTE>& security, std::uint64_t last_write,
                  KeyRef* key) REQUIRES(section_);
  // Sets the key's last-write time to now; ERROR_KEY_DELETED when the key is gone.
  DWORD Touch(const KeyRef& key) REQUIRES(section_);
  DWORD LogChange(const std::string& path, DWORD kinds) REQUIRES(section_);
  DWORD KeyExists(const KeyRef& key, DWORD error_if_present) REQUIRES(section_);
  DWORD SaveKey(std::int64_t id, SavedKey* tree, int depth) REQUIRES(section_);
  DWORD RestoreKey(const KeyRef& key, const SavedKey& tree, int depth) REQUIRES(section_);
  DWORD UpsertValue(const KeyRef& key, const RegName& name, DWORD type, std::span<const BYTE> data)
      REQUIRES(section_);
  // After a write committed: tells the processes watching the store.
  void Announce();

  ServiceMutex section_;  // serialises the use of the connection
  sqlite3* const db_ PT_GUARDED_BY(section_);
  std::vector<sqlite3_stmt*> statements_ GUARDED_BY(section_);
  const std::string directory_;
  const std::string boot_id_;
  const std::string file_name_;
  const int announce_fd_;
};

// Points the registry at another store: closes every open key handle and store, and uses
// `settings` from then on, or the environment again when `settings` is empty. For tests.
void UseRegistryStore(const StoreSettings* settings);

}  // namespace n7platform::internal
