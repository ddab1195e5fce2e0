// How pack reads and stores files, and what it does about files that change meanwhile.
#include "tools/kvxpublish/release/content_pass.h"

#include <windows.h>

#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/files.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "tests/support/sha256_hex.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

using publish::ExitCode;
using publish::Failure;
using publish::GameFile;
using publish::SiteWriter;

constexpr size_t large_bytes = 9000000;  // more than twice what is read at once

std::string large_text(char first) {
  std::string text(large_bytes, first);
  for (size_t i = 0; i < text.size(); i += 4099) text[i] = static_cast<char>(i / 4099);
  return text;
}

// Written in another year, so that the next write changes the time for sure.
void make_old(const std::wstring& path) {
  const FileHandle file(CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr,
                                    OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL, nullptr));
  const FILETIME old{0, 0x01C00000};
  EXPECT_NE(SetFileTime(file.get(), nullptr, nullptr, &old), 0);
}

class ContentPass : public testing::Test {
 protected:
  [[nodiscard]] std::vector<GameFile> listed() const {
    std::vector<GameFile> files;
    std::vector<std::string> unused;
    Failure failure;
    EXPECT_TRUE(publish::list_game_folder(to_wide(site_.game_folder()), {}, files, unused, failure)) << failure.text;
    return files;
  }

  // Stores and publishes, as far as that goes.
  [[nodiscard]] bool store(std::vector<GameFile>& files, Failure& failure) {
    SiteWriter writer(publish::site_paths(to_wide(site_.site_folder()), "live"));
    ++serial_;
    return writer.prepare(failure) && publish::store_files(files, writer, console_, failure) &&
           writer.publish(serial_, "manifest " + std::to_string(serial_), "", failure);
  }

  void expect_stored(const std::vector<GameFile>& files) const {
    for (const GameFile& file : files) {
      const std::string content = read_text(file.source);
      EXPECT_EQ(file.sha256, sha256_hex(content)) << file.path;
      EXPECT_TRUE(read_text(site_.site(L"files\\" + to_wide(file.sha256))) == content) << file.path;
    }
  }

  void expect_changed(std::vector<GameFile> files, const std::wstring& name) {
    const auto before = site_.snapshot();
    Failure failure;
    EXPECT_FALSE(store(files, failure));
    EXPECT_EQ(failure.code, ExitCode::failed);
    EXPECT_EQ(failure.text, to_utf8(site_.game(name)) + ": changed while it was packed; pack again");
    EXPECT_EQ(site_.snapshot(), before);
  }

  PublishSite site_;
  CapturedConsole console_;
  uint64_t serial_ = 0;
};

TEST_F(ContentPass, StoresFilesOfEverySize) {
  for (const size_t size : {size_t{0}, size_t{1}, size_t{4194303}, size_t{4194304}, size_t{4194305}, large_bytes}) {
    write_text(site_.game(L"of " + std::to_wstring(size)), std::string(size, 'x'));
  }
  std::vector<GameFile> files = listed();
  Failure failure;
  ASSERT_TRUE(store(files, failure)) << failure.text;
  expect_stored(files);
}

TEST_F(ContentPass, StoresEqualContentFromManyFilesOnce) {
  for (int i = 0; i < 40; ++i) write_text(site_.game(L"small " + std::to_wstring(i)), "the same");
  for (int i = 0; i < 4; ++i) write_text(site_.game(L"large " + std::to_wstring(i)), large_text('a'));
  std::vector<GameFile> files = listed();
  Failure failure;
  ASSERT_TRUE(store(files, failure)) << failure.text;
  expect_stored(files);
  EXPECT_EQ(list_folder(site_.site(L"files")).size(), 4U);
  EXPECT_EQ(list_folder(site_.site(L"")).size(), 3U);  // beside them the history and the manifest
}

TEST_F(ContentPass, StoresALargeFileBesideAnotherOfItsSize) {
  write_text(site_.game(L"large"), large_text('a'));
  std::vector<GameFile> files = listed();
  Failure failure;
  ASSERT_TRUE(store(files, failure)) << failure.text;
  write_text(site_.game(L"large"), large_text('b'));
  files = listed();
  ASSERT_TRUE(store(files, failure)) << failure.text;
  expect_stored(files);
  EXPECT_EQ(list_folder(site_.site(L"files")).size(), 4U);
}

TEST_F(ContentPass, MeasuringFindsTheSameDigestsAndWritesNothing) {
  write_text(site_.game(L"large"), large_text('a'));
  std::vector<GameFile> measured = listed();
  Failure failure;
  ASSERT_TRUE(publish::measure_files(measured, console_, failure)) << failure.text;
  EXPECT_FALSE(exists(site_.site(L"")));
  std::vector<GameFile> stored = measured;
  ASSERT_TRUE(store(stored, failure)) << failure.text;
  expect_stored(stored);
  for (size_t i = 0; i < stored.size(); ++i) EXPECT_EQ(measured[i].sha256, stored[i].sha256);
}

TEST_F(ContentPass, NoticesAFileThatGrewOrShrank) {
  for (const wchar_t* name : {L"bin\\game.exe", L"large"}) {
    write_text(site_.game(L"large"), large_text('a'));
    const std::vector<GameFile> files = listed();
    write_text(site_.game(name), read_text(site_.game(name)) + "more");
    expect_changed(files, name);
    write_text(site_.game(name), "less");
    expect_changed(files, name);
    write_text(site_.game(L"bin\\game.exe"), "the game");
  }
}

TEST_F(ContentPass, NoticesAFileThatWasWrittenSinceItWasListed) {
  write_text(site_.game(L"late.bin"), "late");
  make_old(site_.game(L"late.bin"));
  const std::vector<GameFile> files = listed();
  write_text(site_.game(L"late.bin"), "LATE");  // of the same size
  expect_changed(files, L"late.bin");
}

TEST_F(ContentPass, NoticesAFileThatIsReplacedWhileItIsRead) {
  const std::wstring late = site_.game(L"late.bin");
  write_text(late, "late");
  make_old(late);
  std::vector<GameFile> files = listed();
  std::erase_if(files, [](const GameFile& file) { return file.path != "late.bin"; });
  bool replaced = false;
  console_.stop_asked = [&] {
    if (replaced) return false;
    replaced = MoveFileW(late.c_str(), site_.game(L"moved away").c_str()) != 0;
    EXPECT_TRUE(replaced);
    write_text(late, "LATE");  // of the same size
    return false;
  };
  expect_changed(files, L"late.bin");
}

// Neither size nor time tell, as after a tool that sets times back.
TEST_F(ContentPass, NoticesContentThatIsNotWhatWasMeasured) {
  write_text(site_.game(L"large"), large_text('a'));
  for (const std::string path : {"bin/game.exe", "large"}) {
    std::vector<GameFile> files = listed();
    Failure failure;
    ASSERT_TRUE(publish::measure_files(files, console_, failure)) << failure.text;
    for (GameFile& file : files) {
      if (file.path == path) file.sha256 = sha256_hex("what it was");
    }
    expect_changed(files, to_wide(path == "large" ? "large" : "bin\\game.exe"));
  }
}

TEST_F(ContentPass, NamesAFileThatHasGone) {
  std::vector<GameFile> files = listed();
  ASSERT_TRUE(DeleteFileW(site_.game(L"bin\\game.exe").c_str()));
  Failure failure;
  EXPECT_FALSE(store(files, failure));
  EXPECT_THAT(failure.text, testing::StartsWith(to_utf8(site_.game(L"bin\\game.exe")) + ": cannot be read: "));
  EXPECT_FALSE(exists(site_.site(L"")));
}

TEST_F(ContentPass, StopsWhenThePersonAsks) {
  write_text(site_.game(L"large"), large_text('a'));
  std::vector<GameFile> files = listed();
  int pieces = 0;
  console_.stop_asked = [&] { return ++pieces > 1; };
  Failure failure;
  EXPECT_FALSE(store(files, failure));
  EXPECT_EQ(failure.code, ExitCode::failed);
  EXPECT_EQ(failure.text, "stopped; nothing was changed");
  EXPECT_FALSE(exists(site_.site(L"")));
}

}  // namespace
}  // namespace kvx::test
