// A download test: a server with blobs, and the engine's folders to bring them to.
#pragma once

#include <string>

#include "engine/blob_download.h"
#include "net/transfer_threads.h"
#include "tests/engine/engine_test.h"
#include "tests/support/release_builder.h"
#include "tests/support/scripted_server.h"

namespace kvx::test {

class DownloadTest : public EngineTest {
 protected:
  DownloadTest() {
    std::string error;
    EXPECT_TRUE(session_.open(L"KVXLauncher/1.0.0", error)) << error;
  }

  [[nodiscard]] static BlobJob job(const std::string& content) { return {sha256_hex(content), content.size()}; }

  [[nodiscard]] std::string line(const std::string& before, const std::string& content,
                                 const std::string& after) const {
    return before + sha256_hex(content) + after;
  }

  // The error, or empty.
  std::string download(const std::string& content) {
    std::string error;
    const bool finished = download_blob(context_, session_, job(content), buffer_, error);
    EXPECT_EQ(finished, error.empty()) << error;
    return error;
  }

  ScriptedServer server_;
  const std::wstring base_url_ = server_.base_url();
  HttpSession session_;
  const BlobDownloadContext context_{ui_, stop_, base_url_, store_};
  ReceiveBuffer buffer_;
  TransferThreads threads_{session_, stop_};
};

}  // namespace kvx::test
