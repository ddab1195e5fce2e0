// The launcher's side of the comparison with bare_calls: the run itself, without the start of the process and the
// window.
//   launcher_run install FOLDER URL    a whole first install, from the lock to the result file
//   launcher_run repair FOLDER URL     a whole run with --repair
//   launcher_run start FOLDER URL      a whole run that finds nothing to do
//   launcher_run check FOLDER          only what such a run does with the installed files
// Prints the seconds that it took; anything unexpected ends it with 1.
#include <windows.h>

#include <atomic>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/stopwatch.h"
#include "engine/hash_cache.h"
#include "engine/installed_check.h"
#include "foundations/files.h"
#include "foundations/text.h"
#include "launcher/updater.h"
#include "manifest/json.h"
#include "manifest/manifest.h"
#include "manifest/manifest_limits.h"
#include "ui/prompts.h"

namespace {

using kvx::bench::Stopwatch;

class ConsentingUi : public kvx::Ui {
 public:
  void show_status(const std::wstring& /*unused*/, const std::wstring& /*unused*/) override {}
  uint32_t message_box(const std::wstring& text, uint32_t style) override {
    if (style == kvx::style_question) return kvx::button_yes;
    std::fprintf(stderr, "launcher_run: %s\n", kvx::to_utf8(text).c_str());
    return IDCANCEL;
  }
  void allow_cancel(bool /*unused*/) override {}
};

int fail(const std::string& text) {
  std::fprintf(stderr, "launcher_run: %s\n", text.c_str());
  return 1;
}

int run(const std::string& what, const std::wstring& folder, const std::wstring& url) {
  kvx::Options options;
  options.base_url = url;
  options.no_launch = true;
  options.repair = what == "repair";
  kvx::RunEnvironment environment;
  environment.find_layout = [&](kvx::InstallLayout& out) {
    out = kvx::make_install_layout(folder + L"\\KVXLauncher.exe");
    return true;
  };
  ConsentingUi ui;
  const Stopwatch stopwatch;
  kvx::Updater updater(options, ui, environment);
  const kvx::RunOutcome outcome = updater.run();
  updater.write_result(outcome);
  stopwatch.print();
  if (outcome == kvx::RunOutcome::success) return 0;
  return fail("the run ended with " + std::to_string(static_cast<int>(outcome)));
}

int check(const std::wstring& folder) {
  std::string document;
  std::string error;
  kvx::JsonDocument json;
  kvx::Manifest manifest;
  if (!kvx::read_file(folder + L"\\.kvx_patch\\installed_manifest.json", kvx::largest_manifest_bytes, document) ||
      !kvx::parse_json(document, json, error) ||
      !kvx::read_manifest(json.root(), L"KVXLauncher.exe", manifest, error)) {
    return fail("no installed manifest: " + error);
  }
  kvx::HashCache cache;
  cache.load(folder + L"\\.kvx_patch\\hashcache.txt");
  ConsentingUi ui;
  const std::atomic<bool> stop_workers{false};
  const kvx::StopSignal stop(ui.cancel_requested, stop_workers);
  std::vector<uint64_t> to_replace;
  bool checked = true;
  kvx::bench::print_best_pass([&] {
    checked = kvx::check_installed_files({ui, stop, cache, folder, false}, manifest, to_replace) && checked;
  });
  return checked && to_replace.empty() ? 0 : fail("the files do not count as up to date");
}

}  // namespace

int main(int count, char** arguments) {
  const std::vector<std::string> given(arguments, arguments + count);
  if (given.size() == 3 && given[1] == "check") return check(kvx::to_wide(given[2]));
  if (given.size() == 4) return run(given[1], kvx::to_wide(given[2]), kvx::to_wide(given[3]));
  return fail("unexpected arguments");
}
