// CMap lookups against std::unordered_map with the same keys, in one run.
//
// - IntLookup/<map>/<buckets>: 1000 int keys, every key looked up once per iteration.
// - IStringLookup/<map>/<buckets>: 1000 names ("Name0" ... "Name999"), looked up in another case,
//   so both maps compare without regard to case; the standard map uses CIString's own hash and
//   CompareNoCase, so only the tables differ.
// CMap runs with the framework's default 17 buckets (long chains: what the library's maps use) and
// with 1031 buckets (about one entry per bucket, as std::unordered_map keeps). At the end a table
// gives each CMap figure as a ratio to std::unordered_map (throughput: above 1 is better).

#include <benchmark/benchmark.h>

#include <cstdio>
#include <string>
#include <unordered_map>
#include <vector>

#include "bench/ratio_reporter.h"
#include "n7utility/Utility/IStringAndDwordMapper.h"
#include "n7utility/platform/framework/Map.h"

namespace {

constexpr int kKeys = 1000;

std::vector<int> IntKeys() {
  std::vector<int> keys;
  keys.reserve(kKeys);
  for (int i = 0; i < kKeys; ++i) keys.push_back(i * 7919);
  return keys;
}

std::vector<CIString> Names(bool upper) {
  std::vector<CIString> names;
  names.reserve(kKeys);
  for (int i = 0; i < kKeys; ++i)
    names.emplace_back((upper ? L"NAME" : L"Name") + std::to_wstring(i));
  return names;
}

struct CaseBlindHash {
  std::size_t operator()(const CIString& name) const {
    return static_cast<std::size_t>(name.Hash());
  }
};
struct CaseBlindEqual {
  bool operator()(const CIString& a, const CIString& b) const { return a.CompareNoCase(b) == 0; }
};

template <typename Map, typename Key>
void LookUpAll(benchmark::State& state, const Map& map, const std::vector<Key>& keys) {
  for (auto _ : state) {
    DWORD sum = 0;
    for (const Key& key : keys) {
      DWORD value = 0;
      map.Lookup(key, value);
      sum += value;
    }
    benchmark::DoNotOptimize(sum);
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(keys.size()));
}

// std::unordered_map with CMap's Lookup, so one loop measures both.
template <typename Key, typename... Traits>
class StdMap {
 public:
  void SetAt(const Key& key, DWORD value) { map_[key] = value; }
  BOOL Lookup(const Key& key, DWORD& value) const {
    const auto found = map_.find(key);
    if (found == map_.end()) return FALSE;
    value = found->second;
    return TRUE;
  }

 private:
  std::unordered_map<Key, DWORD, Traits...> map_;
};

template <typename Map, typename Key>
void Fill(Map& map, const std::vector<Key>& keys) {
  DWORD value = 0;
  for (const Key& key : keys) map.SetAt(key, ++value);
}

void BM_IntLookup_CMap(benchmark::State& state) {
  CMap<int, int, DWORD, DWORD> map;
  map.InitHashTable(static_cast<UINT>(state.range(0)));
  const std::vector<int> keys = IntKeys();
  Fill(map, keys);
  LookUpAll(state, map, keys);
}
BENCHMARK(BM_IntLookup_CMap)->Arg(17)->Arg(1031);

void BM_IntLookup_StdMap(benchmark::State& state) {
  StdMap<int> map;
  const std::vector<int> keys = IntKeys();
  Fill(map, keys);
  LookUpAll(state, map, keys);
}
BENCHMARK(BM_IntLookup_StdMap);

void BM_IStringLookup_CMap(benchmark::State& state) {
  CMap<CIString, const CIString&, DWORD, DWORD> map;
  map.InitHashTable(static_cast<UINT>(state.range(0)));
  Fill(map, Names(false));
  LookUpAll(state, map, Names(true));
}
BENCHMARK(BM_IStringLookup_CMap)->Arg(17)->Arg(1031);

void BM_IStringLookup_StdMap(benchmark::State& state) {
  StdMap<CIString, CaseBlindHash, CaseBlindEqual> map;
  Fill(map, Names(false));
  LookUpAll(state, map, Names(true));
}
BENCHMARK(BM_IStringLookup_StdMap);

// Prints each CMap figure as a ratio to std::unordered_map's with the same keys.
void PrintRatios(const n7bench::RatioTable& table) {
  std::printf("\nRatios (lookups per second: CMap / std::unordered_map; above 1 is better)\n");
  for (const char* kind : {"BM_IntLookup", "BM_IStringLookup"}) {
    const double peer = table.Rate(std::string(kind) + "_StdMap");
    for (const char* buckets : {"/17", "/1031"}) {
      const std::string ours = std::string(kind) + "_CMap" + buckets;
      if (peer > 0 && table.rates.count(ours) != 0) {
        std::printf("%-32s %6.2f\n", ours.c_str(), table.Rate(ours) / peer);
      }
    }
  }
}

}  // namespace

int main(int argc, char** argv) { return n7bench::RunWithRatios(argc, argv, PrintRatios); }
