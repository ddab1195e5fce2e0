#include "tests/support/window_driver.h"

#include <commctrl.h>

#include <algorithm>
#include <gtest/gtest.h>

namespace kvx::test {
namespace {

constexpr wchar_t message_box_class[] = L"#32770";
constexpr wchar_t progress_window_class[] = L"KVXLauncherWindow";

std::wstring class_of(HWND window) {
  wchar_t name[64];
  return {name, static_cast<size_t>(GetClassNameW(window, name, 64))};
}

struct Search {
  const wchar_t* class_name;
  DWORD process_id;
  HWND found;
};

BOOL CALLBACK look_at_window(HWND window, LPARAM parameter) {
  auto& search = *reinterpret_cast<Search*>(parameter);
  DWORD owner = 0;
  GetWindowThreadProcessId(window, &owner);
  if (owner != search.process_id || class_of(window) != search.class_name) return TRUE;
  search.found = window;
  return FALSE;
}

BOOL CALLBACK add_child(HWND child, LPARAM parameter) {
  reinterpret_cast<std::vector<HWND>*>(parameter)->push_back(child);
  return TRUE;
}

// From top to bottom, then from left to right.
std::vector<HWND> children_of(HWND window, const wchar_t* class_name) {
  std::vector<HWND> children;
  EnumChildWindows(window, add_child, reinterpret_cast<LPARAM>(&children));
  std::erase_if(children, [&](HWND child) { return lstrcmpiW(class_of(child).c_str(), class_name) != 0; });
  std::sort(children.begin(), children.end(), [](HWND a, HWND b) {
    const RECT at_a = place_of(a);
    const RECT at_b = place_of(b);
    return std::pair(at_a.top, at_a.left) < std::pair(at_b.top, at_b.left);
  });
  return children;
}

LONG_PTR style_of(HWND window) { return GetWindowLongPtrW(window, GWL_STYLE); }

HWND find_shown_message_box(DWORD process_id) {
  HWND box = find_window(message_box_class, process_id);
  return box != nullptr && IsWindowVisible(box) != 0 ? box : nullptr;
}

}  // namespace

bool wait_until(const std::function<bool()>& condition, uint32_t limit_ms) {
  const ULONGLONG end = GetTickCount64() + limit_ms;
  while (!condition()) {
    if (GetTickCount64() >= end) return false;
    Sleep(10);
  }
  return true;
}

HWND find_window(const wchar_t* class_name, DWORD process_id) {
  Search search{class_name, process_id, nullptr};
  EnumWindows(look_at_window, reinterpret_cast<LPARAM>(&search));
  return search.found;
}

HWND wait_for_window(const wchar_t* class_name, DWORD process_id) {
  HWND window = nullptr;
  EXPECT_TRUE(wait_until([&] { return (window = find_window(class_name, process_id)) != nullptr; }))
      << "no window of class " << class_name;
  return window;
}

std::wstring text_of(HWND window) {
  std::wstring text(4096, L'\0');
  DWORD_PTR length = 0;
  SendMessageTimeoutW(window, WM_GETTEXT, text.size(), reinterpret_cast<LPARAM>(text.data()), SMTO_NORMAL,
                      usual_limit_ms, &length);
  text.resize(length);
  return text;
}

// A window manager may move the parent between two questions; then they are asked again.
RECT place_of(HWND child) {
  HWND parent = GetParent(child);
  POINT origin{};
  POINT origin_after{};
  RECT place{};
  do {
    origin = {};
    origin_after = {};
    MapWindowPoints(parent, nullptr, &origin, 1);
    GetWindowRect(child, &place);
    MapWindowPoints(parent, nullptr, &origin_after, 1);
  } while (origin.x != origin_after.x || origin.y != origin_after.y);
  OffsetRect(&place, -origin.x, -origin.y);
  return place;
}

RECT client_area_of(HWND window) {
  RECT area{};
  GetClientRect(window, &area);
  return area;
}

ProgressWindow wait_for_progress_window(DWORD process_id) {
  ProgressWindow found;
  found.window = wait_for_window(progress_window_class, process_id);
  if (found.window == nullptr) return found;
  std::vector<HWND> texts;
  const auto complete = [&] {
    texts = children_of(found.window, L"Static");
    found.cancel_button = GetDlgItem(found.window, IDCANCEL);
    const std::vector<HWND> bars = children_of(found.window, PROGRESS_CLASSW);
    found.progress_bar = bars.size() == 1 ? bars[0] : nullptr;
    // Before they are laid out, all lie in one place and their order says nothing.
    return texts.size() == 2 && found.cancel_button != nullptr && found.progress_bar != nullptr &&
           place_of(texts[0]).top < place_of(texts[1]).top &&
           place_of(texts[1]).top < place_of(found.cancel_button).top;
  };
  if (!wait_until(complete)) {
    ADD_FAILURE() << "the progress window lacks a control";
    return found;
  }
  found.status_text = texts[0];
  found.detail_text = texts[1];
  return found;
}

namespace {

// A box may be seen before its parts are in their places. Each look comes after the box has answered a message.
void wait_for_layout(HWND box) {
  std::vector<RECT> places;
  int same_looks = 0;
  EXPECT_TRUE(wait_until([&] {
    DWORD_PTR answer = 0;
    SendMessageTimeoutW(box, WM_NULL, 0, 0, SMTO_NORMAL, usual_limit_ms, &answer);
    std::vector<RECT> now;
    for (HWND button : children_of(box, L"Button")) now.push_back(place_of(button));
    const bool same = std::equal(now.begin(), now.end(), places.begin(), places.end(),
                                 [](const RECT& a, const RECT& b) { return EqualRect(&a, &b) != 0; });
    same_looks = same ? same_looks + 1 : 0;
    places = std::move(now);
    return same_looks >= 3;
  })) << "the message box never comes to rest";
}

}  // namespace

bool has_message_box(DWORD process_id) { return find_shown_message_box(process_id) != nullptr; }

MessageBoxWindow wait_for_message_box(DWORD process_id) {
  MessageBoxWindow box;
  EXPECT_TRUE(wait_until([&] { return (box.window = find_shown_message_box(process_id)) != nullptr; }))
      << "no message box";
  if (box.window == nullptr) return box;
  wait_for_layout(box.window);
  box.owner = GetWindow(box.window, GW_OWNER);
  box.caption = text_of(box.window);
  for (const wchar_t* text_class : {L"Static", L"Edit"}) {
    for (HWND part : children_of(box.window, text_class)) {
      if (lstrcmpiW(text_class, L"Static") == 0 && (style_of(part) & SS_TYPEMASK) == SS_ICON) {
        box.icon = reinterpret_cast<HICON>(SendMessageW(part, STM_GETICON, 0, 0));
      } else if (box.text.empty()) {
        box.text = text_of(part);
      }
    }
  }
  for (HWND button : children_of(box.window, L"Button")) {
    if (IsWindowVisible(button) == 0) continue;
    const auto id = static_cast<uint32_t>(GetDlgCtrlID(button));
    box.buttons.push_back(id);
    if ((style_of(button) & BS_TYPEMASK) == BS_DEFPUSHBUTTON) box.default_button = id;
  }
  return box;
}

void MessageBoxWindow::press(uint32_t button) const {
  PostMessageW(window, WM_COMMAND, button, reinterpret_cast<LPARAM>(GetDlgItem(window, static_cast<int>(button))));
}

}  // namespace kvx::test
