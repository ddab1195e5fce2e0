// A disk that refuses what the download asks of it. It takes the place of some of the system's functions in this
// program, so it is a program of its own.
#include <windows.h>

#include <functional>

#include "engine/blob_download.h"
#include "foundations/error_text.h"
#include "tests/engine/download_test.h"
#include "tests/support/replaced_function.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

enum class Call : uint8_t { none, write, cut, place, flush };

struct Disk {
  Call refuses = Call::none;
  uint32_t code = 0;               // the system's error code of a refusal
  bool takes_half = false;         // of the next write, without an error, before it refuses
  bool cuts_in_name_only = false;  // a cut that succeeds changes nothing
  std::function<void()> on_read = {};
};

Disk disk;

bool is_partial_download(HANDLE file) {
  wchar_t path[MAX_PATH + 1] = {};
  GetFinalPathNameByHandleW(file, path, MAX_PATH, 0);
  return std::wstring_view(path).ends_with(L".part");
}

bool refuses(Call call, HANDLE file) {
  if (disk.refuses != call || !is_partial_download(file)) return false;
  SetLastError(disk.code);
  return true;
}

BOOL WINAPI write_to_disk(HANDLE file, LPCVOID bytes, DWORD count, LPDWORD written, LPOVERLAPPED overlapped) {
  static const auto system_write_file = system_function<decltype(&WriteFile)>("WriteFile");
  if (!refuses(Call::write, file)) return system_write_file(file, bytes, count, written, overlapped);
  if (disk.takes_half) {
    disk.takes_half = false;
    system_write_file(file, bytes, count / 2, written, overlapped);
    SetLastError(ERROR_SUCCESS);
    return TRUE;
  }
  *written = 0;
  SetLastError(disk.code);
  return FALSE;
}

BOOL WINAPI cut(HANDLE file) {
  static const auto system_set_end_of_file = system_function<decltype(&SetEndOfFile)>("SetEndOfFile");
  if (refuses(Call::cut, file)) return FALSE;
  return disk.cuts_in_name_only && is_partial_download(file) ? TRUE : system_set_end_of_file(file);
}

BOOL WINAPI place(HANDLE file, LARGE_INTEGER distance, PLARGE_INTEGER position, DWORD method) {
  static const auto system_set_file_pointer = system_function<decltype(&SetFilePointerEx)>("SetFilePointerEx");
  return refuses(Call::place, file) ? FALSE : system_set_file_pointer(file, distance, position, method);
}

BOOL WINAPI flush(HANDLE file) {
  static const auto system_flush = system_function<decltype(&FlushFileBuffers)>("FlushFileBuffers");
  return refuses(Call::flush, file) ? FALSE : system_flush(file);
}

BOOL WINAPI read_from_disk(HANDLE file, LPVOID buffer, DWORD count, LPDWORD got, LPOVERLAPPED overlapped) {
  static const auto system_read_file = system_function<decltype(&ReadFile)>("ReadFile");
  if (disk.on_read && is_partial_download(file)) disk.on_read();
  return system_read_file(file, buffer, count, got, overlapped);
}

}  // namespace
}  // namespace kvx::test

KVX_REPLACE(WriteFile, kvx::test::write_to_disk)
KVX_REPLACE(SetEndOfFile, kvx::test::cut)
KVX_REPLACE(SetFilePointerEx, kvx::test::place)
KVX_REPLACE(FlushFileBuffers, kvx::test::flush)
KVX_REPLACE(ReadFile, kvx::test::read_from_disk)

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
      disk = {Call::write, c.code, takes_half};
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

// A scanner that has the file mapped keeps it from being cut, for example.
TEST_F(BlobDownloadToABadDisk, EndsAnAttemptWhoseFileCannotBeCutPlacedOrFlushed) {
  const std::string content = "content";
  server_.serve(blob_url_path(content), content);
  for (const Call call : {Call::cut, Call::place, Call::flush}) {
    for (const std::string& before : {content + " and a tail", content.substr(0, 3)}) {
      if (call == Call::cut && before.size() < content.size()) continue;  // nothing to cut
      store_.clear_staging();
      write_text(part(content), before);
      disk = {call, ERROR_USER_MAPPED_FILE};
      EXPECT_EQ(download(content), "cannot write a downloaded file: " + error_text(ERROR_USER_MAPPED_FILE));
      EXPECT_FALSE(exists(blob(content)));
      disk = {call, ERROR_DISK_FULL};
      EXPECT_EQ(download(content), "the disk is full");
    }
  }
  EXPECT_THAT(clock_.sleeps(), testing::IsEmpty());
  disk = {};
  EXPECT_EQ(download(content), "");
  EXPECT_EQ(read_text(blob(content)), content);
}

TEST_F(BlobDownloadToABadDisk, AcceptsNoFileThatIsLongerThanItsBlob) {
  const std::string content = "content";
  server_.serve(blob_url_path(content), content);
  write_text(part(content), content + " and a tail");
  disk.cuts_in_name_only = true;
  EXPECT_EQ(download(content), "");  // at the second attempt, with a new file
  EXPECT_EQ(read_text(blob(content)), content);
  EXPECT_THAT(log_.messages(), testing::ElementsAre(line("INTEGRITY FAILURE: the file of ", content, " has 18 bytes"),
                                                    line("downloaded + verified ", content, " (7 bytes)")));
  EXPECT_EQ(ui_.progress_done, content.size());
}

TEST_F(BlobDownloadToABadDisk, StopsHashingAPartialFileWhenTheUserCancels) {
  const std::string content(20'000'000, 'x');
  const std::string before = content.substr(0, content.size() - 1);
  write_text(part(content), before);
  int reads = 0;
  disk.on_read = [&] {
    if (++reads == 2) ui_.cancel_requested = true;
  };
  EXPECT_EQ(download(content), "cancelled");
  EXPECT_EQ(reads, 2);
  EXPECT_EQ(read_text(part(content)), before);
}

}  // namespace
}  // namespace kvx::test
