#include "tests/e2e/update_texts.h"

#include "foundations/display_format.h"
#include "foundations/error_text.h"
#include "foundations/text.h"
#include "tests/support/sha256_hex.h"
#include "tests/support/test_process.h"

namespace kvx::test {
namespace {

constexpr wchar_t then_press_retry[] = L")\n\nClose the game and any program that uses this file, then press Retry.";

std::wstring wide_error_text(uint32_t code) { return to_wide(error_text(code)); }

}  // namespace

ReleaseBuilder next_release(const std::string& data) {
  return ReleaseBuilder().version("1.1").serial(2).file("bin/game.exe", test_program_bytes()).file("data/a.txt", data);
}

Prompt disk_space_prompt(uint64_t needed, uint64_t free) {
  return retry_prompt(L"Not enough free disk space for the update.\n\nNeeded: " + format_size(needed) +
                      L"\nAvailable: " + format_size(free) + L"\n\nFree some space, then press Retry.");
}

Prompt download_failed_prompt(const std::string& reason) {
  return error_prompt(L"The update could not be downloaded:\n" + to_wide(reason) +
                      L"\n\nThe installed files were not changed. Please try again later.");
}

Prompt still_running_prompt(const std::wstring& program) {
  return retry_prompt(L"KVX is still running:\n" + program +
                      L"\n\nPlease close the game, then press Retry to install the update.");
}

Prompt cannot_replace_prompt(const std::string& path, uint32_t code) {
  return retry_prompt(L"Could not replace the file\n" + to_wide(path) + L"\n(" + wide_error_text(code) +
                      then_press_retry);
}

Prompt cannot_delete_prompt(const std::string& path, uint32_t code) {
  return retry_prompt(L"Could not delete the old file\n" + to_wide(path) + L"\n(" + wide_error_text(code) +
                      then_press_retry);
}

Prompt install_failed_prompt(const std::string& reason) {
  return error_prompt(L"The update could not be installed:\n" + to_wide(reason) +
                      L"\n\nStart the launcher again to finish the update.");
}

Prompt program_not_found_prompt(const std::wstring& program) {
  return error_prompt(L"The game program was not found:\n" + program);
}

Prompt cannot_start_prompt(uint32_t code) {
  return error_prompt(L"KVX could not be started:\n" + wide_error_text(code));
}

ScriptedResponse held_answer(const Gate& gate, const std::string& content) {
  return ScriptedResponse().wait_for(gate).then(status_line(200) + "Connection: close\r\nContent-Length: " +
                                                std::to_string(content.size()) + "\r\n\r\n" + content);
}

std::string verified_line(const std::string& content) {
  return "downloaded + verified " + sha256_hex(content) + " (" + std::to_string(content.size()) + " bytes)";
}

std::string already_staged_line(const std::string& content) {
  return "blob " + sha256_hex(content) + " already staged";
}

std::string resuming_line(const std::string& content, uint64_t at) {
  return "resuming " + sha256_hex(content) + " at " + std::to_string(at) + " of " + std::to_string(content.size()) +
         " bytes";
}

std::string interrupted_line(const std::string& content, uint64_t at, const std::string& error, uint32_t pause_ms) {
  return "download of " + sha256_hex(content) + " interrupted at " + std::to_string(at) + " bytes (" + error +
         "); retrying in " + std::to_string(pause_ms) + " ms";
}

std::string restarting_line(const std::string& content, const std::string& answer) {
  return "server did not accept resuming " + sha256_hex(content) + " (" + answer + "): restarting it from 0";
}

std::string integrity_failure_line(const std::string& content, const std::string& received) {
  return "INTEGRITY FAILURE: " + sha256_hex(content) + " hashed to " + sha256_hex(received);
}

}  // namespace kvx::test
