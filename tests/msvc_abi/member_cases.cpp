#include "tests/msvc_abi/cases.h"
#include "tests/msvc_abi/inbox.h"
#include "tests/msvc_abi/system.h"

namespace {

void TestWithoutClient() {
  CClientDataSource client;
  CheckEqual(client.IsOnline(), 0, "no client: IsOnline");
  CheckEqual(client.AskData("x", 1), 0, "no client: AskData");
  CheckEqual(client.UnLink(), 0, "no client: UnLink");
  client.ChangeReceieveWnd(1, 1);
  client.FreeBuffer(nullptr);
}

void TestBalanceQuery(const Arguments& arguments) {
  CClientDataSource client;
  char* answer = nullptr;
  const char expected[] = {2, 0, 0, 0, 1, 'q'};
  CheckEqual(client.GetBalanceServer(arguments.host, arguments.port, 'q', &answer), 1,
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

void TestAnswers(CClientDataSource* client, Inbox* inbox) {
  static char large[100000];
  for (unsigned i = 0; i < sizeof large; ++i) large[i] = static_cast<char>(i * 7 + i / 256);
  Check(AskAndCompare(client, inbox, "hello", 5), "AskData: text comes back");
  Check(AskAndCompare(client, inbox, "a\0b\xff", 4), "AskData: so do zero bytes");
  Check(AskAndCompare(client, inbox, "", 0), "AskData: so does an empty body");
  Check(AskAndCompare(client, inbox, large, sizeof large), "AskData: so do 100,000 bytes");
  CheckEqual(client->AskData("x", 0x80000000U), -1, "AskData: 2^31 bytes are refused");
}

void TestLink(const Arguments& arguments) {
  CClientDataSource client;
  Inbox inbox;
  Inbox second;
  CheckEqual(client.Link(arguments.host, arguments.port, "", 0, "", 0, "", 0, "", 0, inbox.Window(),
                         Inbox::kMessage),
             1, "Link: starts a client");
  Check(inbox.TakeEvent(LINK_EVENT_UP), "Link: the window is told that the link is up");
  CheckEqual(client.IsOnline(), 1, "Link: IsOnline");
  CheckEqual(StartClient(&client, arguments), 0, "Link: a second one is refused");
  TestAnswers(&client, &inbox);
  client.ChangeReceieveWnd(second.Window(), Inbox::kMessage);
  Check(AskAndCompare(&client, &second, "elsewhere", 9), "ChangeReceieveWnd: the other window");
  CheckEqual(client.UnLink(), 0, "UnLink");
  CheckEqual(client.IsOnline(), 0, "UnLink: not online");
}

void TestSecondServer(const Arguments& arguments) {
  CClientDataSource client;
  Inbox inbox;
  client.Link("no address", arguments.port, arguments.host, arguments.port, "", 0, "", 0, "", 0,
              inbox.Window(), Inbox::kMessage);
  Check(inbox.TakeEvent(LINK_EVENT_CONNECT_FAILED), "two servers: no link to the first");
  Check(inbox.TakeEvent(LINK_EVENT_UP), "two servers: the link to the second");
}

}  // namespace

void TestMembers(const Arguments& arguments) {
  TestWithoutClient();
  TestBalanceQuery(arguments);
  TestLink(arguments);
  TestSecondServer(arguments);
}

void LeaveForgottenClient(const Arguments& arguments) {
  auto* const client = new CClientDataSource;
  Inbox inbox;
  client->Link(arguments.host, arguments.port, "", 0, "", 0, "", 0, "", 0, inbox.Window(),
               Inbox::kMessage);
  Check(inbox.TakeEvent(LINK_EVENT_UP), "forgotten client: is online");
  new CClientDataSource;
  CheckEqual(client->IsOnline(), 0, "forgotten client: no member reaches it");
}
