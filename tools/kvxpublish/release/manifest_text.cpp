#include "tools/kvxpublish/release/manifest_text.h"

#include <nlohmann/json.hpp>

namespace kvx::publish {

using OrderedJson = nlohmann::ordered_json;

std::string manifest_text(const ReleaseDescription& release) {
  OrderedJson document;
  document["format"] = 1;
  document["product"] = "KVX";
  document["channel"] = release.channel;
  document["version"] = release.version;
  document["serial"] = release.serial;
  document["exe"] = release.exe;
  if (!release.args.empty()) document["args"] = release.args;
  if (!release.notes.empty()) document["notes"] = release.notes;
  if (release.min_free_disk != 0) document["min_free_disk"] = release.min_free_disk;
  uint64_t total_size = 0;
  for (const GameFile& file : release.files) total_size += file.size;
  document["total_size"] = total_size;
  if (release.launcher) {
    document["launcher"] = OrderedJson{
        {"version", release.launcher->version}, {"size", release.launcher->size}, {"sha256", release.launcher->sha256}};
  }
  OrderedJson files = OrderedJson::array();
  for (const GameFile& file : release.files) {
    files.push_back(OrderedJson{{"path", file.path}, {"size", file.size}, {"sha256", file.sha256}});
  }
  document["files"] = std::move(files);
  if (!release.remove.empty()) document["remove"] = release.remove;
  return document.dump(1, ' ', false, OrderedJson::error_handler_t::replace) + '\n';
}

}  // namespace kvx::publish
