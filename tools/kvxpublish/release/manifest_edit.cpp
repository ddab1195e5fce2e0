#include "tools/kvxpublish/release/manifest_edit.h"

#include <nlohmann/json.hpp>

namespace kvx::publish {
namespace {

using OrderedJson = nlohmann::ordered_json;

// No order of members, so that two documents can be compared.
nlohmann::json content_of_document(std::string_view manifest) {
  nlohmann::json document = nlohmann::json::parse(manifest);
  document.erase("serial");
  return document;
}

}  // namespace

std::string with_identity(std::string_view manifest, const ReleaseIdentity& identity) {
  OrderedJson document = OrderedJson::parse(manifest);
  document["channel"] = identity.channel;
  document["serial"] = identity.serial;
  document.erase("remove");
  if (!identity.remove.empty()) document["remove"] = identity.remove;
  return document.dump(1, ' ', false, OrderedJson::error_handler_t::replace) + '\n';
}

bool same_but_for_serial(std::string_view a, std::string_view b) {
  return content_of_document(a) == content_of_document(b);
}

}  // namespace kvx::publish
