#include "tools/kvxpublish/commands/keygen.h"

#include <windows.h>

#include <array>
#include <memory>

#include "foundations/error_text.h"
#include "foundations/files.h"
#include "foundations/paths.h"
#include "foundations/system_handles.h"
#include "foundations/text.h"
#include "foundations/write_all.h"
#include "tools/kvxpublish/cli/given_path.h"
#include "tools/kvxpublish/commands/pubkey.h"
#include "tools/kvxpublish/keys/ecdsa.h"
#include "tools/kvxpublish/keys/signature_file.h"
#include "tools/kvxpublish/platform/made_folders.h"

namespace kvx::publish {
namespace {

struct KeygenOptions {
  std::string folder;
  std::string name;
};

// Rights on a file for the user who runs this program and for nobody else, whatever its folder grants.
class OwnerOnly {
 public:
  // False when the system does not tell who that is.
  [[nodiscard]] bool prepare() {
    HANDLE opened = nullptr;
    if (OpenProcessToken(GetCurrentProcess(), TOKEN_QUERY, &opened) == 0) return false;
    const KernelHandle token(opened);
    DWORD size = 0;
    return GetTokenInformation(token.get(), TokenUser, &user_, sizeof(user_), &size) != 0 &&
           InitializeAcl(&list_.acl, sizeof(list_), ACL_REVISION) != 0 &&
           AddAccessAllowedAce(&list_.acl, ACL_REVISION, FILE_ALL_ACCESS, user_.token_user.User.Sid) != 0 &&
           InitializeSecurityDescriptor(&descriptor_, SECURITY_DESCRIPTOR_REVISION) != 0 &&
           SetSecurityDescriptorDacl(&descriptor_, TRUE, &list_.acl, FALSE) != 0 &&
           SetSecurityDescriptorControl(&descriptor_, SE_DACL_PROTECTED, SE_DACL_PROTECTED) != 0;
  }

  [[nodiscard]] SECURITY_ATTRIBUTES* attributes() { return &attributes_; }

 private:
  struct {
    TOKEN_USER token_user;
    std::array<uint8_t, SECURITY_MAX_SID_SIZE> sid;
  } user_{};
  struct {
    ACL acl;
    std::array<uint8_t, sizeof(ACCESS_ALLOWED_ACE) + SECURITY_MAX_SID_SIZE> entry;
  } list_{};
  SECURITY_DESCRIPTOR descriptor_{};
  SECURITY_ATTRIBUTES attributes_{sizeof(SECURITY_ATTRIBUTES), &descriptor_, FALSE};
};

void drop_file(const std::wstring& path) {
  uint32_t ignored = 0;
  static_cast<void>(delete_file_once(path, ignored));
}

// Never an existing file: a private key that is overwritten is lost for good. `attributes` may be null for the usual
// rights. A file that cannot be finished is deleted.
bool write_new_file(const std::wstring& path, const std::string& bytes, SECURITY_ATTRIBUTES* attributes,
                    Failure& failure) {
  FileHandle file(
      CreateFileW(long_path(path).c_str(), GENERIC_WRITE, 0, attributes, CREATE_NEW, FILE_ATTRIBUTE_NORMAL, nullptr));
  uint32_t error = file ? 0 : GetLastError();
  if (error == ERROR_FILE_EXISTS || error == ERROR_ALREADY_EXISTS) {
    return fail(ExitCode::failed, to_utf8(path) + ": is there already and is never overwritten; name another folder",
                failure);
  }
  if (file && write_all(file.get(), bytes.data(), bytes.size(), error) && flush_to_disk(file.get(), error)) return true;
  if (file) {
    file.reset();
    drop_file(path);
  }
  return fail(ExitCode::failed, to_utf8(path) + ": cannot be written: " + error_text(error), failure);
}

// A pair that has shown that it signs.
bool make_key(PrivateKey& key, Failure& failure) {
  if (!generate_key(key)) return fail(ExitCode::key, "the system's cryptography cannot make a key", failure);
  std::string signature_file;
  std::string key_identifier;
  return sign_manifest("trial", key, signature_file, key_identifier, failure);
}

bool write_files(const std::wstring& folder, const PrivateKey& key, Failure& failure) {
  OwnerOnly rights;
  if (!rights.prepare()) return fail(ExitCode::failed, "the system does not tell which user this is", failure);
  const std::wstring private_path = join_path(folder, L"private_key.pem");
  const std::wstring public_path = join_path(folder, L"public_key.pem");
  if (!write_new_file(private_path, private_key_pem(key), rights.attributes(), failure)) return false;
  if (write_new_file(public_path, public_key_pem(key.public_point), nullptr, failure)) return true;
  drop_file(private_path);
  return false;
}

// Both files or nothing, the folder included.
bool write_pair(const std::wstring& folder, const PrivateKey& key, Failure& failure) {
  std::vector<std::wstring> made;
  if (make_folders(folder, made, failure) && write_files(folder, key, failure)) return true;
  remove_empty_folders(made);
  return false;
}

bool run_keygen(const KeygenOptions& options, const CommandContext& context, Failure& failure) {
  const std::wstring folder = given_path(options.folder);
  PrivateKey key;
  const bool done = make_key(key, failure) && write_pair(folder, key, failure);
  SecureZeroMemory(key.scalar.data(), key.scalar.size());
  if (!done) return false;
  context.report.add("private_key", to_utf8(join_path(folder, L"private_key.pem")));
  context.report.add("public_key", to_utf8(join_path(folder, L"public_key.pem")));
  return report_public_key(options.name, key.public_point, context.report, failure);
}

}  // namespace

RunCommand define_keygen(CommandOptions command) {
  const auto options = std::make_shared<KeygenOptions>();
  command.add_path("--out", options->folder, "The folder for the two files; it is made when it is missing")
      .required()
      .type_name("DIR");
  add_key_name_option(command, options->name);
  command.footer("Example:\n  kvxpublish keygen --out keys/primary");
  return [options](const CommandContext& context, Failure& failure) { return run_keygen(*options, context, failure); };
}

}  // namespace kvx::publish
