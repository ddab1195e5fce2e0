#include "tests/launcher/updater_fixture.h"

#include <algorithm>

#include "foundations/text.h"
#include "tests/support/log_capture.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/signing_keys.h"
#include "ui/prompts.h"

namespace kvx::test {

UpdaterFixture::UpdaterFixture() {
  write_text(installed(L"KVXLauncher.exe"), "this launcher");
  options.base_url = server.base_url();
  options.no_launch = true;
  environment.find_layout = [this](InstallLayout& out) {
    out = make_install_layout(installed(L"KVXLauncher.exe"));
    return true;
  };
  environment.free_space = [](const std::wstring&) { return uint64_t{1} << 40; };
}

RunOutcome UpdaterFixture::run() {
  Updater updater(options, ui, environment);
  const RunOutcome outcome = updater.run();
  updater.write_result(outcome);
  return outcome;
}

void UpdaterFixture::publish_document(const std::string& document, const std::string& channel) {
  const std::string prefix = channel == "live" ? "" : channel + "/";
  server.serve(prefix + "manifest.json", document);
  server.serve(prefix + "manifest.sig", sign_manifest(document));
}

void UpdaterFixture::publish(const std::string& document, const ReleaseBuilder& release) {
  release.publish_blobs(server);
  publish_document(document, release.channel());
}

void UpdaterFixture::install_files(const ReleaseBuilder& release) const {
  for (const ReleaseBuilder::File& file : release.files()) {
    std::wstring path = to_wide(file.path);
    std::replace(path.begin(), path.end(), L'/', L'\\');
    write_text(installed(path), file.content);
  }
}

void UpdaterFixture::keep_installed_manifest(const std::string& document) const {
  write_text(staged(L"installed_manifest.json"), document);
  write_text(staged(L"installed_manifest.sig"), sign_manifest(document));
}

std::wstring UpdaterFixture::blob(const std::string& content) const {
  return staged(L"blobs\\" + to_wide(sha256_hex(content)));
}

std::wstring UpdaterFixture::partial_blob(const std::string& content) const {
  return staged(L"dl\\" + to_wide(sha256_hex(content)) + L".part");
}

std::vector<std::string> UpdaterFixture::log() const { return log_messages(read_text(staged(L"launcher.log"))); }

std::string UpdaterFixture::log_header(const std::string& end) const {
  return "KVXLAUNCHER-VERSION:1.0.0; install=\"" + to_utf8(folder.path()) + "\" self=\"KVXLauncher.exe\"" + end;
}

std::string UpdaterFixture::log_server(const std::string& channel) const {
  return "channel=" + channel + " server=" + to_utf8(server.base_url());
}

std::string result_text(int code, int launched, const std::string& message) {
  return "code=" + std::to_string(code) + "\nlaunched=" + std::to_string(launched) +
         "\nlauncher=1.0.0\nmessage=" + message + "\n";
}

UiEvent not_installed_prompt(const std::wstring& message) {
  return prompt_event(message +
                          L"\n\nKVX is not installed in this folder yet, so it cannot be started.\nPlease check your "
                          L"internet connection and try again later.",
                      style_error);
}

}  // namespace kvx::test
