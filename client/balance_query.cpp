#include "client/balance_query.h"

#include <cstdint>
#include <string>

#include "00shcode/ftmtsockimpl/sock.h"
#include "00shcode/mytoolkit/clock.h"
#include "client/client_slot.h"
#include "client/comm_thread.h"

namespace {

constexpr int kLinkTests = 800;
constexpr std::uint32_t kLinkTestPauseMs = 10;
constexpr int kAnswerPolls = 10000;
constexpr std::uint32_t kAnswerPollPauseMs = 1;
constexpr char kQuestionMark = 0x01;

// The client ends with the question, whatever ends that.
struct ClientEnd {
  ~ClientEnd() { ft::TearDownClient(); }
};

bool LookUpAddress(const char* host, std::string* dotted) {
  FTSockAddr address{};
  if (host == nullptr || !platform::LookUpHost(host, &address.address)) return false;
  FTSockAddrToStr(&address, nullptr, dotted, nullptr);
  return true;
}

std::string WaitForLink(CClientCommThread* client) {
  for (int tests = 0; tests < kLinkTests; ++tests) {
    std::string link_id = client->GetLinkId();
    if (client->IsRunning() != 0 && client->IsLinkUp(link_id) != 0) return link_id;
    ft::Sleep(kLinkTestPauseMs);
  }
  return {};
}

char* WaitForAnswer(CClientCommThread* client, const std::string& link_id) {
  for (int polls = 0; polls <= kAnswerPolls; ++polls) {
    ft::Sleep(kAnswerPollPauseMs);
    // In this order: once the loss is known, everything received has been queued.
    const bool lost = client->GetLinkId() != link_id;
    char* const answer = client->PopRecvPkg();
    if (answer != nullptr || lost) return answer;
  }
  return nullptr;
}

char* Ask(CClientCommThread* client, const std::string& address, int port, char question) {
  client->SetServers({ServerEntry{address, port}});
  client->StartThread(0);
  const std::string link_id = WaitForLink(client);
  if (link_id.empty()) return nullptr;
  const char request[2] = {kQuestionMark, question};
  client->SendRequest(request, sizeof request);
  return WaitForAnswer(client, link_id);
}

}  // namespace

int ft::QueryBalanceServer(const char* host, int port, char question, char** answer) {
  if (answer == nullptr) return 0;
  *answer = nullptr;
  // Building the client makes the process ready for sockets, which the look-up needs.
  g_pClientCommThread = new CClientCommThread;
  {
    const ClientEnd end;
    std::string address;
    if (LookUpAddress(host, &address)) *answer = Ask(g_pClientCommThread, address, port, question);
  }
  return *answer != nullptr ? 1 : 0;
}
