#include "manifest/sha256.h"

#include "foundations/text.h"

namespace kvx {

std::string Sha256Hasher::finish_text() {
  Sha256Digest digest{};
  return finish(digest) ? to_hex(digest.data(), digest.size()) : std::string();
}

}  // namespace kvx
