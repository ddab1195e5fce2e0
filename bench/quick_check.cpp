// What a start without news costs, as ratios, which depend on the machine far less than times do:
//   the check of 10,000 unchanged files against as many bare attribute queries (1 is the least possible), and
//   reading a manifest of 500,000 files against one of 50,000 (10 means that the cost grows with the size alone).
#include <windows.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "engine/hash_cache.h"
#include "engine/installed_check.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/text.h"
#include "manifest/json.h"
#include "manifest/manifest.h"

namespace {

constexpr size_t rounds = 5;
constexpr size_t installed_files = 10000;
constexpr size_t files_in_a_folder = 100;
constexpr size_t small_manifest_files = 50000;
constexpr size_t large_manifest_files = 500000;

class SilentUi : public kvx::Ui {
 public:
  void show_status(const std::wstring& /*unused*/, const std::wstring& /*unused*/) override {}
  uint32_t message_box(const std::wstring& /*unused*/, uint32_t /*unused*/) override { return IDCANCEL; }
  void allow_cancel(bool /*unused*/) override {}
};

double now_seconds() {
  LARGE_INTEGER ticks;
  LARGE_INTEGER ticks_per_second;
  QueryPerformanceCounter(&ticks);
  QueryPerformanceFrequency(&ticks_per_second);
  return static_cast<double>(ticks.QuadPart) / static_cast<double>(ticks_per_second.QuadPart);
}

// The best of several rounds, which other work on the machine disturbs least.
template <typename Function>
double best_seconds(Function function) {
  double best = 1e9;
  for (size_t round = 0; round < rounds; ++round) {
    const double start = now_seconds();
    function();
    best = std::min(best, now_seconds() - start);
  }
  return best;
}

int fail(const char* text) {
  std::fprintf(stderr, "quick_check: %s\n", text);
  return 1;
}

std::wstring bench_folder() {
  wchar_t base[MAX_PATH + 1] = {};
  GetTempPathW(MAX_PATH, base);
  return std::wstring(base) + L"kvx-bench-" + std::to_wstring(GetCurrentProcessId());
}

std::wstring folder_of(const std::wstring& root, size_t index) {
  return root + L"\\data" + std::to_wstring(index / files_in_a_folder);
}

kvx::ManifestFile file_entry(size_t index) {
  kvx::ManifestFile file;
  file.path = kvx::to_utf8(folder_of(L"", index).substr(1) + L"/file" + std::to_wstring(index) + L".pak");
  return file;
}

// Makes the files, which are empty, and lets the cache know them.
bool make_installation(const std::wstring& root, kvx::Manifest& manifest, kvx::HashCache& cache) {
  for (size_t i = 0; i < installed_files; ++i) {
    const kvx::ManifestFile file = file_entry(i);
    const std::wstring path = root + L'\\' + file.native_path();
    kvx::FileStamp stamp;
    if (!kvx::create_folders(folder_of(root, i)) || !kvx::write_file_atomic(path, "") ||
        !kvx::file_stamp(path, stamp)) {
      return false;
    }
    cache.put(kvx::to_utf8(file.native_path()), stamp.size, stamp.last_write_time, std::string(file.sha256));
    manifest.files.push_back(file);
  }
  return true;
}

void remove_installation(const std::wstring& root) {
  uint32_t error = 0;
  for (size_t i = 0; i < installed_files; ++i) {
    static_cast<void>(kvx::delete_file_once(root + L'\\' + file_entry(i).native_path(), error));
  }
  for (size_t i = 0; i < installed_files; i += files_in_a_folder) RemoveDirectoryW(folder_of(root, i).c_str());
  RemoveDirectoryW(root.c_str());
}

int compare_check_with_attribute_queries(const std::wstring& root) {
  kvx::Manifest manifest;
  kvx::HashCache cache;
  if (!make_installation(root, manifest, cache)) return fail("cannot make the files");
  std::vector<std::wstring> paths;
  paths.reserve(manifest.files.size());
  for (const kvx::ManifestFile& file : manifest.files) {
    paths.push_back(kvx::long_path(root + L'\\' + file.native_path()));
  }
  size_t found = 0;
  const double queries = best_seconds([&] {
    for (const std::wstring& path : paths) {
      WIN32_FILE_ATTRIBUTE_DATA data;
      if (GetFileAttributesExW(path.c_str(), GetFileExInfoStandard, &data) != 0) ++found;
    }
  });
  if (found != rounds * installed_files) return fail("files are missing");

  SilentUi ui;
  const std::atomic<bool> stop_workers{false};
  const kvx::StopSignal stop(ui.cancel_requested, stop_workers);
  bool up_to_date = true;
  const double check = best_seconds([&] {
    std::vector<uint64_t> to_replace;
    up_to_date = kvx::check_installed_files({ui, stop, cache, root, false}, manifest, to_replace) &&
                 to_replace.empty() && up_to_date;
  });
  if (!up_to_date) return fail("the files do not count as up to date");
  std::printf("check of %u unchanged files / as many attribute queries: %.2f\n", static_cast<unsigned>(installed_files),
              check / queries);
  return 0;
}

std::string manifest_of(size_t files) {
  const std::string digest(64, 'a');
  std::string json =
      R"({"format":1,"product":"KVX","channel":"live","version":"1.0","exe":"data0/file0.pak","serial":1,"files":[)";
  for (size_t i = 0; i < files; ++i) {
    json += i == 0 ? "" : ",";
    json += R"({"path":"data)" + std::to_string(i / files_in_a_folder) + "/file" + std::to_string(i) +
            R"(.pak","size":1,"sha256":")" + digest + "\"}";
  }
  return json + "]}";
}

double seconds_to_read(const std::string& document, bool& valid) {
  return best_seconds([&] {
    kvx::JsonDocument json;
    kvx::Manifest manifest;
    std::string error;
    valid = kvx::parse_json(document, json, error) &&
            kvx::read_manifest(json.root(), L"KVXLauncher.exe", manifest, error) && valid;
  });
}

int compare_manifest_sizes() {
  bool valid = true;
  const double small = seconds_to_read(manifest_of(small_manifest_files), valid);
  const double large = seconds_to_read(manifest_of(large_manifest_files), valid);
  if (!valid) return fail("a manifest is not valid");
  std::printf("reading a manifest of %u files / one of %u: %.2f\n", static_cast<unsigned>(large_manifest_files),
              static_cast<unsigned>(small_manifest_files), large / small);
  return 0;
}

}  // namespace

int main() {
  const std::wstring root = bench_folder();
  const int code = compare_check_with_attribute_queries(root);
  remove_installation(root);
  return code != 0 ? code : compare_manifest_sizes();
}
