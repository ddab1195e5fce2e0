// What a large manifest costs. This program counts every byte it allocates.
#include <malloc.h>

#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

#include "manifest/json.h"
#include "manifest/manifest.h"

namespace {

size_t live_bytes = 0;
size_t peak_bytes = 0;

}  // namespace

void* operator new(size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  live_bytes += _msize(block);
  if (live_bytes > peak_bytes) peak_bytes = live_bytes;
  return block;
}

void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  live_bytes -= _msize(block);
  std::free(block);
}

void operator delete(void* block, size_t /*bytes*/) noexcept { operator delete(block); }

namespace kvx {
namespace {

constexpr size_t most_bytes_per_manifest_byte = 10;

// Text of `count` entries; `path_of` names the file, `size` is the same for all.
template <typename PathOf>
std::string manifest_of(size_t count, PathOf path_of, const char* size) {
  std::string files;
  for (size_t i = 0; i < count; ++i) {
    char digest[65];
    std::snprintf(digest, sizeof(digest), "%064llx", uint64_t{i} * 0x9E3779B97F4A7C15U);
    files.append(i == 0 ? "" : ",")
        .append(R"({"path":")")
        .append(path_of(i))
        .append(R"(","size":)")
        .append(size)
        .append(R"(,"sha256":")")
        .append(digest)
        .append("\"}");
  }
  return R"({"format":1,"product":"KVX","channel":"a","version":"1","exe":")" + path_of(0) +
         R"(","serial":0,"files":[)" + files + "]}";
}

void expect_modest_memory(const std::string& text, size_t count) {
  JsonDocument document;
  Manifest manifest;
  std::string error;
  const size_t before = live_bytes;
  peak_bytes = live_bytes;
  ASSERT_TRUE(parse_json(text, document, error)) << error;
  ASSERT_TRUE(read_manifest(document.root(), L"KVXLauncher.exe", manifest, error)) << error;
  const size_t used = peak_bytes - before;
  EXPECT_EQ(manifest.files.size(), count);
  std::printf("%llu bytes of manifest, %llu bytes at the peak: %.2f times\n", uint64_t{text.size()}, uint64_t{used},
              static_cast<double>(used) / static_cast<double>(text.size()));
  EXPECT_LE(used, text.size() * most_bytes_per_manifest_byte);
}

// The second is the worst for containers that double.
constexpr size_t counts[] = {100000, 131073};

TEST(ManifestMemory, StaysModestForRealisticFiles) {
  const auto path_of = [](size_t i) {
    return "content/region_" + std::to_string(i % 97) + "/models/asset_" + std::to_string(i) + ".pak";
  };
  for (const size_t count : counts) expect_modest_memory(manifest_of(count, path_of, "734003200"), count);
}

TEST(ManifestMemory, StaysModestForTheShortestEntries) {
  const auto path_of = [](size_t i) {
    constexpr std::string_view digits = "0123456789bdefghijkmoqrstvwxyz_-";  // spells no reserved name
    std::string path;
    for (size_t rest = i + 1; rest > 0; rest /= digits.size()) path += digits[rest % digits.size()];
    return path;
  };
  for (const size_t count : counts) expect_modest_memory(manifest_of(count, path_of, "0"), count);
}

}  // namespace
}  // namespace kvx
