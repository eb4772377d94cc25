// A desktop application as users have it: links to the servers in its first field, lists every
// notification, sends the line typed into its last field, and shows its state below.
// usage: win32_monitor [ADDRESS:PORT ...]      up to five servers, tried in this order
#include <windows.h>

#include <algorithm>
#include <climits>
#include <cstdio>
#include <string>
#include <vector>

#include "client/clientdatasource.h"

namespace {

constexpr UINT kNotification = WM_APP;  // the message of all notifications
constexpr std::size_t kMostServers = 5;
constexpr std::size_t kShownBytes = 96;  // of a text; of other bytes a quarter
constexpr LRESULT kMostLines = 2000;
constexpr int kMostAtOnce = 200;  // notifications for one drawing of the list

struct Server {
  std::string address;
  int port = 0;
};

// Dotted addresses only, as for CClientDataSource::Link.
bool ParseServer(const std::string& text, Server* server) {
  unsigned parts[4];
  unsigned port = 0;
  int end = 0;
  if (std::sscanf(text.c_str(), "%3u.%3u.%3u.%3u:%5u%n", &parts[0], &parts[1], &parts[2], &parts[3],
                  &port, &end) != 5) {
    return false;
  }
  if (text[static_cast<std::size_t>(end)] != '\0' || port < 1 || port > 65535) return false;
  if (*std::max_element(parts, parts + 4) > 255) return false;
  *server = {text.substr(0, text.find(':')), static_cast<int>(port)};
  return true;
}

// Empty when one of the words is no server, and when there are none or too many.
std::vector<Server> ParseServers(const std::string& text) {
  std::vector<Server> servers;
  std::size_t begin = text.find_first_not_of(' ');
  while (begin != std::string::npos) {
    const std::size_t end = std::min(text.find(' ', begin), text.size());
    Server server;
    if (servers.size() == kMostServers) return {};
    if (!ParseServer(text.substr(begin, end - begin), &server)) return {};
    servers.push_back(server);
    begin = text.find_first_not_of(' ', end);
  }
  return servers;
}

std::string ToUtf8(const std::wstring& wide) {
  std::string text(wide.size() * 3, '\0');
  text.resize(static_cast<std::size_t>(
      WideCharToMultiByte(CP_UTF8, 0, wide.data(), static_cast<int>(wide.size()), text.data(),
                          static_cast<int>(text.size()), nullptr, nullptr)));
  return text;
}

// Empty when the text is no UTF-8.
std::wstring FromUtf8(const std::string& text) {
  const int size = static_cast<int>(text.size());
  std::wstring wide(text.size(), L'\0');
  wide.resize(static_cast<std::size_t>(
      MultiByteToWideChar(CP_UTF8, MB_ERR_INVALID_CHARS, text.data(), size, wide.data(), size)));
  return wide;
}

std::string ToHex(const std::string& bytes) {
  static constexpr char kDigits[] = "0123456789ABCDEF";
  std::string text = "hex";
  for (const char byte : bytes) text += {' ', kDigits[byte >> 4 & 15], kDigits[byte & 15]};
  return text;
}

// Its length and its beginning: as text when it is UTF-8 without control characters, else in hex.
std::string ShowBody(const std::string& body) {
  std::size_t end = std::min(body.size(), kShownBytes);
  while (end > 0 && end < body.size() && (body[end] & 0xC0) == 0x80) --end;  // not inside a letter
  std::string shown = body.substr(0, end);
  const std::wstring wide = FromUtf8(shown);
  const auto is_control = [](wchar_t c) { return c < 0x20 || (c >= 0x7F && c < 0xA0); };
  if (wide.empty() || std::any_of(wide.begin(), wide.end(), is_control)) {
    end = std::min(body.size(), kShownBytes / 4);
    shown = ToHex(body.substr(0, end));
  }
  const std::string count = std::to_string(body.size()) + (body.size() == 1 ? " byte" : " bytes");
  if (body.empty()) return count;
  return count + ": " + shown + (end < body.size() ? " ..." : "");
}

std::string ClockTime() {
  char text[16] = "";
  GetTimeFormatA(LOCALE_INVARIANT, 0, nullptr, "HH:mm:ss", text, sizeof text);
  return text;
}

class MonitorWindow {
 public:
  bool Create(HINSTANCE instance, const std::string& servers) {
    WNDCLASSW type{};
    type.lpfnWndProc = &MonitorWindow::Procedure;
    type.hInstance = instance;
    type.hIcon = LoadIconA(nullptr, IDI_APPLICATION);
    type.hCursor = LoadCursorA(nullptr, IDC_ARROW);
    type.hbrBackground = reinterpret_cast<HBRUSH>(COLOR_BTNFACE + 1);
    type.lpszClassName = L"ftclient.monitor";
    if (RegisterClassW(&type) == 0) return false;
    CreateWindowExW(0, type.lpszClassName, L"ftclient monitor",
                    WS_OVERLAPPEDWINDOW | WS_CLIPCHILDREN, CW_USEDEFAULT, CW_USEDEFAULT, 680, 420,
                    nullptr, nullptr, instance, this);
    if (m_window == nullptr) return false;
    SetWindowTextW(Control(kServers), FromUtf8(servers).c_str());
    SetState(State::kNotLinked);
    ShowWindow(m_window, SW_SHOW);
    if (!servers.empty()) Link();
    return true;
  }

  HWND Handle() const { return m_window; }

 private:
  enum ControlId { kServers = 100, kLink, kUnLink, kList, kInput, kSend, kState };
  enum class State { kNotLinked, kLinking, kLinked };

  static LRESULT CALLBACK Procedure(HWND window, UINT message, WPARAM w_param, LPARAM l_param) {
    if (message == WM_NCCREATE) {
      void* const self = reinterpret_cast<CREATESTRUCTW*>(l_param)->lpCreateParams;
      SetWindowLongPtrW(window, GWLP_USERDATA, reinterpret_cast<LONG_PTR>(self));
      static_cast<MonitorWindow*>(self)->m_window = window;
    }
    auto* const self = reinterpret_cast<MonitorWindow*>(GetWindowLongPtrW(window, GWLP_USERDATA));
    LRESULT result = 0;
    if (self != nullptr && self->OnMessage(message, w_param, l_param, &result)) return result;
    return DefWindowProcW(window, message, w_param, l_param);
  }

  bool OnMessage(UINT message, WPARAM w_param, LPARAM l_param, LRESULT* result) {
    switch (message) {
      case kNotification:
        Tell(kList, WM_SETREDRAW, FALSE);
        OnNotification(w_param, l_param);
        TakeNotifications(kMostAtOnce);
        Tell(kList, WM_SETREDRAW, TRUE);
        RedrawWindow(Control(kList), nullptr, nullptr, RDW_FRAME | RDW_INVALIDATE | RDW_UPDATENOW);
        return true;
      case WM_COMMAND:
        if (LOWORD(w_param) == kLink) Link();
        if (LOWORD(w_param) == kUnLink) UnLink();
        if (LOWORD(w_param) == kSend) Send();
        return true;
      case DM_GETDEFID:
        *result = MAKELRESULT(EnterKeyButton(), DC_HASDEFID);
        return true;
      case WM_CREATE:
        MakeControls();
        return true;
      case WM_SIZE:
        if (w_param != SIZE_MINIMIZED) LayOut(LOWORD(l_param), HIWORD(l_param));
        return true;
      case WM_GETMINMAXINFO:
        reinterpret_cast<MINMAXINFO*>(l_param)->ptMinTrackSize = {420, 240};
        return true;
      case WM_SETFOCUS:
        SetFocus(Control(m_state == State::kNotLinked ? kServers : kInput));
        return true;
      case WM_CLOSE:
        UnLink();
        DestroyWindow(m_window);
        return true;
      case WM_NCDESTROY:
        DeleteObject(m_font);
        PostQuitMessage(0);
        return false;
      default:
        return false;
    }
  }

  // Those that are queued already.
  void TakeNotifications(int most) {
    MSG message;
    while (most-- > 0 &&
           PeekMessageW(&message, m_window, kNotification, kNotification, PM_REMOVE) != FALSE) {
      OnNotification(message.wParam, message.lParam);
    }
  }

  // A body belongs to us until FreeBuffer.
  void OnNotification(WPARAM w_param, LPARAM l_param) {
    if (w_param == 0) return OnLinkEvent(l_param);
    auto* const body = reinterpret_cast<char*>(w_param);
    Show("received " + ShowBody(std::string(body, static_cast<std::size_t>(l_param))));
    m_client.FreeBuffer(body);
  }

  // Each attempt ends with one of the two last events; the next one is for the next server.
  void OnLinkEvent(LPARAM link_event) {
    if (link_event == LINK_EVENT_UP) {
      Show("link up: " + CurrentServer());
      return SetState(State::kLinked);
    }
    Show((link_event == LINK_EVENT_CLOSED ? "link closed: " : "connect failed: ") +
         CurrentServer());
    m_turn = (m_turn + 1) % m_servers.size();
    SetState(State::kLinking);
  }

  void Link() {
    m_servers = ParseServers(TextOf(kServers));
    if (m_servers.empty()) return Show("name one to five servers, each as ADDRESS:PORT");
    std::vector<Server> list = m_servers;
    list.resize(kMostServers);  // a port of 0 ends the list
    const auto window = static_cast<unsigned>(reinterpret_cast<UINT_PTR>(m_window));
    m_client.Link(list[0].address.c_str(), list[0].port, list[1].address.c_str(), list[1].port,
                  list[2].address.c_str(), list[2].port, list[3].address.c_str(), list[3].port,
                  list[4].address.c_str(), list[4].port, window, kNotification);
    m_turn = 0;
    SetState(State::kLinking);
    SetFocus(Control(kInput));
  }

  // UnLink may block for a moment. What was posted before it is still in this thread's queue.
  void UnLink() {
    if (m_state == State::kNotLinked) return;
    SetWindowTextW(Control(kState), L"Unlinking ...");
    UpdateWindow(Control(kState));
    const HCURSOR cursor = SetCursor(LoadCursorA(nullptr, IDC_WAIT));
    m_client.UnLink();
    SetCursor(cursor);
    TakeNotifications(INT_MAX);
    Show("unlinked");
    SetState(State::kNotLinked);
    SetFocus(Control(kServers));
  }

  // A request that is made before the link is up is lost, and nobody says so.
  void Send() {
    const std::string request = TextOf(kInput);
    SetFocus(Control(kInput));
    if (request.empty()) return;
    const auto size = static_cast<unsigned>(request.size());
    if (m_client.IsOnline() == 0 || m_client.AskData(request.data(), size) != 0) {
      return Show("not sent, the link is gone");
    }
    Show("sent " + ShowBody(request));
    SetWindowTextW(Control(kInput), L"");
  }

  void MakeControls() {
    NONCLIENTMETRICSW metrics{};
    metrics.cbSize = sizeof metrics;
    SystemParametersInfoW(SPI_GETNONCLIENTMETRICS, metrics.cbSize, &metrics, 0);
    m_font = CreateFontIndirectW(&metrics.lfMessageFont);
    constexpr DWORD kField = WS_BORDER | WS_TABSTOP;
    MakeControl(L"EDIT", L"", kField | ES_AUTOHSCROLL, kServers);
    MakeControl(L"BUTTON", L"Link", WS_TABSTOP, kLink);
    MakeControl(L"BUTTON", L"Unlink", WS_TABSTOP, kUnLink);
    MakeControl(L"LISTBOX", L"", kField | WS_VSCROLL | LBS_NOINTEGRALHEIGHT, kList);
    MakeControl(L"EDIT", L"", kField | ES_AUTOHSCROLL, kInput);
    MakeControl(L"BUTTON", L"Send", WS_TABSTOP, kSend);
    MakeControl(L"STATIC", L"", 0, kState);
  }

  void MakeControl(const wchar_t* type, const wchar_t* text, DWORD style, ControlId id) {
    CreateWindowExW(0, type, text, WS_CHILD | WS_VISIBLE | style, 0, 0, 0, 0, m_window,
                    reinterpret_cast<HMENU>(static_cast<UINT_PTR>(id)), nullptr, nullptr);
    Tell(id, WM_SETFONT, reinterpret_cast<WPARAM>(m_font), TRUE);
  }

  void LayOut(int width, int height) {
    constexpr int kGap = 8;
    constexpr int kButton = 76;
    const int row = static_cast<int>(Tell(kList, LB_GETITEMHEIGHT)) + 9;
    const int list = row + 2 * kGap;              // top of the list
    const int input = height - 2 * (row + kGap);  // top of the input field
    const int unlink = width - kGap - kButton;    // left of the buttons
    const int link = unlink - kGap - kButton;
    const auto place = [this](ControlId id, int left, int top, int right, int bottom) {
      MoveWindow(Control(id), left, top, right - left, bottom - top, TRUE);
    };
    const bool at_end = IsListAtEnd();
    place(kServers, kGap, kGap, link - kGap, kGap + row);
    place(kLink, link, kGap, link + kButton, kGap + row);
    place(kUnLink, unlink, kGap, unlink + kButton, kGap + row);
    place(kList, kGap, list, width - kGap, input - kGap);
    place(kInput, kGap, input, unlink - kGap, input + row);
    place(kSend, unlink, input, unlink + kButton, input + row);
    place(kState, kGap, input + row + kGap, width - kGap, height);
    if (at_end) Tell(kList, WM_VSCROLL, SB_BOTTOM);
  }

  int EnterKeyButton() const {
    const HWND focus = GetFocus();
    if (focus == Control(kUnLink)) return kUnLink;
    return focus == Control(kServers) || focus == Control(kLink) ? kLink : kSend;
  }

  // Scrolls to the new line unless somebody has scrolled away from the last one.
  void Show(const std::string& line) {
    const bool at_end = IsListAtEnd();
    if (Tell(kList, LB_GETCOUNT) == kMostLines) Tell(kList, LB_DELETESTRING, 0);
    const std::wstring wide = FromUtf8(ClockTime() + "  " + line);
    Tell(kList, LB_ADDSTRING, 0, reinterpret_cast<LPARAM>(wide.c_str()));
    if (at_end) Tell(kList, WM_VSCROLL, SB_BOTTOM);
  }

  bool IsListAtEnd() const {
    RECT area;
    GetClientRect(Control(kList), &area);
    const LRESULT visible = area.bottom / Tell(kList, LB_GETITEMHEIGHT);
    return Tell(kList, LB_GETTOPINDEX) + visible >= Tell(kList, LB_GETCOUNT);
  }

  void SetState(State state) {
    m_state = state;
    std::string text = "Not linked";
    if (state == State::kLinking) text = "Linking to " + CurrentServer();
    if (state == State::kLinked) text = "Linked to " + CurrentServer();
    SetWindowTextW(Control(kState), FromUtf8(text + " since " + ClockTime()).c_str());
    EnableWindow(Control(kServers), state == State::kNotLinked);
    EnableWindow(Control(kLink), state == State::kNotLinked);
    EnableWindow(Control(kUnLink), state != State::kNotLinked);
    EnableWindow(Control(kSend), state == State::kLinked);
  }

  std::string CurrentServer() const {
    return m_servers[m_turn].address + ":" + std::to_string(m_servers[m_turn].port);
  }

  std::string TextOf(ControlId id) const {
    std::wstring text(static_cast<std::size_t>(GetWindowTextLengthW(Control(id))) + 1, L'\0');
    text.resize(static_cast<std::size_t>(
        GetWindowTextW(Control(id), text.data(), static_cast<int>(text.size()))));
    return ToUtf8(text);
  }

  HWND Control(ControlId id) const { return GetDlgItem(m_window, id); }

  LRESULT Tell(ControlId id, UINT message, WPARAM w_param = 0, LPARAM l_param = 0) const {
    return SendDlgItemMessageW(m_window, id, message, w_param, l_param);
  }

  HWND m_window = nullptr;
  HFONT m_font = nullptr;
  State m_state = State::kNotLinked;
  std::vector<Server> m_servers;
  std::size_t m_turn = 0;  // the server that the client tries or is linked to
  CClientDataSource m_client;
};

}  // namespace

int WINAPI WinMain(HINSTANCE instance, HINSTANCE, LPSTR command_line, int) {
  MonitorWindow window;
  if (!window.Create(instance, command_line)) return 1;
  MSG message;
  while (GetMessageW(&message, nullptr, 0, 0) > 0) {
    if (IsDialogMessageW(window.Handle(), &message) != FALSE) continue;
    TranslateMessage(&message);
    DispatchMessageW(&message);
  }
  return 0;
}
