// What the engine's tests share: a game's folder with its staging folders, a scripted user, and a log that is read.
#pragma once

#include <windows.h>

#include <atomic>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "engine/blob_store.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/stop_signal.h"
#include "foundations/text.h"
#include "tests/support/file_lock.h"
#include "tests/support/log_capture.h"
#include "tests/support/scripted_ui.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/temp_folder.h"

namespace kvx::test {

class EngineTest : public testing::Test {
 protected:
  EngineTest() { store_.create_folders(); }

  [[nodiscard]] std::wstring game(const std::wstring& name) const { return install_dir_ + L'\\' + name; }
  [[nodiscard]] std::wstring staging(const std::wstring& name) const { return staging_dir_ + L'\\' + name; }
  [[nodiscard]] std::wstring blob(const std::string& content) const { return store_.blob_path(sha256_hex(content)); }
  [[nodiscard]] std::wstring part(const std::string& content) const { return store_.partial_path(sha256_hex(content)); }

  TempFolder folder_;
  const std::wstring install_dir_ = folder_ / L"game";
  const std::wstring staging_dir_ = folder_ / L"game\\staging";
  BlobStore store_{staging(L"dl"), staging(L"blobs")};
  LogCapture log_;
  ScriptedUi ui_;
  std::atomic<bool> stop_workers_{false};
  const StopSignal stop_{ui_.cancel_requested, stop_workers_};
};

// An engine test that is told twice: with a stop by the user, and with one by another thread.
template <typename Test>
class WithEitherStop : public Test, public testing::WithParamInterface<bool> {
 protected:
  void request_stop() {
    if (this->GetParam()) {
      this->ui_.cancel_requested = true;
    } else {
      this->stop_workers_ = true;
    }
  }
};

inline std::string who_stops(const testing::TestParamInfo<bool>& by_user) {
  return by_user.param ? "TheUser" : "AnotherThread";
}

inline void make_folder(const std::wstring& path) { ASSERT_TRUE(create_folders(path)); }

inline void make_read_only(const std::wstring& path) {
  ASSERT_TRUE(SetFileAttributesW(long_path(path).c_str(), FILE_ATTRIBUTE_READONLY));
}

// The system's code for one attempt to move a scratch file there; the attempt must fail.
inline uint32_t code_of_moving_onto(const std::wstring& target) {
  const TempFolder scratch;
  write_text(scratch / L"scratch", "scratch");
  EXPECT_FALSE(MoveFileExW(long_path(scratch / L"scratch").c_str(), long_path(target).c_str(),
                           MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH));
  return GetLastError();
}

}  // namespace kvx::test
