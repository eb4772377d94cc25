#pragma once

#include <string>

#include "tools/common/json_object.h"
#include "tools/host/link_observer.h"
#include "tools/host/link_statistics.h"

// Prints all that happens in a session, one JSON object a line.
class JsonLinkPrinter final : public LinkObserver {
 public:
  // Bodies that are printable are text, unless all are to be hex digits.
  explicit JsonLinkPrinter(bool hex) : m_hex(hex) {}

  void OnConnecting(const Endpoint& server) override;
  void OnLinkEvent(std::intptr_t link_event) override;
  void OnPackage(const std::string& body) override;
  void OnRequest(const std::string& body) override;
  void OnEnd(const LinkEnd& end) override;

 private:
  JsonObject Begin(const char* event) const;

  const bool m_hex;
  std::string m_server;
  LinkStatistics m_statistics{ft::GetTickTime()};
};
