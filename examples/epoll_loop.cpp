// A host with an event loop of its own: one epoll for the library's window, the input and a timer.
// Each line of input is a request. It goes out with a number, which the server sends back, and
// again on the next link if its own ends before the answer. Ends when all of the input is answered.
// usage: epoll_loop ADDRESS PORT [ADDRESS PORT]      try it against: ftc serve --port 9000
#include <sys/epoll.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

#include "client/clientdatasource.h"
#include "client/ftwindow.h"

namespace {

constexpr unsigned int kMessage = 1;
constexpr int kMostAtOnce = 200;            // messages, before the others have their turn
constexpr std::size_t kMostRequests = 500;  // without an answer; then the input waits
constexpr itimerspec kSoon = {{0, 0}, {0, 100'000'000}};

class Host {
 public:
  Host() {
    Watch(m_window_fd);
    Watch(m_timer);
  }

  ~Host() {
    m_source.UnLink();
    FTDestroyWindow(m_window);  // with the bodies that are left
    close(m_timer);
    close(m_epoll);
  }

  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void Run(const char* first, int first_port, const char* second, int second_port) {
    m_source.Link(first, first_port, second, second_port, "", 0, "", 0, "", 0, m_window, kMessage);
    WatchInput();
    while (!m_input_ended || !m_requests.empty()) {
      epoll_event ready{};
      if (epoll_wait(m_epoll, &ready, 1, -1) != 1) continue;
      if (ready.data.fd == m_window_fd) {
        TakeMessages();
      } else if (ready.data.fd == m_timer) {
        timerfd_settime(m_timer, 0, &kNever, nullptr);
      } else {
        ReadInput();
      }
      WatchInput();
      SendRequests();
      std::fflush(stdout);
    }
  }

 private:
  static constexpr itimerspec kNever{};

  bool Watch(int fd) const {
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.fd = fd;
    return epoll_ctl(m_epoll, EPOLL_CTL_ADD, fd, &event) == 0;
  }

  // What is left makes the descriptor readable again.
  void TakeMessages() {
    FTWindowMsg msg;
    for (int i = 0; i < kMostAtOnce && FTWaitMessage(m_window, &msg, 0) == 1; ++i) {
      if (msg.wParam == 0) {
        OnLinkEvent(static_cast<int>(msg.lParam));
      } else {
        char* const body = reinterpret_cast<char*>(msg.wParam);
        OnPackage(std::string(body, static_cast<std::size_t>(msg.lParam)));
        m_source.FreeBuffer(body);
      }
    }
  }

  void OnLinkEvent(int link_event) {
    std::printf("link event %d\n", link_event);
    m_up = link_event == LINK_EVENT_UP;
    m_next = 0;  // the library does not send again what a link left unanswered
  }

  void OnPackage(const std::string& body) {
    std::printf("package: %s\n", body.c_str());
    m_requests.erase(std::strtoul(body.c_str(), nullptr, 10));  // a push has no number of ours
  }

  // A refused request stays for later: the link is just ending, or its server reads too slowly.
  void SendRequests() {
    for (auto request = m_requests.lower_bound(m_next); m_up && request != m_requests.end();
         ++request) {
      const std::string& body = request->second;
      if (m_source.AskData(body.data(), static_cast<unsigned int>(body.size())) != 0) {
        timerfd_settime(m_timer, 0, &kSoon, nullptr);
        return;
      }
      m_next = request->first + 1;
    }
  }

  bool WantsInput() const { return !m_input_ended && m_requests.size() < kMostRequests; }

  // epoll takes no files; they are always ready.
  void WatchInput() {
    while (WantsInput() && !m_input_watched) {
      m_input_watched = Watch(STDIN_FILENO);
      if (!m_input_watched) ReadInput();
    }
    if (WantsInput() || !m_input_watched) return;
    epoll_ctl(m_epoll, EPOLL_CTL_DEL, STDIN_FILENO, nullptr);
    m_input_watched = false;
  }

  void ReadInput() {
    char bytes[4096];
    const ssize_t count = read(STDIN_FILENO, bytes, sizeof bytes);
    m_input_ended = count <= 0;
    for (ssize_t i = 0; i < count; ++i) {
      if (bytes[i] == '\n') {
        AddRequest();
      } else {
        m_line += bytes[i];
      }
    }
    if (m_input_ended && !m_line.empty()) AddRequest();
  }

  void AddRequest() {
    ++m_number;
    m_requests.emplace(m_number, std::to_string(m_number) + ' ' + m_line);
    m_line.clear();
  }

  CClientDataSource m_source;
  const unsigned int m_window = FTCreateWindow();
  const int m_window_fd = FTGetWindowFd(m_window);
  const int m_epoll = epoll_create1(EPOLL_CLOEXEC);
  const int m_timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);

  bool m_up = false;
  std::map<unsigned long, std::string> m_requests;  // not answered yet, by number
  unsigned long m_number = 0;                       // of the last one
  unsigned long m_next = 0;  // from here on they are not sent on this link yet

  std::string m_line;  // what is there of the next one
  bool m_input_watched = false;
  bool m_input_ended = false;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3 && argc != 5) {
    std::fprintf(stderr, "usage: epoll_loop ADDRESS PORT [ADDRESS PORT]\n");
    return 2;
  }
  const bool two = argc == 5;
  Host host;
  host.Run(argv[1], std::atoi(argv[2]), two ? argv[3] : "", two ? std::atoi(argv[4]) : 0);
  return 0;
}
