// A user by script: records what the program shows, asks and allows, in the order it happened, and answers its
// questions. A question that no answer was given for fails the test and is answered with Cancel. Any thread.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <iosfwd>
#include <mutex>
#include <string>
#include <vector>

#include "ui/ui.h"

namespace kvx::test {

struct UiEvent {
  enum class Kind : uint8_t { status, prompt, allow_cancel };

  Kind kind = Kind::status;
  std::wstring text;    // a status's title, a prompt's text
  std::wstring detail;  // of a status
  uint32_t style = 0;   // of a prompt
  bool allowed = false;

  bool operator==(const UiEvent&) const = default;
};

[[nodiscard]] UiEvent status_event(const std::wstring& title, const std::wstring& detail = {});
[[nodiscard]] UiEvent prompt_event(const std::wstring& text, uint32_t style);
[[nodiscard]] UiEvent allow_cancel_event(bool allowed);
// How a failed expectation prints an event.
void PrintTo(const UiEvent& event, std::ostream* out);

class ScriptedUi : public Ui {
 public:
  ~ScriptedUi() override;  // fails the test when answers are left over

  void show_status(const std::wstring& title, const std::wstring& detail) override;
  [[nodiscard]] uint32_t message_box(const std::wstring& text, uint32_t style) override;
  void allow_cancel(bool allowed) override;

  // The buttons of the next prompts, in order.
  void answer(uint32_t button);
  // Called on the asking thread for a prompt when the queue is empty; returns the button.
  void on_prompt(std::function<uint32_t(const UiEvent&)> function);
  // Called on the showing thread for every status.
  void on_status(std::function<void(const UiEvent&)> function);

  // Called on the worker's thread whenever it allows or forbids to cancel, before that holds.
  void on_allow_cancel(std::function<void(bool allowed)> function);

  [[nodiscard]] std::vector<UiEvent> events() const;
  [[nodiscard]] std::vector<UiEvent> prompts() const;
  [[nodiscard]] std::vector<UiEvent> statuses() const;

 private:
  [[nodiscard]] std::vector<UiEvent> events_of(UiEvent::Kind kind) const;

  mutable std::mutex lock_;
  std::vector<UiEvent> events_;
  std::deque<uint32_t> answers_;
  std::function<uint32_t(const UiEvent&)> on_prompt_;
  std::function<void(const UiEvent&)> on_status_;
  std::function<void(bool)> on_allow_cancel_;
};

}  // namespace kvx::test
