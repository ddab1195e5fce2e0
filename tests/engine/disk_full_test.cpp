// A disk that refuses writes. It takes the place of the system's WriteFile in this program, so it is a program of its
// own.
#include <windows.h>

#include "engine/blob_download.h"
#include "foundations/error_text.h"
#include "tests/engine/download_test.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

struct Disk {
  uint32_t refuses_with = 0;  // system error code, 0 while it takes everything
  bool takes_half = false;    // of the next write, without an error, before it refuses
};

Disk disk;

bool is_partial_download(HANDLE file) {
  wchar_t path[MAX_PATH + 1] = {};
  GetFinalPathNameByHandleW(file, path, MAX_PATH, 0);
  return std::wstring_view(path).ends_with(L".part");
}

BOOL WINAPI write_to_disk(HANDLE file, LPCVOID bytes, DWORD count, LPDWORD written, LPOVERLAPPED overlapped) {
  static const auto system_write_file = reinterpret_cast<decltype(&WriteFile)>(
      reinterpret_cast<void*>(GetProcAddress(GetModuleHandleW(L"kernel32.dll"), "WriteFile")));
  if (disk.refuses_with == 0 || !is_partial_download(file)) {
    return system_write_file(file, bytes, count, written, overlapped);
  }
  if (disk.takes_half) {
    disk.takes_half = false;
    system_write_file(file, bytes, count / 2, written, overlapped);
    SetLastError(ERROR_SUCCESS);
    return TRUE;
  }
  *written = 0;
  SetLastError(disk.refuses_with);
  return FALSE;
}

}  // namespace
}  // namespace kvx::test

// What a call of WriteFile goes through.
extern "C" {
extern decltype(&WriteFile) __imp_WriteFile;
decltype(&WriteFile) __imp_WriteFile = &kvx::test::write_to_disk;
}

namespace kvx::test {
namespace {

class BlobDownloadToABadDisk : public DownloadTest {
 protected:
  ~BlobDownloadToABadDisk() override { disk = {}; }

  TestClock clock_;
};

TEST_F(BlobDownloadToABadDisk, FailsAtOnceWithTheReason) {
  const std::string content = "content";
  server_.serve(blob_url_path(content), content);
  struct Case {
    uint32_t code;
    std::string error;
  };
  size_t requests = 0;
  for (const Case& c :
       {Case{ERROR_DISK_FULL, "the disk is full"}, Case{ERROR_HANDLE_DISK_FULL, "the disk is full"},
        Case{ERROR_WRITE_FAULT, "cannot write a downloaded file: " + error_text(ERROR_WRITE_FAULT)},
        Case{ERROR_ACCESS_DENIED, "cannot write a downloaded file: " + error_text(ERROR_ACCESS_DENIED)}}) {
    for (const bool takes_half : {false, true}) {
      store_.clear_staging();
      disk = {c.code, takes_half};
      EXPECT_EQ(download(content), c.error) << takes_half;
      EXPECT_EQ(server_.requests().size(), ++requests) << "a full disk is not asked twice";
      EXPECT_EQ(ui_.progress_done, 0U);
    }
  }
  EXPECT_THAT(clock_.sleeps(), testing::IsEmpty());
  EXPECT_THAT(log_.messages(), testing::IsEmpty());
  disk = {};
  EXPECT_EQ(download(content), "");
}

}  // namespace
}  // namespace kvx::test
