// An application that loads the library while it runs, finds the members by their names, and lets
// it go again.
#include "client/clientdatasource.h"
#include "tests/msvc_abi/app.h"
#include "tests/msvc_abi/inbox.h"
#include "tests/msvc_abi/raw_call.h"
#include "tests/msvc_abi/system.h"

namespace {

constexpr int kFurtherLoads = 3;

enum Name {
  kConstruct,
  kCopy,
  kAssign,
  kDestroy,
  kTable,
  kLink,
  kUnLink,
  kIsOnline,
  kAskData,
  kChangeReceieveWnd,
  kFreeBuffer,
  kGetBalanceServer,
  kNames
};

constexpr const char* kDecorated[kNames] = {
    "??0CClientDataSource@@QAE@XZ",
    "??0CClientDataSource@@QAE@ABV0@@Z",
    "??4CClientDataSource@@QAEAAV0@ABV0@@Z",
    "??1CClientDataSource@@UAE@XZ",
    "??_7CClientDataSource@@6B@",
    "?Link@CClientDataSource@@QAEHPBDH0H0H0H0HII@Z",
    "?UnLink@CClientDataSource@@QAEHXZ",
    "?IsOnline@CClientDataSource@@QAEHXZ",
    "?AskData@CClientDataSource@@QAEHPBDI@Z",
    "?ChangeReceieveWnd@CClientDataSource@@QAEXII@Z",
    "?FreeBuffer@CClientDataSource@@QAEXPAD@Z",
    "?GetBalanceServer@CClientDataSource@@QAEHPADHDPAPAD@Z",
};

unsigned Number(const void* address) {
  return reinterpret_cast<unsigned>(address);
}

class Library {
 public:
  Library() : m_module(LoadLibraryA("ftclient.dll")) {
    Check(m_module != nullptr, "LoadLibrary");
    for (int i = 0; i < kNames; ++i) {
      m_addresses[i] = GetProcAddress(m_module, kDecorated[i]);
      Check(m_addresses[i] != nullptr, kDecorated[i]);
    }
  }

  ~Library() {
    Check(FreeLibrary(m_module) != 0, "FreeLibrary");
    Check(GetModuleHandleA("ftclient.dll") == nullptr, "FreeLibrary: the library is gone");
  }

  void* Address(Name name) const { return m_addresses[name]; }

  // The stack stands 4 bytes further with each call.
  template <typename... Values>
  unsigned Call(Name name, void* object, Values... values) {
    const unsigned arguments[] = {values..., 0};
    m_skew = (m_skew + 4) % 16;
    const RawCall call =
        CallMember(m_addresses[name], object, arguments, sizeof...(values), m_skew);
    m_clean_stack = m_clean_stack && call.stack_drift == 0;
    return call.result;
  }

  bool LeftCleanStacks() const { return m_clean_stack; }

 private:
  void* m_module;
  void* m_addresses[kNames];
  unsigned m_skew = 0;
  bool m_clean_stack = true;
};

struct Object {
  const void* table = nullptr;
};

void MakeObjects(Library* library, Object* client) {
  Object copy;
  Object other;
  Check(library->Call(kConstruct, client) == Number(client), "constructor: returns the object");
  Check(library->Call(kConstruct, &other) == Number(&other), "constructor: of another object");
  Check(library->Call(kCopy, &copy, Number(client)) == Number(&copy),
        "copy constructor: returns the object");
  Check(library->Call(kAssign, &other, Number(&copy)) == Number(&other),
        "operator=: returns the object");
  const void* const table = library->Address(kTable);
  Check(client->table == table && copy.table == table && other.table == table,
        "objects point to the exported table");
  library->Call(kDestroy, &copy);
  library->Call(kDestroy, &other);
}

// A caller pushes four bytes for a char and leaves anything in the upper three.
void AskForBalance(Library* library, Object* client, const Arguments& arguments) {
  char* answer = nullptr;
  Check(
      library->Call(kGetBalanceServer, client, Number(arguments.host),
                    static_cast<unsigned>(arguments.port), 0xABCDEF00U | 'q', Number(&answer)) == 1,
      "GetBalanceServer: an answer");
  Check(answer != nullptr && answer[0] == 2 && answer[4] == 1 && answer[5] == 'q',
        "GetBalanceServer: the question is one byte");
  library->Call(kFreeBuffer, client, Number(answer));
}

void AskServer(Library* library, Object* client, const Arguments& arguments) {
  const unsigned empty = Number("");
  Inbox inbox;
  library->Call(kLink, client, Number(arguments.host), static_cast<unsigned>(arguments.port), empty,
                0U, empty, 0U, empty, 0U, empty, 0U, 0U, 0U);
  library->Call(kChangeReceieveWnd, client, inbox.Window(), Inbox::kMessage);
  // The event may have been before the window.
  while (library->Call(kIsOnline, client) == 0) {
    MsgWaitForMultipleObjects(0, nullptr, 0, 10, 0);
  }
  library->Call(kAskData, client, Number("hello"), 5U);
  char* body = nullptr;
  int length = 0;
  bool received = inbox.Take(&body, &length);
  if (received && body == nullptr) received = inbox.Take(&body, &length);
  Check(received && length == 5 && memcmp(body, "hello", 5) == 0, "Link, AskData: an answer");
  library->Call(kFreeBuffer, client, Number(body));
  Check(library->Call(kUnLink, client) == 0, "UnLink");
}

enum class Use { kEveryMember, kLinkOnly };

void UseOnce(const Arguments& arguments, Use use) {
  Library library;
  Object client;
  MakeObjects(&library, &client);
  if (use == Use::kEveryMember) AskForBalance(&library, &client, arguments);
  AskServer(&library, &client, arguments);
  library.Call(kDestroy, &client);
  Check(library.LeftCleanStacks(), "every member takes its arguments off the stack");
}

}  // namespace

void RunCases(const Arguments& arguments) {
  const int threads = CountThreads();
  Note("handles before the first load", CountHandles());
  UseOnce(arguments, Use::kEveryMember);
  // What the system keeps for a process that used sockets and windows is there from now on.
  const int handles = CountHandles();
  Note("handles after it", handles);
  for (int load = 0; load < kFurtherLoads; ++load) UseOnce(arguments, Use::kLinkOnly);
  CheckEqual(CountThreads(), threads, "FreeLibrary: no thread is left");
  CheckEqual(CountHandles(), handles, "FreeLibrary: no handle is left");
}
