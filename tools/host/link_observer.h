#pragma once

#include <cstdint>
#include <string>

#include "tools/common/endpoint.h"

struct LinkEnd {
  int status = 0;     // for the shell
  std::string fault;  // what went wrong; empty: nothing
};

// Who is told what happens in a session, in the order of the events and on the session's thread.
class LinkObserver {
 public:
  virtual ~LinkObserver() = default;

  // The server whose turn it is: the first one, and the next after each failed attempt or loss. All
  // that is told until the next call concerns this server.
  virtual void OnConnecting(const Endpoint& server) = 0;
  virtual void OnLinkEvent(std::intptr_t link_event) = 0;
  virtual void OnPackage(const std::string& body) = 0;
  virtual void OnRequest(const std::string& body) = 0;  // handed to the library
  virtual void OnRequestsWait() {}                      // there are requests, but there is no link

  // Between events, at least every 50 ms.
  virtual void OnPass() {}

  // The last call; the client has ended.
  virtual void OnEnd(const LinkEnd& end) = 0;
};
