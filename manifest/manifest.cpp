#include "manifest/manifest.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "foundations/text.h"
#include "foundations/version_number.h"
#include "manifest/manifest_fields.h"
#include "manifest/path_set.h"

namespace kvx {
namespace {

constexpr int64_t supported_format = 1;
constexpr char product_name[] = "KVX";
constexpr size_t longest_channel_bytes = 32;
constexpr size_t longest_argument_bytes = 1024;
constexpr uint64_t largest_launcher_bytes = 268435456;

bool fail(const char* text, std::string& error) {
  error = text;
  return false;
}

// The message is `before`, the path in quotes, and `after`.
bool refuse(const char* before, std::string_view path, const char* after, std::string& error) {
  error = before;
  error.append(1, '"').append(path).append(1, '"').append(after);
  return false;
}

// How many entries come before the first with fewer than three members. Such an entry is refused, so no room is
// reserved from there on: a hostile text holds 33 million.
size_t count_possible_files(const JsonElements& entries) {
  constexpr size_t fewest_members = 3;
  size_t count = 0;
  for (const JsonValue& entry : entries) {
    if (entry.members().size() < fewest_members) break;
    ++count;
  }
  return count;
}

// Reads one document into one manifest; each function is one group of its members.
class ManifestReader {
 public:
  ManifestReader(const JsonValue& root, std::wstring_view own_name, Manifest& out, std::string& error)
      : root_(root), own_name_(own_name), out_(out), error_(error) {}

  bool read() {
    return read_format() && read_plain_fields() && check_identity() &&
           read_launcher_entry(root_, out_.launcher, error_) && read_args() && read_files() && read_removals() &&
           check_exe();
  }

 private:
  bool read_format() {
    if (!root_.is_object()) return fail("manifest is not a JSON object", error_);
    const JsonValue* member = root_.find_member("format");
    const std::optional<int64_t> format = member == nullptr ? std::nullopt : member->integer();
    if (!format) return fail("missing \"format\"", error_);
    out_.format = *format;
    if (out_.format == supported_format) return true;
    error_ = "manifest format " + std::to_string(out_.format) + " is not supported by this launcher";
    return false;
  }

  bool read_plain_fields() {
    uint64_t serial = 0;
    if (!read_string_field(root_, "product", Presence::required, out_.product, error_) ||
        !read_string_field(root_, "channel", Presence::required, out_.channel, error_) ||
        !read_string_field(root_, "version", Presence::required, out_.version, error_) ||
        !read_string_field(root_, "exe", Presence::required, out_.exe, error_) ||
        !read_string_field(root_, "notes", Presence::optional, out_.notes, error_) ||
        !read_string_field(root_, "published", Presence::optional, out_.published, error_) ||
        !read_unsigned_field(root_, "min_free_disk", Presence::optional, out_.min_free_disk, error_) ||
        !read_unsigned_field(root_, "total_size", Presence::optional, out_.total_size, error_) ||
        !read_unsigned_field(root_, "serial", Presence::required, serial, error_)) {
      return false;
    }
    out_.serial = static_cast<int64_t>(serial);
    return true;
  }

  bool check_identity() {
    if (out_.product != product_name) return fail("manifest is for a different product", error_);
    if (!is_channel_name(out_.channel)) return fail("invalid channel name", error_);
    if (!is_version(out_.version)) return fail("invalid version", error_);
    return true;
  }

  bool read_args() {
    const JsonValue* args = find_present(root_, "args");
    if (args == nullptr) return true;
    if (!args->is_array()) return fail("\"args\" must be an array", error_);
    for (const JsonValue& element : args->elements()) {
      const std::optional<std::string_view> text = element.string();
      if (!text || text->size() > longest_argument_bytes) return fail("\"args\" entries must be strings", error_);
      out_.args.emplace_back(*text);
    }
    return true;
  }

  bool read_files() {
    const JsonValue* files = root_.find_member("files");
    if (files == nullptr || files->elements().empty()) return fail("missing \"files\"", error_);
    const size_t count = count_possible_files(files->elements());
    out_.files.reserve(count);
    listed_.reserve(count);
    uint64_t sum = 0;
    for (const JsonValue& element : files->elements()) {
      if (!read_file_entry(element)) return false;
      sum += out_.files.back().size;
    }
    if (out_.total_size == 0) out_.total_size = sum;
    return true;
  }

  bool read_file_entry(const JsonValue& element) {
    if (!element.is_object()) return fail("\"files\" entries must be objects", error_);
    std::string_view path;
    uint64_t size = 0;
    std::string_view sha256;
    if (!read_string_field(element, "path", Presence::required, path, error_) ||
        !read_unsigned_field(element, "size", Presence::required, size, error_) ||
        !read_string_field(element, "sha256", Presence::required, sha256, error_)) {
      return false;
    }
    if (!is_managed(path, "rejected path ")) return false;
    if (!is_sha256_hex(sha256)) return refuse("invalid sha256 for ", path, "", error_);
    out_.files.push_back({std::string(path), size, Sha256Text(sha256)});
    return listed_.add_last() || refuse("duplicate path ", path, "", error_);
  }

  bool read_removals() {
    const JsonValue* removals = find_present(root_, "remove");
    if (removals == nullptr) return true;
    if (!removals->is_array()) return fail("\"remove\" must be an array", error_);
    for (const JsonValue& element : removals->elements()) {
      if (!read_removal(element)) return false;
    }
    return true;
  }

  bool read_removal(const JsonValue& element) {
    const std::optional<std::string_view> path = element.string();
    if (!path) return fail("\"remove\" entries must be strings", error_);
    if (!is_managed(*path, "rejected remove path ")) return false;
    if (listed_.contains(*path)) return refuse("path ", *path, " is listed in both files and remove", error_);
    out_.remove.push_back({std::string(*path)});
    return true;
  }

  bool is_managed(std::string_view path, const char* refusal) {
    std::string reason;
    if (is_managed_path(path, own_name_, reason)) return true;
    return refuse(refusal, path, (": " + reason).c_str(), error_);
  }

  bool check_exe() {
    std::string reason;
    if (!is_managed_path(out_.exe, own_name_, reason)) return fail(("rejected exe path: " + reason).c_str(), error_);
    if (listed_.contains(out_.exe)) return true;
    return fail("the start program is not part of the manifest", error_);
  }

  const JsonValue& root_;
  std::wstring_view own_name_;
  Manifest& out_;
  std::string& error_;
  PathSet listed_{out_.files};
};

bool is_valid_launcher_entry(const LauncherEntry& entry) {
  return is_version(entry.version) && is_sha256_hex(entry.sha256) && entry.size >= 1 &&
         entry.size <= largest_launcher_bytes;
}

}  // namespace

bool is_channel_name(std::string_view name) {
  return !name.empty() && name.size() <= longest_channel_bytes && std::all_of(name.begin(), name.end(), [](char c) {
    return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '_';
  });
}

bool read_manifest(const JsonValue& root, std::wstring_view own_name, Manifest& out, std::string& error) {
  out = Manifest();
  return ManifestReader(root, own_name, out, error).read();
}

bool read_launcher_entry(const JsonValue& root, LauncherEntry& out, std::string& error) {
  out = LauncherEntry();
  const JsonValue* launcher = find_present(root, "launcher");
  if (launcher == nullptr) return true;
  if (!launcher->is_object()) return fail("\"launcher\" must be an object", error);
  if (!read_string_field(*launcher, "version", Presence::required, out.version, error) ||
      !read_string_field(*launcher, "sha256", Presence::required, out.sha256, error) ||
      !read_unsigned_field(*launcher, "size", Presence::required, out.size, error)) {
    return false;
  }
  if (!is_valid_launcher_entry(out)) return fail("invalid \"launcher\" entry", error);
  out.present = true;
  return true;
}

}  // namespace kvx
