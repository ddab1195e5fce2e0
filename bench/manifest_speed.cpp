// What reading the largest manifest costs, to RapidJSON's DOM of the same text, built with the same flags in this same
// program: 64 MiB that name 470,028 files. The rounds are interleaved and the median ratio counts, so that other work
// on the machine disturbs all alike. Each line is NAME <tab> RATIO <tab> GOAL.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <rapidjson/document.h>
#include <string>
#include <vector>

#include "bench/stopwatch.h"
#include "manifest/json.h"
#include "manifest/manifest.h"
#include "manifest/manifest_limits.h"

namespace {

bool is_counting = false;  // what is allocated; not while time is taken
size_t live_bytes = 0;
size_t peak_bytes = 0;

}  // namespace

void* operator new(size_t size) {
  void* block = std::malloc(size);
  if (block == nullptr) throw std::bad_alloc();
  if (is_counting) {
    live_bytes += _msize(block);
    peak_bytes = std::max(peak_bytes, live_bytes);
  }
  return block;
}

void operator delete(void* block) noexcept {
  if (is_counting && block != nullptr) live_bytes -= _msize(block);
  std::free(block);
}

void operator delete(void* block, size_t /*bytes*/) noexcept { operator delete(block); }

namespace {

constexpr size_t rounds = 9;
constexpr size_t file_count = 470028;
constexpr size_t files_in_a_folder = 120;

template <typename Work>
double seconds_of(Work work) {
  const double start = kvx::bench::now_seconds();
  work();
  return kvx::bench::now_seconds() - start;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

[[noreturn]] void fail(const std::string& text) {
  std::fprintf(stderr, "manifest_speed: %s\n", text.c_str());
  std::exit(1);
}

// Digits that look random and are the same in every run.
std::string digest_of(uint64_t seed) {
  std::string digits;
  for (int word = 0; word < 4; ++word) {
    seed += 0x9E3779B97F4A7C15U;
    uint64_t bits = seed;
    bits = (bits ^ (bits >> 30)) * 0xBF58476D1CE4E5B9U;
    bits = (bits ^ (bits >> 27)) * 0x94D049BB133111EBU;
    char text[17];
    std::snprintf(text, sizeof(text), "%016llx", bits ^ (bits >> 31));
    digits += text;
  }
  return digits;
}

std::string path_of(size_t index) {
  constexpr const char* kinds[] = {"character_models", "textures", "sounds", "shaders", "scripts"};
  return "data/region" + std::to_string(index / files_in_a_folder) + "/" + kinds[index % std::size(kinds)] + "/" +
         std::to_string(index) + ".pak";
}

// As large as a launcher takes it: the notes fill what the files leave.
std::string largest_manifest() {
  std::string files;
  files.reserve(kvx::largest_manifest_bytes);
  for (size_t i = 0; i < file_count; ++i) {
    files += i == 0 ? "" : ",";
    files += R"({"path":")" + path_of(i) + R"(","size":)" + std::to_string(i * 7919 % 50000000) + R"(,"sha256":")" +
             digest_of(i) + "\"}";
  }
  const std::string head = R"({"format":1,"product":"KVX","channel":"live","version":"1.2.3","exe":")" + path_of(0) +
                           R"(","serial":12,"files":[)";
  std::string text = head + files + R"(],"notes":")";
  if (text.size() + 2 > kvx::largest_manifest_bytes) fail("the files do not leave room for the notes");
  text.append(kvx::largest_manifest_bytes - text.size() - 2, 'n');
  return text + "\"}";
}

// The text of that size whose values are the most.
std::string worst_text() {
  std::string text = "[0";
  while (text.size() + 3 <= kvx::largest_manifest_bytes) text += ",0";
  return text + "]";
}

void parse(const std::string& text, kvx::JsonDocument& document) {
  std::string error;
  if (!kvx::parse_json(text, document, error)) fail(error);
}

void validate(const kvx::JsonDocument& document) {
  kvx::Manifest manifest;
  std::string error;
  if (!kvx::read_manifest(document.root(), L"KVXLauncher.exe", manifest, error)) fail(error);
  if (manifest.files.size() != file_count) fail("files are missing");
}

void parse_with_rapidjson(const std::string& text) {
  rapidjson::Document document;
  document.Parse(text.c_str());
  if (document.HasParseError() || document["files"].Size() != file_count) fail("RapidJSON refuses the text");
}

void print_row(const char* name, double ratio, const char* goal) { std::printf("%s\t%.2f\t%s\n", name, ratio, goal); }

void compare_times(const std::string& text) {
  kvx::JsonDocument document;
  parse(text, document);
  std::vector<double> parsing;
  std::vector<double> validating;
  for (size_t round = 0; round < rounds; ++round) {
    const double theirs = seconds_of([&] { parse_with_rapidjson(text); });
    const double ours = seconds_of([&] {
      kvx::JsonDocument fresh;
      parse(text, fresh);
    });
    parsing.push_back(ours / theirs);
    validating.push_back(seconds_of([&] { validate(document); }) / theirs);
    std::fprintf(stderr, "RapidJSON %.3f s, parse %.2f, validate %.2f\n", theirs, parsing.back(), validating.back());
  }
  print_row("parse a manifest of 64 MiB, to RapidJSON's DOM", median(parsing), "1.0");
  print_row("validate it, to the same", median(validating), "2");
}

// What is allocated at the peak besides the text, to the size of the text.
double heap_ratio(const std::string& text, bool is_manifest) {
  live_bytes = peak_bytes = 0;
  is_counting = true;
  {
    kvx::JsonDocument document;
    parse(text, document);
    if (is_manifest) validate(document);
  }
  is_counting = false;
  return static_cast<double>(peak_bytes) / static_cast<double>(text.size());
}

}  // namespace

int main() {
  const std::string manifest = largest_manifest();
  compare_times(manifest);
  print_row("heap for it, to its bytes", heap_ratio(manifest, true), "2");
  print_row("heap for the worst text of 64 MiB, to its bytes", heap_ratio(worst_text(), false), "12");
  return 0;
}
