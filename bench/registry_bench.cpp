// Registry reads and writes on a warm store, against the same reads and writes made directly
// with SQLite prepared statements on a table of the same shape: the bound of what a registry
// call over SQLite can cost.
//
// - Query: RegQueryValueExW of a 4-byte value out of 1000 under one open key, against one
//   indexed SELECT by (key, upper-cased name).
// - Set: RegSetValueExW of a 4-byte value (one committed transaction each), against BEGIN
//   IMMEDIATE, an upsert of the value's row as the store writes it (data and write time) and
//   COMMIT, on a connection set up like the store's. Every write stores a value not stored
//   before: SQLite skips rewriting a page whose row comes out the same, so writing the same
//   values over again would leave the bound nothing to write.
// At the end a table gives each of ours as a ratio to its bound.

#include <benchmark/benchmark.h>
#include <sqlite3.h>
#include <stdlib.h>

#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "bench/ratio_reporter.h"
#include "n7utility/platform/system/Registry.h"
#include "n7utility/platform/system/RegistryStore_internal.h"

namespace {

constexpr int kValues = 1000;

// A temporary store for the whole run, with one key holding kValues values.
class Store {
 public:
  Store() {
    std::string pattern =
        (std::filesystem::temp_directory_path() / "n7registry-bench.XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) directory_ = pattern;
    const n7platform::internal::StoreSettings settings{directory_, "bench"};
    n7platform::internal::UseRegistryStore(&settings);
    RegCreateKeyExW(HKEY_LOCAL_MACHINE, L"Software\\Bench", 0, nullptr, 0, KEY_ALL_ACCESS, nullptr,
                    &key_, nullptr);
    for (int i = 0; i < kValues; ++i) {
      names_.push_back(L"Value" + std::to_wstring(i));
      names_utf8_.push_back("Value" + std::to_string(i));
      folded_.push_back("VALUE" + std::to_string(i));
      const DWORD data = static_cast<DWORD>(i);
      RegSetValueExW(key_, names_.back().c_str(), 0, REG_DWORD,
                     reinterpret_cast<const BYTE*>(&data), sizeof data);
    }
    OpenBound();
  }
  ~Store() {
    for (sqlite3_stmt* statement : {select_, upsert_, begin_, commit_}) sqlite3_finalize(statement);
    sqlite3_close(bound_);
    RegCloseKey(key_);
    n7platform::internal::UseRegistryStore(nullptr);
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
  }
  Store(const Store&) = delete;
  Store& operator=(const Store&) = delete;

  HKEY key() const { return key_; }
  const std::wstring& name(int i) const { return names_[static_cast<std::size_t>(i)]; }

  // The bound: the same lookup straight on SQLite.
  bool BoundRead(int i, DWORD* type, BYTE* data, DWORD* size) {
    const std::string& folded = folded_[static_cast<std::size_t>(i)];
    sqlite3_bind_int64(select_, 1, 1);
    sqlite3_bind_text(select_, 2, folded.data(), static_cast<int>(folded.size()), SQLITE_STATIC);
    const bool found = sqlite3_step(select_) == SQLITE_ROW;
    if (found) {
      *type = static_cast<DWORD>(sqlite3_column_int64(select_, 0));
      const auto length = static_cast<DWORD>(sqlite3_column_bytes(select_, 1));
      if (length <= *size)
        std::copy_n(static_cast<const BYTE*>(sqlite3_column_blob(select_, 1)), length, data);
      *size = length;
    }
    sqlite3_reset(select_);
    return found;
  }

  bool BoundWrite(int i, DWORD value) {
    const std::string& name = names_utf8_[static_cast<std::size_t>(i)];
    const std::string& folded = folded_[static_cast<std::size_t>(i)];
    bool ok = Step(begin_);
    sqlite3_bind_int64(upsert_, 1, 1);
    sqlite3_bind_text(upsert_, 2, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
    sqlite3_bind_text(upsert_, 3, folded.data(), static_cast<int>(folded.size()), SQLITE_STATIC);
    sqlite3_bind_int64(upsert_, 4, REG_DWORD);
    sqlite3_bind_blob(upsert_, 5, &value, sizeof value, SQLITE_STATIC);
    sqlite3_bind_int64(upsert_, 6, value);  // the row's write time in the store
    ok = Step(upsert_) && ok;
    return Step(commit_) && ok;
  }

  // A value no write has stored yet.
  DWORD NextData() { return next_data_++; }

 private:
  static bool Step(sqlite3_stmt* statement) {
    const bool done = sqlite3_step(statement) == SQLITE_DONE;
    sqlite3_reset(statement);
    return done;
  }

  void OpenBound() {
    const std::string file = directory_ + "/bound.db";
    sqlite3_open_v2(file.c_str(), &bound_,
                    SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE | SQLITE_OPEN_NOMUTEX, nullptr);
    sqlite3_exec(bound_, n7platform::internal::kStorePragmas, nullptr, nullptr, nullptr);
    sqlite3_exec(bound_,
                 "CREATE TABLE vals(key INTEGER NOT NULL, name TEXT NOT NULL,"
                 " folded TEXT NOT NULL, type INTEGER NOT NULL, data BLOB NOT NULL,"
                 " written INTEGER NOT NULL DEFAULT 0);"
                 "CREATE UNIQUE INDEX vals_by_name ON vals(key, folded);",
                 nullptr, nullptr, nullptr);
    const auto prepare = [this](const char* sql, sqlite3_stmt** statement) {
      sqlite3_prepare_v3(bound_, sql, -1, SQLITE_PREPARE_PERSISTENT, statement, nullptr);
    };
    prepare("SELECT type, data FROM vals WHERE key = ?1 AND folded = ?2", &select_);
    prepare(
        "INSERT INTO vals(key, name, folded, type, data, written) VALUES(?1, ?2, ?3, ?4, ?5, ?6) "
        "ON CONFLICT(key, folded) DO UPDATE SET "
        "type = excluded.type, data = excluded.data, written = excluded.written",
        &upsert_);
    prepare("BEGIN IMMEDIATE", &begin_);
    prepare("COMMIT", &commit_);
    for (int i = 0; i < kValues; ++i) BoundWrite(i, static_cast<DWORD>(i));
  }

  std::string directory_;
  HKEY key_ = nullptr;
  std::vector<std::wstring> names_;
  std::vector<std::string> names_utf8_;
  std::vector<std::string> folded_;
  DWORD next_data_ = kValues;  // past the values the set-up stores
  sqlite3* bound_ = nullptr;
  sqlite3_stmt* select_ = nullptr;
  sqlite3_stmt* upsert_ = nullptr;
  sqlite3_stmt* begin_ = nullptr;
  sqlite3_stmt* commit_ = nullptr;
};

Store& TheStore() {
  static Store store;
  return store;
}

void BM_RegQueryValue(benchmark::State& state) {
  Store& store = TheStore();
  int i = 0;
  for (auto _ : state) {
    DWORD type = 0, data = 0, size = sizeof data;
    const LSTATUS status = RegQueryValueExW(store.key(), store.name(i).c_str(), nullptr, &type,
                                            reinterpret_cast<BYTE*>(&data), &size);
    if (status != ERROR_SUCCESS) state.SkipWithError("query failed");
    benchmark::DoNotOptimize(data);
    i = (i + 1) % kValues;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RegQueryValue);

void BM_SqliteQuery(benchmark::State& state) {
  Store& store = TheStore();
  int i = 0;
  for (auto _ : state) {
    DWORD type = 0, data = 0, size = sizeof data;
    if (!store.BoundRead(i, &type, reinterpret_cast<BYTE*>(&data), &size))
      state.SkipWithError("select failed");
    benchmark::DoNotOptimize(data);
    i = (i + 1) % kValues;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SqliteQuery);

void BM_RegSetValue(benchmark::State& state) {
  Store& store = TheStore();
  int i = 0;
  for (auto _ : state) {
    const DWORD data = store.NextData();
    if (RegSetValueExW(store.key(), store.name(i).c_str(), 0, REG_DWORD,
                       reinterpret_cast<const BYTE*>(&data), sizeof data) != ERROR_SUCCESS)
      state.SkipWithError("set failed");
    i = (i + 1) % kValues;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RegSetValue);

void BM_SqliteSet(benchmark::State& state) {
  Store& store = TheStore();
  int i = 0;
  for (auto _ : state) {
    if (!store.BoundWrite(i, store.NextData())) state.SkipWithError("upsert failed");
    i = (i + 1) % kValues;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_SqliteSet);

void PrintRatio(const n7bench::RatioTable& table, const std::string& ours,
                const std::string& bound) {
  if (table.Rate(bound) <= 0) return;
  std::printf("  %-18s %.2f\n", ours.c_str(), table.Rate(ours) / table.Rate(bound));
}

// Prints each registry figure as a fraction of its bound's.
void PrintRatios(const n7bench::RatioTable& table) {
  std::printf("\nRatios (operations per second: registry / SQLite bound; 1 is the bound)\n");
  PrintRatio(table, "BM_RegQueryValue", "BM_SqliteQuery");
  PrintRatio(table, "BM_RegSetValue", "BM_SqliteSet");
}

}  // namespace

int main(int argc, char** argv) { return n7bench::RunWithRatios(argc, argv, PrintRatios); }
