#include <windows.h>

#include <functional>
#include <gmock/gmock.h>
#include <string>
#include <vector>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/text.h"
#include "tests/support/file_lock.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/test_clock.h"
#include "tests/tools/kvxpublish/support/folder_tree.h"
#include "tests/tools/kvxpublish/support/publish_site.h"
#include "tools/kvxpublish/commands/publish.h"

namespace kvx::test {
namespace {

using testing::IsEmpty;

class Publish : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(site_.pack().code, 0); }

  [[nodiscard]] CommandResult publish(std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"publish", site_.site_folder()});
    const auto names_folder = [](const std::string& option) { return option.starts_with("--to="); };
    if (std::ranges::none_of(options, names_folder)) options.push_back("--to=" + web_folder_);
    return kvxpublish(options);
  }

  [[nodiscard]] CommandResult publish_with(CapturedConsole& console, std::vector<std::string> options = {}) const {
    options.insert(options.begin(), {"publish", site_.site_folder(), "--to", web_folder_});
    return kvxpublish(options, console);
  }

  [[nodiscard]] std::wstring web(const std::wstring& name) const { return site_.path(L"web root\\" + name); }
  [[nodiscard]] std::wstring web_content(const std::string& text) const {
    return web(L"files\\" + to_wide(sha256_hex(text)));
  }
  [[nodiscard]] std::wstring site_content(const std::string& text) const {
    return site_.site(L"files\\" + to_wide(sha256_hex(text)));
  }
  // Whether new content waits beside the web folder's own.
  [[nodiscard]] bool is_copying() const {
    const std::vector<std::wstring> names = list_folder(to_wide(web_folder_));
    return std::ranges::any_of(names, [](const std::wstring& name) { return name.starts_with(L"content-"); });
  }
  [[nodiscard]] FolderTree web_tree() const { return folder_tree(to_wide(web_folder_)); }

  // Packs a next release with one more file.
  void pack_next(const std::string& version = "1.1") const {
    write_text(site_.game(L"new " + to_wide(version)), "new in " + version);
    ASSERT_EQ(site_.pack({"--version=" + version, "--previous=" + site_.site_folder()}).code, 0);
  }

  PublishSite site_;
  std::string web_folder_ = to_utf8(site_.path(L"web root"));
};

TEST_F(Publish, RepeatsThePublicKeysInTheNextStep) {
  const std::string keys = to_utf8(development_public_keys());
  EXPECT_EQ(publish({"--public-keys=" + keys}).messages, "next: kvxpublish verify URL --channel live --public-keys \"" +
                                                             keys + "\" --full, with the URL that players use\n");
}

TEST_F(Publish, MakesTheFolderTheSameAsTheSite) {
  const CommandResult result = publish();
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.data,
            "channel=live\nversion=1.0\nserial=1\nkey=1ef5b9d93b368184\ncopied_files=2\ncopied_bytes=17\n"
            "present_files=0\n");
  EXPECT_EQ(result.messages, "next: kvxpublish verify URL --channel live --full, with the URL that players use\n");
  EXPECT_EQ(web_tree(), folder_tree(to_wide(site_.site_folder())));
}

TEST_F(Publish, CopiesOnlyContentThatIsNotThereYet) {
  ASSERT_EQ(publish().code, 0);
  write_text(web_content("the game"), "THE GAME");  // same size: left as it is
  pack_next();
  const CommandResult result = publish();
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(result.data,
            "channel=live\nversion=1.1\nserial=2\nkey=1ef5b9d93b368184\ncopied_files=1\ncopied_bytes=10\n"
            "present_files=2\n");
  EXPECT_EQ(read_text(web_content("the game")), "THE GAME");
}

TEST_F(Publish, LeavesOtherChannelsAlone) {
  ASSERT_EQ(publish().code, 0);
  ASSERT_EQ(site_.pack({"--channel=test", "--version=9"}).code, 0);
  pack_next();
  const std::string live = read_text(web(L"manifest.json"));
  ASSERT_EQ(publish({"--channel=test"}).code, 0);
  EXPECT_EQ(read_text(web(L"manifest.json")), live);
  EXPECT_EQ(read_text(web(L"test\\manifest.json")), read_text(site_.site(L"test\\manifest.json")));
  EXPECT_FALSE(exists(web_content("new in 1.1")));
}

TEST_F(Publish, BringsTheLauncherToo) {
  ASSERT_EQ(site_.pack({"--version=2", "--launcher=" + to_utf8(built_launcher())}).code, 0);
  ASSERT_EQ(publish().code, 0);
  EXPECT_EQ(list_folder(web(L"files")).size(), 3U);
}

TEST_F(Publish, HasNothingToDoWhenTheReleaseIsThere) {
  ASSERT_EQ(publish().code, 0);
  const FolderTree before = web_tree();
  const CommandResult result = publish();
  EXPECT_EQ(result.code, 4);
  EXPECT_THAT(result.data, IsEmpty());
  EXPECT_EQ(result.messages, "kvxpublish: " + web_folder_ + "\\manifest.json: serial 1 is published there already\n");
  EXPECT_EQ(web_tree(), before);
}

TEST_F(Publish, CompletesTheSameReleaseWhenSomethingOfItIsMissing) {
  ASSERT_EQ(publish().code, 0);
  const FolderTree whole = web_tree();
  for (const std::wstring& path : {web_content("the game"), web(L"manifest.sig")}) {
    remove_file(path);
    EXPECT_EQ(publish().code, 0);
    EXPECT_EQ(web_tree(), whole);
  }
}

TEST_F(Publish, ReplacesTheSignatureOfTheSameRelease) {
  ASSERT_EQ(publish().code, 0);
  ASSERT_EQ(kvxpublish({"sign", site_.site_folder(), "--key", development_key("backup")}).code, 0);
  const CommandResult result = publish();
  EXPECT_EQ(result.code, 0) << result.messages;
  EXPECT_EQ(web_tree(), folder_tree(to_wide(site_.site_folder())));
}

TEST_F(Publish, RefusesWithOneClearLineAndLeavesTheFolderAsItWas) {
  struct Refusal {
    const char* what;
    std::function<void()> prepare;
    std::vector<std::string> options;
    int code;
    std::string message;
  };
  ASSERT_EQ(publish().code, 0);
  pack_next();
  ASSERT_EQ(publish().code, 0);
  pack_next("1.2");
  const std::string folder = site_.site_folder();
  const FolderTree third = folder_tree(to_wide(folder));
  const auto conflict = [&](const std::string& where, const std::string& live, const std::string& own) {
    return web_folder_ + where + ": serial " + live + " was published already and this is " + own +
           "; pack again with --previous naming that site, or publish all the same with --force";
  };
  for (const Refusal& refusal : std::vector<Refusal>{
           {"a release that is not there",
            [] {},
            {"--channel=test"},
            1,
            folder + "\\test\\manifest.json: nothing is published on channel \"test\"; publish a release, or name "
                     "another channel with --channel"},
           {"the site itself",
            [] {},
            {"--to=" + folder + "\\"},
            2,
            folder + ": is the site itself; name the folder to publish to"},
           {"a folder in the site",
            [] {},
            {"--to=" + folder + "\\Sub\\web"},
            2,
            folder + "\\Sub\\web: lies in the site itself; name a folder outside of it"},
           {"the folder that the site is in",
            [] {},
            {"--to=" + to_utf8(site_.path(L""))},
            2,
            folder + ": the site lies in the folder to publish to; name another folder with --to"},
           {"no folder", [] {}, {"--to="}, 2, "--to: the path is empty; see kvxpublish --help"},
           {"a channel that is none",
            [] {},
            {"--channel=Live"},
            3,
            R"(launchers would refuse the channel "Live": a channel is 1 to 32 characters of a-z, 0-9, "-" and "_")"},
           {"a channel in the place of the content",
            [] {},
            {"--channel=files"},
            2,
            "the channel \"files\" would share a folder with the site's own files; choose another name"},
           {"an unsigned release",
            [&] {
              ASSERT_EQ(site_.pack({"--key=", "--serial=3", "--version=1.2"}).code, 0);
            },
            {},
            6,
            folder + "\\manifest.sig: there is no signature, and launchers refuse the release without; sign it first"},
           {"a release that was changed after it was signed",
            [&] { write_text(site_.site(L"manifest.json"), read_text(site_.site(L"manifest.json")) + " "); },
            {},
            6,
            folder + "\\manifest.sig: signature does not match the manifest; sign the release again, or name the keys "
                     "that launchers know with --public-keys"},
           {"content that is missing",
            [&] { remove_file(site_content("new in 1.2")); },
            {},
            3,
            to_utf8(site_content("new in 1.2")) + ": is missing; publish the release there again, or pack it again"},
           {"content that is damaged",
            [&] { write_text(site_content("new in 1.2"), "NEW IN 1.2"); },
            {},
            3,
            to_utf8(site_content("new in 1.2")) +
                ": is damaged, its digest is not its name; delete it and publish the release there again, or pack it "
                "again"},
           {"an older release",
            [&] {
              for (const std::wstring name : {L"manifest.json", L"manifest.sig"}) {
                write_text(site_.site(name), third.at(L"history\\live\\1" + name.substr(name.find(L'.'))));
              }
            },
            {},
            5,
            conflict("\\manifest.json", "2", "1")},
           {"another release of the same serial",
            [&] {
              remove_file(site_.site(L"manifest.json"));
              remove_tree(site_.site(L"history"));
              ASSERT_EQ(site_.pack({"--serial=2", "--version=2.2"}).code, 0);
            },
            {},
            5,
            conflict("\\manifest.json", "2", "2")},
       }) {
    SCOPED_TRACE(refusal.what);
    refusal.prepare();
    const FolderTree before = folder_tree(site_.path(L""));
    const CommandResult result = publish(refusal.options);
    EXPECT_EQ(result.code, refusal.code);
    EXPECT_THAT(result.data, IsEmpty());
    EXPECT_EQ(result.messages, "kvxpublish: " + refusal.message + "\n");
    EXPECT_EQ(folder_tree(site_.path(L"")), before);
    remove_tree(to_wide(folder));
    for (const auto& [name, content] : third) {
      if (!name.ends_with(L'\\')) write_text(site_.site(name), content);
    }
  }
}

TEST_F(Publish, RemembersSerialsThatAreNotLiveAnyMore) {
  pack_next();
  ASSERT_EQ(publish().code, 0);
  remove_file(web(L"manifest.json"));
  remove_tree(site_.site(L"history"));
  remove_file(site_.site(L"manifest.json"));
  ASSERT_EQ(site_.pack({"--serial=1"}).code, 0);
  const CommandResult result = publish();
  EXPECT_EQ(result.code, 5);
  EXPECT_EQ(result.messages, "kvxpublish: " + web_folder_ +
                                 "\\history\\live\\2.json: serial 2 was published already and this is 1; pack again "
                                 "with --previous naming that site, or publish all the same with --force\n");
}

TEST_F(Publish, PublishesAReleaseAgainThatIsNotLiveAnyMore) {
  ASSERT_EQ(publish().code, 0);
  const FolderTree whole = web_tree();
  remove_file(web(L"manifest.json"));
  EXPECT_EQ(publish().code, 0);
  EXPECT_EQ(web_tree(), whole);
}

TEST_F(Publish, TakesAnySerialWhenForced) {
  pack_next();
  ASSERT_EQ(publish().code, 0);
  remove_tree(site_.site(L"history"));
  remove_file(site_.site(L"manifest.json"));
  for (const std::string serial : {"1", "2"}) {
    SCOPED_TRACE(serial);
    remove_tree(site_.site(L"history"));
    ASSERT_EQ(site_.pack({"--serial=" + serial, "--version=5"}).code, 0);
    const CommandResult result = publish({"--force"});
    EXPECT_EQ(result.code, 0) << result.messages;
    EXPECT_EQ(read_text(web(L"manifest.json")), read_text(site_.site(L"manifest.json")));
    EXPECT_EQ(read_text(web(L"history\\live\\" + to_wide(serial) + L".json")), read_text(web(L"manifest.json")));
  }
  EXPECT_EQ(list_folder(web(L"history\\live")).size(), 4U);  // nothing was left aside
}

TEST_F(Publish, ReplacesAnUnreadableReleaseOnlyWhenForced) {
  ASSERT_EQ(publish().code, 0);
  write_text(web(L"manifest.json"), "{");
  pack_next();
  const FolderTree before = web_tree();
  const CommandResult result = publish();
  EXPECT_EQ(result.code, 3);
  EXPECT_EQ(result.messages, "kvxpublish: " + web_folder_ +
                                 "\\manifest.json: launchers would refuse this release: expected string at offset 1; "
                                 "publish all the same with --force\n");
  EXPECT_EQ(web_tree(), before);
  EXPECT_EQ(publish({"--force"}).code, 0);
  EXPECT_EQ(web_tree(), folder_tree(to_wide(site_.site_folder())));
}

TEST_F(Publish, ReplacesDamagedContentOnlyWhenTold) {
  ASSERT_EQ(publish().code, 0);
  const FolderTree whole = web_tree();
  write_text(web_content("the game"), "the gam");
  const FolderTree damaged = web_tree();
  const CommandResult result = publish();
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.messages, "kvxpublish: " + to_utf8(web_content("the game")) +
                                 ": is damaged, it has not the size of the content it is named after; replace it with "
                                 "--replace-damaged\n");
  EXPECT_EQ(web_tree(), damaged);
  EXPECT_EQ(publish({"--replace-damaged"}).code, 0);
  EXPECT_EQ(web_tree(), whole);
}

TEST_F(Publish, KeepsDamagedContentWhenItIsNotReplacedAfterAll) {
  ASSERT_EQ(publish().code, 0);
  write_text(web_content("the game"), "the gam");
  const FolderTree before = web_tree();
  CapturedConsole console;
  console.stop_asked = [this] { return is_copying(); };
  EXPECT_EQ(publish_with(console, {"--replace-damaged"}).code, 1);
  EXPECT_EQ(web_tree(), before);
}

// What another program does to the folder while the only missing piece of content is copied.
TEST_F(Publish, LeavesContentAloneThatAnotherProgramHasBrought) {
  struct Case {
    const char* what;
    const char* brought;
    bool stops;
    int code;
    std::string message;
  };
  ASSERT_EQ(publish().code, 0);
  pack_next();
  const std::wstring content = web_content("new in 1.1");
  for (const Case& c : std::vector<Case>{
           {"and the command fails", "new in 1.1", true, 1, "kvxpublish: stopped; nothing was changed\n"},
           {"of another size", "new in 1", false, 1,
            "kvxpublish: " + to_utf8(content) +
                ": is damaged: it has not the size of the content it is named after; delete it and pack again\n"},
           {"and the command succeeds", "new in 1.1", false, 0,
            "next: kvxpublish verify URL --channel live --full, with the URL that players use\n"},
           {"and it is damaged, as the last look finds", "NEW IN 1.1", false, 3,
            "kvxpublish: " + to_utf8(content) +
                ": is damaged, its digest is not its name; delete it and publish the release there again, or pack it "
                "again\n"},
       }) {
    SCOPED_TRACE(c.what);
    CapturedConsole console;
    console.stop_asked = [&] {
      if (!is_copying()) return false;
      write_text(content, c.brought);
      return c.stops;
    };
    const CommandResult result = publish_with(console);
    EXPECT_EQ(result.code, c.code);
    EXPECT_EQ(result.messages, c.message);
    EXPECT_EQ(read_text(content), c.brought);
    remove_file(content);
  }
}

TEST_F(Publish, LooksAtTheLiveSerialOnceMoreBeforeItReplacesAnything) {
  ASSERT_EQ(publish().code, 0);
  pack_next();
  pack_next("1.2");
  const std::string newer = read_text(site_.site(L"manifest.json"));
  for (const std::wstring ending : {L".json", L".sig"}) {
    write_text(site_.site(L"manifest" + ending), read_text(site_.site(L"history\\live\\2" + ending)));
  }
  CapturedConsole console;
  console.stop_asked = [&] {
    if (is_copying()) write_text(web(L"manifest.json"), newer);
    return false;
  };
  const CommandResult result = publish_with(console);
  EXPECT_EQ(result.code, 5);
  EXPECT_EQ(result.messages, "kvxpublish: " + web_folder_ +
                                 "\\manifest.json: serial 3 was published already and this is 2; pack again with "
                                 "--previous naming that site, or publish all the same with --force\n");
  EXPECT_EQ(read_text(web(L"manifest.json")), newer);
  EXPECT_FALSE(exists(web_content("new in 1.1")));
}

// The signature cannot be replaced by a folder's name: the last step of all fails.
TEST_F(Publish, LeavesTheLiveReleaseWholeWhenItFailsAtTheEnd) {
  ASSERT_EQ(publish().code, 0);
  pack_next();
  write_text(web_content("the game"), "the gam");
  remove_file(web(L"manifest.sig"));
  write_text(web(L"manifest.sig\\in the way"), "");
  const FolderTree before = web_tree();
  const CommandResult result = publish({"--replace-damaged"});
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.messages, "kvxpublish: " + web_folder_ +
                                 "\\manifest.sig: is a folder; publish all the same with "
                                 "--force\n");
  EXPECT_EQ(web_tree(), before);
  const CommandResult forced = publish({"--replace-damaged", "--force"});
  EXPECT_EQ(forced.code, 1);
  EXPECT_EQ(forced.messages, "kvxpublish: " + web_folder_ +
                                 "\\manifest.sig: cannot be written: " + error_text(ERROR_ACCESS_DENIED) + '\n');
  EXPECT_EQ(web_tree(), before);
}

// A launcher asks for the manifest and then for the signature, so that the signature is the last to change.
TEST_F(Publish, ReplacesTheManifestAndRightAfterItTheSignature) {
  struct Case {
    const wchar_t* held;
    const wchar_t* other;
    bool other_is_new;
  };
  ASSERT_EQ(publish().code, 0);
  for (const Case& c :
       std::vector<Case>{{L"manifest.json", L"manifest.sig", false}, {L"manifest.sig", L"manifest.json", true}}) {
    SCOPED_TRACE(to_utf8(c.held));
    pack_next(to_utf8(c.held).ends_with("json") ? "1.1" : "1.2");
    FileLock lock(web(c.held), FILE_SHARE_READ);
    TestClock clock;
    size_t looks = 0;
    clock.on_sleep([&](uint32_t) {
      if (++looks > 1) return;
      EXPECT_EQ(read_text(web(c.other)) == read_text(site_.site(c.other)), c.other_is_new);
      EXPECT_EQ(list_folder(web(L"files")), list_folder(site_.site(L"files")));  // all content is there already
      lock.release();
    });
    EXPECT_EQ(publish().code, 0);
    EXPECT_EQ(looks, 1U);
    EXPECT_EQ(web_tree(), folder_tree(to_wide(site_.site_folder())));
  }
}

TEST_F(Publish, LeavesTheLiveReleaseWholeWhenItCannotBeReplaced) {
  ASSERT_EQ(publish().code, 0);
  pack_next();
  const FolderTree before = web_tree();
  for (const wchar_t* held : {L"manifest.json", L"manifest.sig"}) {
    SCOPED_TRACE(to_utf8(held));
    const FileLock lock(web(held), FILE_SHARE_READ);
    const CommandResult result = publish();
    EXPECT_EQ(result.code, 1);
    EXPECT_EQ(result.messages,
              "kvxpublish: " + to_utf8(web(held)) + ": cannot be written: " + error_text(ERROR_ACCESS_DENIED) + '\n');
    EXPECT_EQ(web_tree(), before);
  }
}

TEST_F(Publish, PutsAReleaseBackThatMadeRoomInTheHistory) {
  ASSERT_EQ(publish().code, 0);
  remove_tree(site_.site(L"history"));
  remove_file(site_.site(L"manifest.json"));
  ASSERT_EQ(site_.pack({"--serial=1", "--version=3"}).code, 0);
  remove_file(web(L"manifest.sig"));
  write_text(web(L"manifest.sig\\in the way"), "");
  const FolderTree before = web_tree();
  EXPECT_EQ(publish({"--force"}).code, 1);
  EXPECT_EQ(web_tree(), before);
}

TEST_F(Publish, ReadsBackWhatItCopied) {
  for (const bool stops : {false, true}) {
    SCOPED_TRACE(stops);
    pack_next(stops ? "1.2" : "1.1");
    const std::wstring content = web_content(stops ? "new in 1.2" : "new in 1.1");
    CapturedConsole console;
    bool damaged = false;
    console.stop_asked = [&] {
      if (!exists(content) || is_copying()) return false;
      // At once, since another thread may be looking at its size.
      if (!damaged) damaged = write_file_atomic(content, "NEW IN 1.1");
      return stops;
    };
    const CommandResult result = publish_with(console);
    EXPECT_EQ(result.code, stops ? 1 : 3);
    EXPECT_EQ(result.messages,
              stops ? "kvxpublish: stopped; the release is published, but was not checked to the end\n"
                    : "kvxpublish: " + to_utf8(content) +
                          ": is damaged, its digest is not its name; delete it and publish the release there again, "
                          "or pack it again\n");
    EXPECT_EQ(read_text(web(L"manifest.json")), read_text(site_.site(L"manifest.json")));
  }
}

TEST_F(Publish, StopsWhenThePersonAsksForIt) {
  ASSERT_EQ(publish().code, 0);
  pack_next();
  const FolderTree before = web_tree();
  CapturedConsole console;
  console.stop_asked = [] { return true; };
  const CommandResult result = kvxpublish({"publish", site_.site_folder(), "--to", web_folder_}, console);
  EXPECT_EQ(result.code, 1);
  EXPECT_EQ(result.messages, "kvxpublish: stopped; nothing was changed\n");
  EXPECT_EQ(web_tree(), before);
}

}  // namespace
}  // namespace kvx::test
