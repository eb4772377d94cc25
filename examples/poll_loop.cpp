// A host with an event loop of its own: one poll() for the keyboard and the library's window.
// usage: poll_loop ADDRESS PORT      sends each line of input; ends with the last answer
#include <poll.h>

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "client/clientdatasource.h"
#include "client/ftwindow.h"

namespace {

constexpr unsigned int kMessage = 1;
constexpr int kStandardInput = 0;
constexpr int kNothing = -1;  // poll() passes over it

struct Host {
  CClientDataSource source;
  unsigned int window = FTCreateWindow();
  bool up = false;
  bool input_ended = false;
  int unanswered = 0;
};

void Handle(Host* host, const FTWindowMsg& msg) {
  if (msg.wParam == 0) {
    std::printf("link event %d\n", static_cast<int>(msg.lParam));
    host->up = msg.lParam == LINK_EVENT_UP;
    host->unanswered = 0;  // a new link brings no answers to old requests
    return;
  }
  char* const body = reinterpret_cast<char*>(msg.wParam);
  std::printf("package: %.*s\n", static_cast<int>(msg.lParam), body);
  host->source.FreeBuffer(body);
  if (host->unanswered > 0) --host->unanswered;
}

// Sends what has been read ahead as well: poll() would not tell about it.
void SendLines(Host* host) {
  do {
    std::string line;
    if (!std::getline(std::cin, line)) {
      host->input_ended = true;
      return;
    }
    host->source.AskData(line.data(), static_cast<unsigned int>(line.size()));
    ++host->unanswered;
  } while (std::cin.rdbuf()->in_avail() > 0);
}

void RunLoop(Host* host) {
  while (!host->input_ended || host->unanswered > 0) {
    const bool read_input = host->up && !host->input_ended;
    pollfd watched[] = {{FTGetWindowFd(host->window), POLLIN, 0},
                        {read_input ? kStandardInput : kNothing, POLLIN, 0}};
    if (poll(watched, 2, -1) < 0) return;
    FTWindowMsg msg;
    while (FTWaitMessage(host->window, &msg, 0) == 1) Handle(host, msg);
    if (watched[1].revents != 0) SendLines(host);
    std::fflush(stdout);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) {
    std::fprintf(stderr, "usage: poll_loop ADDRESS PORT\n");
    return 2;
  }
  std::ios::sync_with_stdio(false);  // so that in_avail() knows what was read ahead
  Host host;
  host.source.Link(argv[1], std::atoi(argv[2]), "", 0, "", 0, "", 0, "", 0, host.window, kMessage);
  RunLoop(&host);
  host.source.UnLink();
  FTDestroyWindow(host.window);
  return 0;
}
