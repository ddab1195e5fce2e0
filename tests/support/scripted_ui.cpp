#include "tests/support/scripted_ui.h"

#include <windows.h>

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <ostream>
#include <utility>

#include "foundations/text.h"

namespace kvx::test {

UiEvent status_event(const std::wstring& title, const std::wstring& detail) {
  UiEvent event;
  event.text = title;
  event.detail = detail;
  return event;
}

UiEvent prompt_event(const std::wstring& text, uint32_t style) {
  UiEvent event;
  event.kind = UiEvent::Kind::prompt;
  event.text = text;
  event.style = style;
  return event;
}

UiEvent allow_cancel_event(bool allowed) {
  UiEvent event;
  event.kind = UiEvent::Kind::allow_cancel;
  event.allowed = allowed;
  return event;
}

void PrintTo(const UiEvent& event, std::ostream* out) {
  switch (event.kind) {
    case UiEvent::Kind::status:
      *out << "status \"" << to_utf8(event.text) << "\", \"" << to_utf8(event.detail) << '"';
      break;
    case UiEvent::Kind::prompt: *out << "prompt " << event.style << " \"" << to_utf8(event.text) << '"'; break;
    case UiEvent::Kind::allow_cancel: *out << "allow_cancel(" << (event.allowed ? "true" : "false") << ')'; break;
  }
}

ScriptedUi::~ScriptedUi() { EXPECT_TRUE(answers_.empty()) << answers_.size() << " answers were never asked for"; }

void ScriptedUi::show_status(const std::wstring& title, const std::wstring& detail) {
  const UiEvent event = status_event(title, detail);
  std::function<void(const UiEvent&)> function;
  {
    const std::scoped_lock guard(lock_);
    events_.push_back(event);
    function = on_status_;
  }
  if (function) function(event);
}

uint32_t ScriptedUi::message_box(const std::wstring& text, uint32_t style) {
  const UiEvent event = prompt_event(text, style);
  std::function<uint32_t(const UiEvent&)> function;
  {
    const std::scoped_lock guard(lock_);
    events_.push_back(event);
    if (!answers_.empty()) {
      const uint32_t button = answers_.front();
      answers_.pop_front();
      return button;
    }
    function = on_prompt_;
  }
  if (function) return function(event);
  ADD_FAILURE() << "no answer was given for the prompt \"" << to_utf8(text) << '"';
  return IDCANCEL;
}

void ScriptedUi::allow_cancel(bool allowed) {
  std::function<void(bool)> function;
  {
    const std::scoped_lock guard(lock_);
    events_.push_back(allow_cancel_event(allowed));
    function = on_allow_cancel_;
  }
  if (function) function(allowed);
}

void ScriptedUi::answer(uint32_t button) {
  const std::scoped_lock guard(lock_);
  answers_.push_back(button);
}

void ScriptedUi::on_prompt(std::function<uint32_t(const UiEvent&)> function) {
  const std::scoped_lock guard(lock_);
  on_prompt_ = std::move(function);
}

void ScriptedUi::on_status(std::function<void(const UiEvent&)> function) {
  const std::scoped_lock guard(lock_);
  on_status_ = std::move(function);
}

void ScriptedUi::on_allow_cancel(std::function<void(bool)> function) {
  const std::scoped_lock guard(lock_);
  on_allow_cancel_ = std::move(function);
}

std::vector<UiEvent> ScriptedUi::events() const {
  const std::scoped_lock guard(lock_);
  return events_;
}

std::vector<UiEvent> ScriptedUi::prompts() const { return events_of(UiEvent::Kind::prompt); }

std::vector<UiEvent> ScriptedUi::statuses() const { return events_of(UiEvent::Kind::status); }

std::vector<UiEvent> ScriptedUi::events_of(UiEvent::Kind kind) const {
  const std::scoped_lock guard(lock_);
  std::vector<UiEvent> found;
  std::copy_if(events_.begin(), events_.end(), std::back_inserter(found),
               [kind](const UiEvent& event) { return event.kind == kind; });
  return found;
}

}  // namespace kvx::test
