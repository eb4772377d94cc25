#include "tools/terminal/link_printer.h"

#include <cstdio>
#include <utility>

#include "tools/common/console.h"
#include "tools/host/notification.h"

void LinkPrinter::OnConnecting(const Endpoint& server) {
  // Up to the time-out of the first connect nothing else would show.
  if (!std::exchange(m_first, false)) return;
  std::fprintf(stderr, "ftc: connecting to %s\n", ShowEndpoint(server).c_str());
}

void LinkPrinter::OnLinkEvent(std::intptr_t link_event) {
  PrintStamped(ShowLinkEvent(link_event));
}

void LinkPrinter::OnPackage(const std::string& body) {
  PrintStamped(ShowPackage(body, m_style, body.size()));
}

void LinkPrinter::OnRequestsWait() {
  PrintStamped("waiting for the link; lines are sent when it is up");
}

void LinkPrinter::OnEnd(const LinkEnd& end) {
  if (!end.fault.empty()) std::fprintf(stderr, "ftc: %s\n", end.fault.c_str());
}
