// What a large manifest costs. This program counts every byte it allocates: the values of the document, the strings
// that had to be decoded, and the manifest's record. The text itself, which they refer to, is not counted.
#include <malloc.h>

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <gtest/gtest.h>
#include <new>

#include "manifest/json.h"
#include "manifest/manifest.h"

namespace {

size_t live_bytes = 0;
size_t peak_bytes = 0;

#ifdef _WIN32
size_t bytes_of(void* block) { return _msize(block); }
#else
size_t bytes_of(void* block) { return malloc_usable_size(block); }
#endif

}  // namespace

void* operator new(size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  live_bytes += bytes_of(block);
  peak_bytes = std::max(peak_bytes, live_bytes);
  return block;
}

void operator delete(void* block) noexcept {
  if (block == nullptr) return;
  live_bytes -= bytes_of(block);
  std::free(block);
}

void operator delete(void* block, size_t /*bytes*/) noexcept { operator delete(block); }

namespace kvx {
namespace {

// Text of `count` entries; `path_of` names the file, `size` is the same for all.
template <typename PathOf>
std::string manifest_of(size_t count, PathOf path_of, const char* size) {
  std::string files;
  for (size_t i = 0; i < count; ++i) {
    char digest[65];
    std::snprintf(digest, sizeof(digest), "%064" PRIx64, uint64_t{i} * 0x9E3779B97F4A7C15U);
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

// The peak since the last call, in multiples of the text's size.
double peak_since(size_t before, const std::string& text) {
  const size_t used = peak_bytes - before;
  std::printf("%" PRIu64 " bytes of text, %" PRIu64 " bytes at the peak: %.2f times\n", uint64_t{text.size()},
              uint64_t{used}, static_cast<double>(used) / static_cast<double>(text.size()));
  return static_cast<double>(used) / static_cast<double>(text.size());
}

double cost_of_manifest(const std::string& text, size_t count) {
  const size_t before = peak_bytes = live_bytes;
  JsonDocument document;
  Manifest manifest;
  std::string error;
  EXPECT_TRUE(parse_json(text, document, error)) << error;
  EXPECT_TRUE(read_manifest(document.root(), L"KVXLauncher.exe", manifest, error)) << error;
  EXPECT_EQ(manifest.files.size(), count);
  return peak_since(before, text);
}

// The second is the worst for containers that double.
constexpr size_t counts[] = {100000, 131073};

TEST(ManifestMemory, TakesTwiceTheTextForRealisticFiles) {
  const auto path_of = [](size_t i) {
    return "content/region_" + std::to_string(i % 97) + "/models/asset_" + std::to_string(i) + ".pak";
  };
  for (const size_t count : counts) EXPECT_LE(cost_of_manifest(manifest_of(count, path_of, "734003200"), count), 2);
}

TEST(ManifestMemory, StaysModestForTheShortestEntries) {
  const auto path_of = [](size_t i) {
    constexpr std::string_view digits = "0123456789bdefghijkmoqrstvwxyz_-";  // spells no reserved name
    std::string path;
    for (size_t rest = i + 1; rest > 0; rest /= digits.size()) path += digits[rest % digits.size()];
    return path;
  };
  for (const size_t count : counts) EXPECT_LE(cost_of_manifest(manifest_of(count, path_of, "0"), count), 2.5);
}

// Whatever is refused costs no more than this either.
constexpr double most_for_any_text = 12;

// About `bytes` of `unit(0)`, `unit(1)` and so on, with commas, between the brackets.
template <typename Unit>
std::string filled(size_t bytes, char open, Unit unit, char close) {
  std::string text(1, open);
  for (size_t i = 0; text.size() < bytes; ++i) text.append(i == 0 ? "" : ",").append(unit(i));
  return text + close;
}

// The shortest text for a number, of bytes that a string takes as they are.
std::string shortest_key(size_t number) {
  constexpr size_t first = 0x80;
  std::string key;
  for (size_t rest = number; rest > 0; rest /= 0x100 - first) key += static_cast<char>(first + rest % (0x100 - first));
  return key;
}

TEST(ManifestMemory, IsBoundedForTheWorstTexts) {
  constexpr size_t bytes = size_t{8} << 20;
  const auto always = [](const char* unit) { return [unit](size_t /*i*/) { return unit; }; };
  const auto member = [](size_t i) { return "\"" + shortest_key(i) + "\":0"; };
  for (const std::string& text : {filled(bytes, '[', always("0"), ']'), filled(bytes + 2048, '[', always("0"), ']'),
                                  filled(bytes, '[', always("[]"), ']'), filled(bytes, '[', always(R"("\n")"), ']'),
                                  filled(bytes, '{', member, '}'), filled(bytes / 2, '{', member, '}')}) {
    const size_t before = peak_bytes = live_bytes;
    JsonDocument document;
    std::string error;
    EXPECT_TRUE(parse_json(text, document, error)) << error;
    EXPECT_LE(peak_since(before, text), most_for_any_text) << text.substr(0, 20);
  }
}

TEST(ManifestMemory, IsBoundedForFilesThatAreRefused) {
  constexpr size_t bytes = size_t{8} << 20;
  for (const char* entry : {"0", "{}", R"({"a":0,"b":0,"c":0})"}) {
    const std::string files = filled(
        bytes, '[', [entry](size_t /*i*/) { return entry; }, ']');
    const std::string text =
        R"({"format":1,"product":"KVX","channel":"a","version":"1","exe":"a","serial":0,"files":)" + files + "}";
    const size_t before = peak_bytes = live_bytes;
    JsonDocument document;
    Manifest manifest;
    std::string error;
    EXPECT_TRUE(parse_json(text, document, error)) << error;
    EXPECT_FALSE(read_manifest(document.root(), L"KVXLauncher.exe", manifest, error));
    EXPECT_LE(peak_since(before, text), most_for_any_text) << entry;
  }
}

}  // namespace
}  // namespace kvx
