// What the launcher says in the course of an update, and the update that most stories about that are told with.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tests/e2e/prompt.h"
#include "tests/support/release_builder.h"
#include "tests/support/scripted_server.h"

namespace kvx::test {

// Version 1.1, serial 2: the game program of Story::first_release, and data/a.txt with this content.
inline const std::string next_data = "a of 1.1";
[[nodiscard]] ReleaseBuilder next_release(const std::string& data = next_data);

[[nodiscard]] Prompt disk_space_prompt(uint64_t needed, uint64_t free);
[[nodiscard]] Prompt download_failed_prompt(const std::string& reason);
[[nodiscard]] Prompt still_running_prompt(const std::wstring& program);
// `path` as in the manifest, `code` of the system.
[[nodiscard]] Prompt cannot_replace_prompt(const std::string& path, uint32_t code);
[[nodiscard]] Prompt cannot_delete_prompt(const std::string& path, uint32_t code);
[[nodiscard]] Prompt install_failed_prompt(const std::string& reason);
[[nodiscard]] Prompt program_not_found_prompt(const std::wstring& program);
[[nodiscard]] Prompt cannot_start_prompt(uint32_t code);

// The answer that brings this content once the gate is open: until then the run is between its look at the installed
// files and its install.
[[nodiscard]] ScriptedResponse held_answer(const Gate& gate, const std::string& content);

// Lines of the log about the blob that has this content.
[[nodiscard]] std::string verified_line(const std::string& content);
[[nodiscard]] std::string already_staged_line(const std::string& content);
[[nodiscard]] std::string resuming_line(const std::string& content, uint64_t at);
[[nodiscard]] std::string interrupted_line(const std::string& content, uint64_t at, const std::string& error,
                                           uint32_t pause_ms);
[[nodiscard]] std::string restarting_line(const std::string& content, const std::string& answer);
[[nodiscard]] std::string integrity_failure_line(const std::string& content, const std::string& received);

}  // namespace kvx::test
