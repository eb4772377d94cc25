// An application as Microsoft's compilers make it: its objects, what becomes of delete, its types.
// It is a DLL, so that it can be let go together with the library. The system's own headers want
// the compiler's runtime, which is not here.
#include "client/clientdatasource.h"
#include "client/ftwindow.h"

#define SYSTEM_API extern "C" __declspec(dllimport)
#define CHECK(condition) g_report(condition, #condition)

SYSTEM_API void* __stdcall GetModuleHandleA(const char* name);
SYSTEM_API void* __stdcall GetProcAddress(void* module, const char* name);
SYSTEM_API void* __stdcall GetProcessHeap();
SYSTEM_API void* __stdcall HeapAlloc(void* heap, unsigned flags, unsigned bytes);
SYSTEM_API void* __stdcall HeapCreate(unsigned options, unsigned initial, unsigned maximum);
SYSTEM_API int __stdcall HeapFree(void* heap, unsigned flags, void* block);
SYSTEM_API int __stdcall HeapValidate(void* heap, unsigned flags, const void* block);
SYSTEM_API void* __cdecl __RTDynamicCast(void* object, int offset, const class type_info* from,
                                         const class type_info* to, int is_reference);
SYSTEM_API int __cdecl memcmp(const void* a, const void* b, unsigned bytes);
SYSTEM_API int __cdecl strcmp(const char* a, const char* b);

using DeletingDestructor = void*(__thiscall*)(void* object, unsigned flags);
SYSTEM_API const DeletingDestructor exported_table[1] asm("??_7CClientDataSource@@6B@");

// Every descriptor of a type points to this table of the compiler's runtime.
extern "C" const void* const type_info_table[1] asm("??_7type_info@@6B@") = {nullptr};

// As the compiler knows it.
class type_info {
 public:
  virtual ~type_info();
  bool Is(const char* name) const {
    using NameOf = const char*(__thiscall*)(const type_info*);
    void* const runtime = GetModuleHandleA("msvcrt.dll");
    const auto name_of =
        reinterpret_cast<NameOf>(GetProcAddress(runtime, "?name@type_info@@QBEPBDXZ"));
    return strcmp(name_of(this), name) == 0;
  }
};

namespace {

constexpr unsigned kMessage = 0x8000 + 17;

void (*g_report)(bool holds, const char* what);
void* g_heap = GetProcessHeap();
unsigned g_spare_bytes = 0;  // behind each block
int g_destroyed = 0;

}  // namespace

void* operator new(unsigned bytes) {
  return HeapAlloc(g_heap, 0, bytes + g_spare_bytes);
}
void* operator new[](unsigned bytes) {
  return HeapAlloc(g_heap, 0, bytes + g_spare_bytes);
}
void operator delete(void* pointer) noexcept {
  HeapFree(g_heap, 0, pointer);
}
void operator delete[](void* pointer) noexcept {
  HeapFree(g_heap, 0, pointer);
}

namespace {

struct Account : CClientDataSource {
  ~Account() override { ++g_destroyed; }
  virtual int Number() { return m_number; }
  int m_number = 42;
};

struct Window {
  virtual ~Window() = default;
};

struct ClientWindow : Window, CClientDataSource {};  // the client stands behind another base

// The compiler must not know what the pointer points to.
template <typename T>
T* Forget(T* object) {
  T* volatile forgotten = object;
  return forgotten;
}

bool HasExportedTable(const CClientDataSource& object) {
  return *reinterpret_cast<const DeletingDestructor* const*>(&object) == exported_table;
}

int Start(CClientDataSource* client, const char* host, int port, unsigned window = 0) {
  return client->Link(host, port, "", 0, "", 0, "", 0, "", 0, window, kMessage);
}

unsigned StackPointer() {
  unsigned value;
  asm volatile("movl %%esp, %0" : "=r"(value));
  return value;
}

bool Take(unsigned window, FTWindowMsg* msg) {
  return FTWaitMessage(window, msg, 10000) == 1 && msg->message == kMessage;
}

void TestMembers(char* host, int port) {
  const unsigned first = FTCreateWindow(), second = FTCreateWindow(), stack = StackPointer();
  CClientDataSource client;
  char* answer = nullptr;
  CHECK(client.GetBalanceServer(host, port, 'q', &answer) == 1);
  CHECK(answer != nullptr && memcmp(answer, "\2\0\0\0\1q", 6) == 0);
  client.FreeBuffer(answer);
  CHECK(Start(&client, host, port, first) == 1);
  FTWindowMsg msg = {};
  CHECK(Take(first, &msg) && msg.wParam == 0 && msg.lParam == LINK_EVENT_UP);
  client.ChangeReceieveWnd(second, kMessage);
  CHECK(client.IsOnline() == 1 && client.AskData("hello", 5) == 0);
  CHECK(Take(second, &msg) && msg.lParam == 5);
  char* const body = reinterpret_cast<char*>(msg.wParam);
  CHECK(body != nullptr && memcmp(body, "hello", 5) == 0);
  client.FreeBuffer(body);
  CHECK(client.UnLink() == 0);
  CHECK(StackPointer() == stack);  // each member took its arguments off
  FTDestroyWindow(first);
  FTDestroyWindow(second);
}

void TestCopies(const char* host, int port) {
  CClientDataSource client, assigned;
  CHECK(Start(&client, host, port) == 1);
  {
    const CClientDataSource copy(client);
    CHECK(HasExportedTable(client) && HasExportedTable(copy));
    CHECK(&(assigned = copy) == &assigned && HasExportedTable(assigned));
    CHECK(Start(&assigned, host, port) == 0);
  }
  CHECK(Start(&client, host, port) == 1);
}

// The table's slot is what the compiler makes of a delete expression; bit 0 asks for the memory to
// be freed, bit 1 says that it is an array. What is not a block of the process heap as the library
// would take it stays allocated.
void TestDeleteFlags(void* heap, unsigned spare_bytes, const char* host, int port) {
  CClientDataSource witness;
  g_heap = heap;
  g_spare_bytes = spare_bytes;
  for (unsigned flags = 0; flags < 4; ++flags) {
    const bool freed = flags & 1 && heap == GetProcessHeap() && spare_bytes == 0;
    const bool is_array = flags >= 2;
    auto* const objects =
        is_array ? new CClientDataSource[flags == 2 ? 1 : 3] : new CClientDataSource;
    void* const memory = reinterpret_cast<char*>(objects) - (is_array ? 4 : 0);
    Start(objects, host, port);
    CHECK(exported_table[0](objects, flags) == memory);
    CHECK(Start(&witness, host, port) == 1);
    witness.UnLink();
    CHECK((HeapValidate(heap, 0, memory) == 0) == freed);
  }
}

void TestDerivedClasses(const char* host, int port) {
  CClientDataSource* const objects[] = {Forget(new Account), Forget(new ClientWindow)};
  for (CClientDataSource* const object : objects) {
    CHECK(Start(object, host, port) == 1);
    delete object;
  }
  auto* const accounts = new Account[3];
  CHECK(accounts[2].Number() == 42);
  delete[] accounts;
  CHECK(g_destroyed == 4);
}

void TestTypes() {
  CClientDataSource object;
  Account derived;
  ClientWindow window;
  auto* const plain = Forget(&object);
  auto* const account = Forget<CClientDataSource>(&derived);
  auto* const second_base = Forget<CClientDataSource>(&window);
  const type_info& type = typeid(*plain);
  CHECK(type.Is("class CClientDataSource") && typeid(type).Is("class type_info"));
  CHECK(&typeid(*account) == &typeid(Account));
  CHECK(__RTDynamicCast(plain, 0, &type, &type, 0) == plain);
  CHECK(dynamic_cast<Account*>(plain) == nullptr && dynamic_cast<void*>(plain) == plain);
  CHECK(dynamic_cast<Account*>(account) == &derived);
  CHECK(dynamic_cast<ClientWindow*>(second_base) == &window);
  CHECK(dynamic_cast<CClientDataSource*>(Forget<Window>(&window)) == second_base);
}

}  // namespace

extern "C" void RunCases(void (*report)(bool holds, const char* what), char* host, int port) {
  g_report = report;
  TestMembers(host, port);
  TestCopies(host, port);
  TestDerivedClasses(host, port);
  TestTypes();
  TestDeleteFlags(g_heap, 0, host, port);
  TestDeleteFlags(g_heap, 8, host, port);
  TestDeleteFlags(HeapCreate(0, 0, 0), 0, host, port);
}

extern "C" void LeaveRunning(void*, const char* host, int port) {
  Start(new CClientDataSource, host, port);
}
