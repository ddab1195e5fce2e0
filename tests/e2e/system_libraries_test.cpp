// Where the launcher takes Windows' libraries from.
#include <windows.h>

#include <gtest/gtest.h>
#include <memory>
#include <string>

#include "foundations/text.h"
#include "tests/e2e/story.h"
#include "tests/support/test_paths.h"

namespace kvx::test {
namespace {

// How Wine looks for libraries of one name for this launcher alone, which must therefore have a name of its own.
class LibraryOrder {
 public:
  // `order` is "native" for a file before Wine's own library, or empty for no library at all.
  LibraryOrder(const PlayerFolder& folder, const std::wstring& library, const std::wstring& order)
      : program_key_(program_keys + folder.launcher_name()) {
    const auto bytes = static_cast<DWORD>((order.size() + 1) * sizeof(wchar_t));
    EXPECT_EQ(RegSetKeyValueW(HKEY_CURRENT_USER, (program_key_ + L"\\DllOverrides").c_str(), library.c_str(), REG_SZ,
                              order.c_str(), bytes),
              ERROR_SUCCESS);
  }
  LibraryOrder(const LibraryOrder&) = delete;
  LibraryOrder& operator=(const LibraryOrder&) = delete;
  ~LibraryOrder() { RegDeleteTreeW(HKEY_CURRENT_USER, program_key_.c_str()); }

 private:
  static constexpr wchar_t program_keys[] = L"Software\\Wine\\AppDefaults\\";
  std::wstring program_key_;
};

class SystemLibraries : public InBothWays {
 protected:
  SystemLibraries() {
    use_folder(std::make_unique<PlayerFolder>(L"KVX-" + std::to_wstring(GetCurrentProcessId()) + L".exe"));
  }

  void given_planted(const std::wstring& library) const {
    copy_program(to_wide(build_path(KVX_PLANTED_LIBRARY)), in_folder(library + L".dll"));
  }
};
KVX_TELL_IN_BOTH_WAYS(SystemLibraries);

TEST_P(SystemLibraries, BesideTheLauncherStayUnloaded) {
  given_published(first_release());
  given_planted(L"winhttp");
  given_planted(L"bcrypt");
  const LibraryOrder network(folder(), L"winhttp", L"native,builtin");
  const LibraryOrder cryptography(folder(), L"bcrypt", L"native,builtin");
  when_started();
  then_asks(question_prompt(L"KVX is not installed in this folder yet.*"), IDYES);
  then_ends(0, launched, "updated to 1.0");
}

TEST_P(SystemLibraries, ThatAreMissingAreNamed) {
  const LibraryOrder none(folder(), L"winhttp", L"");
  when_started();
  Prompt message =
      error_prompt(L"KVX Launcher cannot run because a part of Windows is missing or too old:\nwinhttp.dll");
  message.belongs_to_window = false;
  then_asks(message, IDOK);
  then_ends_before_its_log(99);
  then_the_log_has({"a part of Windows is missing or too old: winhttp.dll"});
}

}  // namespace
}  // namespace kvx::test
