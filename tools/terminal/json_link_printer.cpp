#include "tools/terminal/json_link_printer.h"

#include <cstdio>

#include "client/clientdatasource.h"
#include "tools/common/console.h"
#include "tools/common/time_text.h"

namespace {

const char* NameOf(std::intptr_t link_event) {
  switch (link_event) {
    case LINK_EVENT_UP:
      return "up";
    case LINK_EVENT_CONNECT_FAILED:
      return "connect_failed";
    default:
      return "closed";
  }
}

std::int64_t SizeOf(const std::string& body) {
  return static_cast<std::int64_t>(body.size());
}

}  // namespace

void JsonLinkPrinter::OnConnecting(const Endpoint& server) {
  m_server = ShowEndpoint(server);
  PrintLine(Begin("connecting").GetText());
}

void JsonLinkPrinter::OnLinkEvent(std::intptr_t link_event) {
  m_statistics.CountLinkEvent(link_event, ft::GetTickTime());
  PrintLine(Begin(NameOf(link_event)).GetText());
}

void JsonLinkPrinter::OnPackage(const std::string& body) {
  m_statistics.CountPackage(SizeOf(body), ft::GetTickTime());
  PrintLine(Begin("package").AddBody(body, m_hex).GetText());
}

void JsonLinkPrinter::OnRequest(const std::string& body) {
  m_statistics.CountRequest(SizeOf(body), ft::GetTickTime());
  PrintLine(Begin("request").AddBody(body, m_hex).GetText());
}

void JsonLinkPrinter::OnEnd(const LinkEnd& end) {
  const Flow sent = m_statistics.GetSent().GetTotal();
  const Flow received = m_statistics.GetReceived().GetTotal();
  PrintLine(Begin("end")
                .Add("links", m_statistics.GetLinks())
                .Add("losses", m_statistics.GetLosses())
                .Add("failed_connects", m_statistics.GetFailures())
                .Add("requests", sent.packages)
                .Add("request_bytes", sent.bytes)
                .Add("packages", received.packages)
                .Add("package_bytes", received.bytes)
                .Add("status", std::int64_t{end.status})
                .Add("fault", end.fault)
                .GetText());
  if (!end.fault.empty()) std::fprintf(stderr, "ftc: %s\n", end.fault.c_str());
}

JsonObject JsonLinkPrinter::Begin(const char* event) const {
  JsonObject object;
  object.Add("time", ShowUtcTime(ft::GetNowTime())).Add("event", std::string(event));
  object.Add("server", m_server);
  return object;
}
