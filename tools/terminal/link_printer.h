#pragma once

#include "tools/common/body_text.h"
#include "tools/host/link_observer.h"

// Prints a session's link events and packages, one line each with the time of day.
class LinkPrinter final : public LinkObserver {
 public:
  explicit LinkPrinter(BodyStyle style) : m_style(style) {}

  void OnConnecting(const Endpoint& server) override;
  void OnLinkEvent(std::intptr_t link_event) override;
  void OnPackage(const std::string& body) override;
  void OnRequest(const std::string&) override {}
  void OnRequestsWait() override;
  void OnEnd(const LinkEnd& end) override;

 private:
  const BodyStyle m_style;
  bool m_first = true;
};
