// keygen and pubkey.
#include <windows.h>
#include <aclapi.h>
#include <sddl.h>

#include <array>
#include <gmock/gmock.h>
#include <map>
#include <sstream>
#include <string>
#include <vector>

#include "foundations/files.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "tests/tools/kvxpublish/support/publish_site.h"

namespace kvx::test {
namespace {

using testing::IsEmpty;

const std::string build_hint =
    "next: write the public lines of a primary and a backup key to a file, and build the launcher with "
    "-DKVX_PUBLIC_KEYS=FILE\n";

std::map<std::string, std::string> values_of(const std::string& data) {
  std::map<std::string, std::string> values;
  std::istringstream lines(data);
  for (std::string line; std::getline(lines, line);) {
    const size_t equals = line.find('=');
    values[line.substr(0, equals)] = line.substr(equals + 1);
  }
  return values;
}

TEST(Keygen, MakesAKeyThatSignsAndTheLineForTheBuild) {
  const PublishSite site;
  ASSERT_EQ(site.pack({"--key="}).code, 0);
  const std::string folder = to_utf8(site.path(L"new\\keys"));
  const CommandResult made = kvxpublish({"keygen", "--out", folder});
  ASSERT_EQ(made.code, 0) << made.messages;
  EXPECT_EQ(made.messages, build_hint);
  auto values = values_of(made.data);
  EXPECT_EQ(values["private_key"], folder + "\\private_key.pem");
  EXPECT_EQ(values["public_key"], folder + "\\public_key.pem");
  EXPECT_THAT(values["public_line"], testing::StartsWith("primary " + values["identifier"] + ' '));
  EXPECT_EQ(values["public_line"].size(), 8U + 16 + 1 + 128);

  write_text(site.path(L"keys.txt"), values["public_line"] + '\n');
  ASSERT_EQ(kvxpublish({"sign", site.site_folder(), "--key", values["private_key"]}).code, 0);
  const std::string signature = read_text(site.site(L"manifest.sig")).substr(16);
  write_text(site.path(L"signature.bin"), signature);
  const CommandResult attached =
      kvxpublish({"attach", site.site_folder(), "--signature", to_utf8(site.path(L"signature.bin")), "--public-keys",
                  to_utf8(site.path(L"keys.txt"))});
  EXPECT_EQ(attached.code, 0) << attached.messages;
}

TEST(Keygen, MakesAnotherKeyEachTime) {
  const PublishSite site;
  EXPECT_NE(values_of(kvxpublish({"keygen", "--out", to_utf8(site.path(L"a"))}).data)["identifier"],
            values_of(kvxpublish({"keygen", "--out", to_utf8(site.path(L"b"))}).data)["identifier"]);
}

// Whose rights a file's access list names, as the numbers of their identifiers.
std::vector<std::string> who_has_rights(const std::wstring& path) {
  ACL* list = nullptr;
  PSECURITY_DESCRIPTOR descriptor = nullptr;
  EXPECT_EQ(GetNamedSecurityInfoW(path.c_str(), SE_FILE_OBJECT, DACL_SECURITY_INFORMATION, nullptr, nullptr, &list,
                                  nullptr, &descriptor),
            DWORD{ERROR_SUCCESS});
  std::vector<std::string> names;
  for (DWORD i = 0; list != nullptr && i < list->AceCount; ++i) {
    void* entry = nullptr;
    EXPECT_NE(GetAce(list, i, &entry), 0);
    auto* allowed = static_cast<ACCESS_ALLOWED_ACE*>(entry);
    char* text = nullptr;
    EXPECT_NE(ConvertSidToStringSidA(&allowed->SidStart, &text), 0);
    names.emplace_back(text);
    LocalFree(text);
  }
  LocalFree(descriptor);
  return names;
}

std::string this_user() {
  HANDLE token = nullptr;
  EXPECT_NE(OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &token), 0);
  const KernelHandle owner(token);
  std::array<uint64_t, 64> user{};
  DWORD size = 0;
  EXPECT_NE(GetTokenInformation(token, TokenUser, user.data(), sizeof(user), &size), 0);
  char* text = nullptr;
  EXPECT_NE(ConvertSidToStringSidA(reinterpret_cast<const TOKEN_USER*>(user.data())->User.Sid, &text), 0);
  std::string name = text;
  LocalFree(text);
  return name;
}

TEST(Keygen, LetsNobodyElseReadThePrivateKey) {
  const PublishSite site;
  ASSERT_EQ(kvxpublish({"keygen", "--out", to_utf8(site.path(L"keys"))}).code, 0);
  const std::string local_system = "S-1-5-18";  // may read everything anyway, and some systems list it
  const auto names = who_has_rights(site.path(L"keys\\private_key.pem"));
  EXPECT_THAT(names, testing::Contains(this_user()));
  EXPECT_THAT(names, testing::Each(testing::AnyOf(this_user(), local_system)));
}

TEST(Keygen, NeverOverwritesAFile) {
  for (const wchar_t* name : {L"private_key.pem", L"public_key.pem"}) {
    const PublishSite site;
    const std::wstring folder = site.path(L"keys");
    write_text(folder + L'\\' + name, "precious");
    const CommandResult result = kvxpublish({"keygen", "--out", to_utf8(folder)});
    EXPECT_EQ(result.code, 1);
    EXPECT_THAT(result.data, IsEmpty());
    EXPECT_EQ(result.messages, "kvxpublish: " + to_utf8(folder + L'\\' + name) +
                                   ": is there already and is never overwritten; name another folder\n");
    EXPECT_EQ(read_text(folder + L'\\' + name), "precious");
    EXPECT_EQ(list_folder(folder).size(), 1U);
  }
}

TEST(Keygen, SaysThatTheFolderCannotBeMade) {
  const PublishSite site;
  write_text(site.path(L"file"), "in the way");
  const CommandResult result = kvxpublish({"keygen", "--out", to_utf8(site.path(L"file\\keys"))});
  EXPECT_EQ(result.code, 1);
  EXPECT_THAT(result.messages, testing::StartsWith("kvxpublish: " + to_utf8(site.path(L"file\\keys")) +
                                                   ": the folder cannot be made: "));
}

TEST(Pubkey, ShowsTheDevelopmentKeysAsTheBuildKnowsThem) {
  std::string lines;
  for (const std::string name : {"primary", "backup"}) {
    const CommandResult result = kvxpublish({"pubkey", development_key(name), "--name", name});
    EXPECT_EQ(result.code, 0);
    EXPECT_EQ(result.messages, build_hint);
    lines += values_of(result.data)["public_line"] + '\n';
  }
  EXPECT_EQ(lines, read_text(development_public_keys()));
}

TEST(Pubkey, ShowsTheSameForThePublicHalfAlone) {
  const PublishSite site;
  const std::string keys = to_utf8(site.path(L"keys"));
  ASSERT_EQ(kvxpublish({"keygen", "--out", keys}).code, 0);
  const CommandResult whole = kvxpublish({"pubkey", keys + "\\private_key.pem"});
  const CommandResult half = kvxpublish({"pubkey", keys + "\\public_key.pem"});
  EXPECT_EQ(whole.code, 0);
  EXPECT_EQ(half.data, whole.data);
}

TEST(Pubkey, RefusesWhatIsNoKey) {
  const PublishSite site;
  const std::string game = site.game_folder() + "\\bin\\game.exe";
  const std::string none = site.game_folder() + "\\none.pem";
  EXPECT_EQ(kvxpublish({"pubkey", game}).messages, "kvxpublish: " + game + ": the key is not a PEM private key\n");
  EXPECT_EQ(kvxpublish({"pubkey", game}).code, 6);
  EXPECT_EQ(kvxpublish({"pubkey", none}).messages, "kvxpublish: " + none + ": there is no such key file\n");
  EXPECT_EQ(kvxpublish({"pubkey", none}).code, 6);
  EXPECT_EQ(kvxpublish({"pubkey", game, "--name=third"}).messages,
            "kvxpublish: --name: third not in {primary,backup}; see kvxpublish --help\n");
}

}  // namespace
}  // namespace kvx::test
