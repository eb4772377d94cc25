#include "tests/msvc_abi/allocator.h"
#include "tests/msvc_abi/cases.h"

namespace {

int g_destroyed = 0;

class Account : public CClientDataSource {
 public:
  explicit Account(int number = 7) : m_number(number) {}
  ~Account() override { ++g_destroyed; }
  virtual int Number() { return m_number; }

 private:
  int m_number;
};

class Window {
 public:
  virtual ~Window() = default;
  virtual int Width() { return 640; }
};

// Here the client stands behind another base and another member.
class ClientWindow : public Window, public CClientDataSource {
 public:
  ~ClientWindow() override { ++g_destroyed; }
  int Width() override { return m_width; }

 private:
  int m_width = 800;
};

struct Holder {
  int before = 11;
  CClientDataSource client;
  int behind = 22;
};

// Behind the compiler's back, which would otherwise know the object's class.
CClientDataSource* volatile g_client = nullptr;

void TestDeleteThroughBase(const Arguments& arguments) {
  const int threads = CountThreads();
  const int deletes = DeleteCalls();
  g_destroyed = 0;
  Account* const account = new Account(42);
  g_client = account;
  CheckEqual(StartClient(account, arguments), 1, "derived class: Link starts a client");
  CheckEqual(account->Number(), 42, "derived class: its own virtual function");
  delete g_client;
  CheckEqual(g_destroyed, 1, "derived class: its destructor runs");
  CheckEqual(CountThreads(), threads, "derived class: the base's destructor ends the client");
  CheckEqual(DeleteCalls(), deletes + 1, "derived class: freed by the application");
}

void TestSecondBase(const Arguments& arguments) {
  const int threads = CountThreads();
  const int deletes = DeleteCalls();
  g_destroyed = 0;
  ClientWindow* const window = new ClientWindow;
  g_client = window;
  CheckEqual(StartClient(g_client, arguments), 1, "second base: Link starts a client");
  CheckEqual(static_cast<Window*>(window)->Width(), 800, "second base: the first one's table");
  delete g_client;
  CheckEqual(g_destroyed, 1, "second base: the whole object is destroyed");
  CheckEqual(CountThreads(), threads, "second base: the client has ended");
  CheckEqual(DeleteCalls(), deletes + 1, "second base: freed by the application");
}

void TestArraysAndMembers() {
  g_destroyed = 0;
  Account* const accounts = new Account[3];
  CheckEqual(accounts[2].Number(), 7, "array of a derived class: is constructed");
  delete[] accounts;
  CheckEqual(g_destroyed, 3, "array of a derived class: is destroyed");
  Account first(1);
  Account second(2);
  second = first;
  const Account third(second);
  CheckEqual(second.Number(), 1, "derived class: assignment");
  CheckEqual(const_cast<Account&>(third).Number(), 1, "derived class: copy");
  {
    const Holder holder;
    const Holder copy(holder);
    CheckEqual(copy.before + copy.behind, 33, "member: its neighbours are copied");
  }
}

}  // namespace

void TestDerivedClasses(const Arguments& arguments) {
  TestDeleteThroughBase(arguments);
  TestSecondBase(arguments);
  TestArraysAndMembers();
}
