#include "engine/installed_record.h"

#include "foundations/error_text.h"
#include "foundations/system_handles.h"
#include "tests/engine/engine_test.h"
#include "tests/support/release_builder.h"
#include "tests/support/signing_keys.h"
#include "tests/support/test_clock.h"

namespace kvx::test {
namespace {

using testing::ElementsAre;

class InstalledRecord : public EngineTest {
 protected:
  InstalledRecord() { state_.load(staging(L"state.txt")); }

  // The reason, or empty with `manifest_` filled.
  std::string load_error(const std::wstring& own_name = L"KVXLauncher.exe") {
    std::string error;
    const bool loaded = load_installed_manifest(staging_dir_, own_name, built_in_keys(), manifest_, error);
    EXPECT_EQ(loaded, error.empty());
    return error;
  }

  void write_pair(const std::string& document, const std::string& signature) const {
    write_text(staging(L"installed_manifest.json"), document);
    write_text(staging(L"installed_manifest.sig"), signature);
  }

  static constexpr uint64_t long_ago = 0x01D0000000000000;

  static void set_long_ago(const std::wstring& path) {
    const FileHandle file(CreateFileW(path.c_str(), FILE_WRITE_ATTRIBUTES, 0, nullptr, OPEN_EXISTING, 0, nullptr));
    const FILETIME time{0, static_cast<DWORD>(long_ago >> 32)};
    ASSERT_TRUE(SetFileTime(file.get(), nullptr, nullptr, &time));
  }

  TestClock clock_;
  StateFile state_;
  Manifest manifest_;
};

TEST_F(InstalledRecord, KeepsTheCopiesAndTheFactsOfTheRelease) {
  state_.set("updating.serial", "-3");
  Release release{"manifest bytes\r\n", std::string("sig\0nature", 10), {}};
  release.manifest.version = "1.4.2";
  release.manifest.serial = -3;
  record_installed(staging_dir_, "beta", release, state_);
  EXPECT_EQ(read_text(staging(L"installed_manifest.json")), release.manifest_bytes);
  EXPECT_EQ(read_text(staging(L"installed_manifest.sig")), release.signature_bytes);
  EXPECT_EQ(read_text(staging(L"state.txt")),
            "complete=1\ninstalled.channel=beta\ninstalled.serial=-3\ninstalled.version=1.4.2\nserial.beta=-3\n"
            "updating.serial=-3\n");
}

TEST_F(InstalledRecord, WritesBothCopiesBeforeTheStateSaysComplete) {
  write_text(staging(L"state.txt"), "complete=0\n");
  write_pair("old manifest", "old signature");
  Release release{"manifest", "signature", {}};
  FileLock lock(staging(L"state.txt"), FILE_SHARE_READ);  // holds the save up until the clock moves
  std::vector<std::string> at_save;
  clock_.on_sleep([&](uint32_t) {
    at_save = {read_text(staging(L"installed_manifest.json")), read_text(staging(L"installed_manifest.sig")),
               read_text(staging(L"state.txt"))};
    lock.release();
  });
  record_installed(staging_dir_, "live", release, state_);
  EXPECT_THAT(at_save, testing::ElementsAre("manifest", "signature", "complete=0\n"));
  EXPECT_EQ(state_.get("complete"), "1");
  EXPECT_THAT(read_text(staging(L"state.txt")), testing::StartsWith("complete=1\n"));
}

TEST_F(InstalledRecord, LogsEachFileThatCannotBeWrittenAndGoesOn) {
  const std::string reason = error_text(ERROR_ACCESS_DENIED);
  make_folder(staging(L"installed_manifest.json.tmp"));
  make_folder(staging(L"installed_manifest.sig.tmp"));
  record_installed(staging_dir_, "live", {}, state_);
  EXPECT_EQ(read_text(staging(L"state.txt")),
            "complete=1\ninstalled.channel=live\ninstalled.serial=0\ninstalled.version=\nserial.live=0\n");
  const std::string manifest_line = "cannot write installed_manifest.json: " + reason;
  const std::string signature_line = "cannot write installed_manifest.sig: " + reason;
  EXPECT_THAT(log_.messages(), ElementsAre(manifest_line, signature_line));

  repair_installed_copies(staging_dir_, {"manifest", "signature", {}}, nullptr);
  EXPECT_THAT(log_.messages(), ElementsAre(manifest_line, signature_line, manifest_line, signature_line));

  RemoveDirectoryW(staging(L"installed_manifest.json.tmp").c_str());
  make_folder(staging(L"state.txt.tmp"));
  record_installed(staging_dir_, "live", {"manifest", "signature", {}}, state_);
  EXPECT_THAT(log_.messages(), ElementsAre(manifest_line, signature_line, manifest_line, signature_line, signature_line,
                                           "cannot write state.txt: " + reason));
  EXPECT_EQ(read_text(staging(L"installed_manifest.json")), "manifest");
}

TEST_F(InstalledRecord, RepairsTheCopyThatDiffersAndLeavesTheOtherAlone) {
  const Release release{"manifest", "signature", {}};
  const auto untouched = [this](const wchar_t* name) {
    FileStamp stamp;
    return file_stamp(staging(name), stamp) && stamp.last_write_time == long_ago;
  };
  struct Case {
    std::string manifest;
    std::string signature;
    bool manifest_is_right;
    bool signature_is_right;
  };
  for (const Case& c : {Case{"manifest", "signature", true, true}, Case{"manifesT", "signature", false, true},
                        Case{"manifest and more", "signature", false, true}, Case{"", "signature", false, true},
                        Case{"manifest", "signaturE", true, false}, Case{"old", "old", false, false}}) {
    write_pair(c.manifest, c.signature);
    for (const wchar_t* name : {L"installed_manifest.json", L"installed_manifest.sig"}) set_long_ago(staging(name));
    repair_installed_copies(staging_dir_, release, nullptr);
    EXPECT_EQ(read_text(staging(L"installed_manifest.json")), "manifest");
    EXPECT_EQ(read_text(staging(L"installed_manifest.sig")), "signature");
    EXPECT_EQ(untouched(L"installed_manifest.json"), c.manifest_is_right) << c.manifest;
    EXPECT_EQ(untouched(L"installed_manifest.sig"), c.signature_is_right) << c.signature;
  }
  DeleteFileW(staging(L"installed_manifest.json").c_str());
  DeleteFileW(staging(L"installed_manifest.sig").c_str());
  repair_installed_copies(staging_dir_, release, nullptr);
  EXPECT_EQ(read_text(staging(L"installed_manifest.json")), "manifest");
  EXPECT_EQ(read_text(staging(L"installed_manifest.sig")), "signature");
  EXPECT_THAT(log_.messages(), testing::IsEmpty());
}

TEST_F(InstalledRecord, WaitsForHeldFilesNoLongerThanUntilAStop) {
  write_pair("old", "old");
  write_text(staging(L"state.txt"), "complete=0\n");
  const FileLock manifest(staging(L"installed_manifest.json"), FILE_SHARE_READ);
  const FileLock signature(staging(L"installed_manifest.sig"), FILE_SHARE_READ);
  const FileLock state(staging(L"state.txt"), FILE_SHARE_READ);
  ui_.cancel_requested = true;
  record_installed(staging_dir_, "live", {"manifest", "signature", {}}, state_, &stop_);
  EXPECT_LE(clock_.total_slept_ms(), 1000U);
  repair_installed_copies(staging_dir_, {"manifest", "signature", {}}, &stop_);
  EXPECT_LE(clock_.total_slept_ms(), 2000U);
}

TEST_F(InstalledRecord, IsReadBackWithEitherKeysSignature) {
  const std::string document = ReleaseBuilder().version("1.5").serial(9).file("bin/game.exe", "game").json();
  for (const SigningKey key : {SigningKey::primary, SigningKey::backup}) {
    record_installed(staging_dir_, "live", {document, sign_manifest(document, key), {}}, state_);
    ASSERT_EQ(load_error(), "");
    EXPECT_EQ(manifest_.version, "1.5");
    EXPECT_EQ(manifest_.serial, 9);
    ASSERT_EQ(manifest_.files.size(), 1U);
    EXPECT_EQ(manifest_.files[0].native_path(), L"bin\\game.exe");
  }
}

TEST_F(InstalledRecord, IsNotReadWithoutBothCopies) {
  const std::string document = ReleaseBuilder().file("game.exe", "game").json();
  EXPECT_EQ(load_error(), "installed_manifest.json cannot be read");
  write_text(staging(L"installed_manifest.json"), document);
  EXPECT_EQ(load_error(), "installed_manifest.sig cannot be read");
  write_text(staging(L"installed_manifest.sig"), std::string(4097, 'x'));
  EXPECT_EQ(load_error(), "installed_manifest.sig cannot be read");
  write_text(staging(L"installed_manifest.sig"), sign_manifest(document));
  EXPECT_EQ(load_error(), "");
}

TEST_F(InstalledRecord, IsTrustedOnlyWithAValidSignature) {
  const std::string document = ReleaseBuilder().file("game.exe", "game").json();
  write_pair(document + " ", sign_manifest(document));
  EXPECT_EQ(load_error(), "signature does not match the manifest");
  write_pair(document, sign_manifest(document).substr(0, 79));
  EXPECT_EQ(load_error(), "signature file has an unknown format");
  write_pair(document, sign_manifest(document));
  EXPECT_EQ(load_error(), "");
}

TEST_F(InstalledRecord, IsHeldToTheRulesOfAManifest) {
  const std::string other_product = ReleaseBuilder().file("game.exe", "game").member("product", "\"KVY\"").json();
  write_pair(other_product, sign_manifest(other_product));
  EXPECT_EQ(load_error(), "manifest is for a different product");
  write_pair("{", sign_manifest("{"));
  EXPECT_EQ(load_error(), "expected string at offset 1");
  const std::string document = ReleaseBuilder().file("game.exe", "game").json();
  write_pair(document, sign_manifest(document));
  EXPECT_THAT(load_error(L"game.exe"), testing::StartsWith("rejected path \"game.exe\": "));
  EXPECT_EQ(load_error(), "");
}

}  // namespace
}  // namespace kvx::test
