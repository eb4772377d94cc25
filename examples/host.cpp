// A host in one page: links to a server, asks it one thing, prints the answer.
// usage: host ADDRESS PORT      try it against: ftc serve --port 9000
#include <cstdio>
#include <cstdlib>

#include "client/clientdatasource.h"
#include "client/ftwindow.h"

int main(int argc, char** argv) {
  if (argc != 3) return std::fprintf(stderr, "usage: host ADDRESS PORT\n"), 2;

  const unsigned int message = 1;  // any number that is not 0
  const unsigned int window = FTCreateWindow();
  CClientDataSource source;
  source.Link(argv[1], std::atoi(argv[2]), "", 0, "", 0, "", 0, "", 0, window, message);

  bool answered = false;
  FTWindowMsg msg;
  while (!answered && FTWaitMessage(window, &msg, 15000) == 1) {
    if (msg.wParam != 0) {  // a package: the body is ours until FreeBuffer
      char* const body = reinterpret_cast<char*>(msg.wParam);
      std::printf("answer: %.*s\n", static_cast<int>(msg.lParam), body);
      source.FreeBuffer(body);
      answered = true;
    } else if (msg.lParam == LINK_EVENT_UP) {
      source.AskData("hello", 5);
    } else {  // not up: the library tries again by itself, but this host gives up
      break;
    }
  }
  if (!answered) std::fprintf(stderr, "host: no answer from %s:%s\n", argv[1], argv[2]);

  source.UnLink();
  FTDestroyWindow(window);
  return answered ? 0 : 1;
}
