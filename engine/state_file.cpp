#include "engine/state_file.h"

#include "foundations/files.h"

namespace kvx {
namespace {

constexpr uint64_t largest_file_bytes = 1048576;

}  // namespace

std::string state_key::accepted_serial(const std::string& channel_name) { return "serial." + channel_name; }

void StateFile::load(const std::wstring& path) {
  path_ = path;
  std::string bytes;
  static_cast<void>(read_file(path, largest_file_bytes, bytes));  // on failure there are no bytes
  read_state_lines(bytes, values_);
}

std::optional<std::string> StateFile::get(const std::string& key) const {
  const auto found = values_.find(key);
  if (found == values_.end()) return std::nullopt;
  return found->second;
}

std::string StateFile::get_or_empty(const std::string& key) const { return get(key).value_or(std::string()); }

void StateFile::set(const std::string& key, const std::string& value) { values_[key] = value; }

bool StateFile::save(uint32_t& error, const StopSignal* stop) const {
  return write_file_atomic(path_, state_lines(values_), error, stop);
}

bool StateFile::save() const {
  uint32_t error = 0;
  return save(error);
}

}  // namespace kvx
