// An application that loads the library while it runs, finds the members by their names, and lets
// it go again.
#include "client/clientdatasource.h"
#include "tests/msvc_abi/app.h"
#include "tests/msvc_abi/system.h"

namespace {

constexpr int kFurtherLoads = 3;

struct Object {
  const void* table = nullptr;
};

class Library {
 public:
  Library() { Check(m_module != nullptr, "LoadLibrary"); }
  ~Library() {
    Check(FreeLibrary(m_module) != 0, "FreeLibrary");
    Check(GetModuleHandleA("ftclient.dll") == nullptr, "FreeLibrary: the library is gone");
  }

  void* Find(const char* name) const {
    void* const address = GetProcAddress(m_module, name);
    if (address == nullptr) Check(false, name);
    return address;
  }

  // The stack stands 4 bytes further with each call, and a member that leaves an argument there is
  // noticed.
  template <typename... Values>
  void* Call(const char* name, void* object, Values... values) {
    using Member = void*(__thiscall*)(void*, Values...);
    const auto member = reinterpret_cast<Member>(Find(name));
    m_skew = (m_skew + 4) % 16;
    static_cast<volatile char*>(__builtin_alloca(m_skew + 4))[0] = 0;
    return member(object, values...);
  }

 private:
  void* m_module = LoadLibraryA("ftclient.dll");
  unsigned m_skew = 0;
};

void MakeObjects(Library* library, Object* client) {
  Object copy;
  Object other;
  library->Call("??0CClientDataSource@@QAE@XZ", &other);
  Check(library->Call("??0CClientDataSource@@QAE@XZ", client) == client,
        "constructor: returns the object");
  Check(library->Call("??0CClientDataSource@@QAE@ABV0@@Z", &copy, client) == &copy,
        "copy constructor: returns the object");
  Check(library->Call("??4CClientDataSource@@QAEAAV0@ABV0@@Z", &other, &copy) == &other,
        "operator=: returns the object");
  const void* const table = library->Find("??_7CClientDataSource@@6B@");
  Check(client->table == table && copy.table == table && other.table == table,
        "objects point to the exported table");
}

// A caller pushes four bytes for a char and leaves anything in the upper three.
void AskForBalance(Library* library, Object* client, const Arguments& server) {
  char* answer = nullptr;
  library->Call("?GetBalanceServer@CClientDataSource@@QAEHPADHDPAPAD@Z", client, server.host,
                server.port, 0xABCDEF00U | 'q', &answer);
  Check(answer != nullptr && answer[0] == 2 && answer[4] == 1 && answer[5] == 'q',
        "GetBalanceServer: the question is one byte");
  library->Call("?FreeBuffer@CClientDataSource@@QAEXPAD@Z", client, answer);
}

void AskServer(Library* library, Object* client, const Arguments& server) {
  Inbox first;
  Inbox inbox;
  char* body = nullptr;
  int length = 0;
  library->Call("?Link@CClientDataSource@@QAEHPBDH0H0H0H0HII@Z", client, server.host, server.port,
                "", 0, "", 0, "", 0, "", 0, first.Window(), Inbox::kMessage);
  Check(first.TakeEvent(LINK_EVENT_UP), "Link: the link is up");
  library->Call("?ChangeReceieveWnd@CClientDataSource@@QAEXII@Z", client, inbox.Window(),
                Inbox::kMessage);
  Check(library->Call("?IsOnline@CClientDataSource@@QAEHXZ", client) != nullptr, "IsOnline");
  library->Call("?AskData@CClientDataSource@@QAEHPBDI@Z", client, "hello", 5);
  Check(inbox.Take(&body, &length) && length == 5 && memcmp(body, "hello", 5) == 0,
        "Link, AskData: an answer");
  library->Call("?FreeBuffer@CClientDataSource@@QAEXPAD@Z", client, body);
  Check(library->Call("?UnLink@CClientDataSource@@QAEHXZ", client) == nullptr, "UnLink");
}

void UseOnce(const Arguments& server, bool ask_for_balance) {
  Library library;
  Object client;
  MakeObjects(&library, &client);
  if (ask_for_balance) AskForBalance(&library, &client, server);
  AskServer(&library, &client, server);
  library.Call("??1CClientDataSource@@UAE@XZ", &client);
}

}  // namespace

void RunCases(const Arguments& server) {
  const int threads = CountThreads();
  UseOnce(server, true);
  // What the system keeps for a process that used sockets and windows is there from now on.
  const int handles = CountHandles();
  for (int load = 0; load < kFurtherLoads; ++load) UseOnce(server, false);
  CheckEqual(CountThreads(), threads, "FreeLibrary: no thread is left");
  CheckEqual(CountHandles(), handles, "FreeLibrary: no handle is left");
}
