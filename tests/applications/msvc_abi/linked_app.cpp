#include "tests/msvc_abi/linked_cases.h"
#include "tests/msvc_abi/system.h"

namespace {

void TestWithoutClient() {
  CClientDataSource client;
  client.ChangeReceieveWnd(1, 1);
  client.FreeBuffer(nullptr);
  Check(client.IsOnline() == 0 && client.AskData("x", 1) == 0 && client.UnLink() == 0,
        "no client: IsOnline, AskData, UnLink");
}

void TestBalanceQuery(const Arguments& server) {
  CClientDataSource client;
  char* answer = nullptr;
  const char expected[] = {2, 0, 0, 0, 1, 'q'};
  CheckEqual(client.GetBalanceServer(server.host, server.port, 'q', &answer), 1,
             "GetBalanceServer: an answer");
  Check(answer != nullptr && memcmp(answer, expected, sizeof expected) == 0,
        "GetBalanceServer: length and body of the answer");
  client.FreeBuffer(answer);
}

// The server returns the body of every question.
bool AskAndCompare(CClientDataSource* client, Inbox* inbox, const char* body, unsigned length) {
  char* answer = nullptr;
  int answer_length = -1;
  if (client->AskData(body, length) != 0) return false;
  if (!inbox->Take(&answer, &answer_length) || answer == nullptr) return false;
  const bool same = answer_length == static_cast<int>(length) && memcmp(answer, body, length) == 0;
  client->FreeBuffer(answer);
  return same;
}

void TestLink(const Arguments& server) {
  static char large[100000];
  for (unsigned i = 0; i < sizeof large; ++i) large[i] = static_cast<char>(i * 7 + i / 256);
  CClientDataSource client;
  Inbox first;
  Inbox second;
  CheckEqual(client.Link("no address", server.port, server.host, server.port, "", 0, "", 0, "", 0,
                         first.Window(), Inbox::kMessage),
             1, "Link: starts a client");
  Check(first.TakeEvent(LINK_EVENT_CONNECT_FAILED), "Link: no link to the first server");
  Check(first.TakeEvent(LINK_EVENT_UP), "Link: a link to the second");
  CheckEqual(client.IsOnline(), 1, "Link: IsOnline");
  CheckEqual(StartClient(&client, server), 0, "Link: a second one is refused");
  Check(AskAndCompare(&client, &first, "a\0b\xff", 4), "AskData: zero bytes come back");
  Check(AskAndCompare(&client, &first, "", 0), "AskData: so does an empty body");
  Check(AskAndCompare(&client, &first, large, sizeof large), "AskData: so do 100,000 bytes");
  CheckEqual(client.AskData("x", 0x80000000U), -1, "AskData: 2^31 bytes are refused");
  client.ChangeReceieveWnd(second.Window(), Inbox::kMessage);
  Check(AskAndCompare(&client, &second, "elsewhere", 9), "ChangeReceieveWnd: the other window");
  CheckEqual(client.UnLink(), 0, "UnLink");
  CheckEqual(client.IsOnline(), 0, "UnLink: not online");
}

// A client that runs when the process ends, and that no member reaches any more.
void LeaveForgottenClient(const Arguments& server) {
  auto* const client = new CClientDataSource;
  Inbox inbox;
  client->Link(server.host, server.port, "", 0, "", 0, "", 0, "", 0, inbox.Window(),
               Inbox::kMessage);
  Check(inbox.TakeEvent(LINK_EVENT_UP), "forgotten client: is online");
  new CClientDataSource;
  CheckEqual(client->IsOnline(), 0, "forgotten client: no member reaches it");
}

}  // namespace

void RunCases(const Arguments& server) {
  TestObjects(server);
  TestTypeInformation();
  TestWithoutClient();
  TestBalanceQuery(server);
  TestLink(server);
  LeaveForgottenClient(server);
}
