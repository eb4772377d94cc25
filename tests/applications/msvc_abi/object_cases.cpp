#include "tests/msvc_abi/linked_cases.h"
#include "tests/msvc_abi/system.h"

namespace {

// How operator new works here, as different runtimes' do.
enum class Allocator {
  kProcessHeap,   // a block of the process's heap, as it is
  kBehindHeader,  // behind a header in such a block, as debugging runtimes do
  kPrivateHeap,   // a block of a heap of the runtime's own
  kPool           // cut from one large block of the process's heap
};

constexpr unsigned kHeaderBytes = 32;
constexpr unsigned kPoolBytes = 4096;

Allocator g_allocator = Allocator::kProcessHeap;
int g_deletes = 0;
int g_destroyed = 0;

Handle HeapInUse() {
  static Handle private_heap = nullptr;
  if (g_allocator != Allocator::kPrivateHeap) return GetProcessHeap();
  if (private_heap == nullptr) private_heap = HeapCreate(0, 0, 0);
  return private_heap;
}

unsigned HeaderInUse() {
  return g_allocator == Allocator::kBehindHeader ? kHeaderBytes : 0;
}

// At the heap's word.
bool IsAllocated(const void* pointer) {
  return HeapValidate(HeapInUse(), 0, static_cast<const char*>(pointer) - HeaderInUse()) != 0;
}

}  // namespace

void* operator new(unsigned bytes) {
  const unsigned whole = g_allocator == Allocator::kPool ? kPoolBytes : bytes + HeaderInUse();
  return static_cast<char*>(HeapAlloc(HeapInUse(), 0, whole)) + HeaderInUse();
}

void* operator new[](unsigned bytes) {
  return operator new(bytes);
}

void operator delete(void* pointer) noexcept {
  ++g_deletes;
  if (pointer != nullptr) HeapFree(HeapInUse(), 0, static_cast<char*>(pointer) - HeaderInUse());
}

void operator delete(void* pointer, unsigned) noexcept {
  operator delete(pointer);
}

void operator delete[](void* pointer) noexcept {
  operator delete(pointer);
}

void operator delete[](void* pointer, unsigned) noexcept {
  operator delete(pointer);
}

namespace {

using DeletingDestructor = void*(__thiscall*)(void* object, unsigned flags);
using Table = const DeletingDestructor*;

constexpr unsigned kArray = 2;

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

Table TableOf(const void* object) {
  return *static_cast<const Table*>(object);
}

Table ExportedTable() {
  return static_cast<Table>(
      GetProcAddress(GetModuleHandleA("ftclient.dll"), "??_7CClientDataSource@@6B@"));
}

void TestCopies(const Arguments& server) {
  const int threads = CountThreads();
  CClientDataSource client;
  CClientDataSource assigned;
  CheckEqual(StartClient(&client, server), 1, "stack object: Link starts a client");
  Check(CountThreads() > threads, "stack object: the client has threads");
  {
    const CClientDataSource copy(client);
    Check(TableOf(&copy) == ExportedTable(), "copy: points to the exported table");
    Check(&(assigned = client) == &assigned, "assignment: returns the object assigned to");
    CheckEqual(StartClient(&client, server), 0, "copy and assignment: leave the client running");
  }
  CheckEqual(CountThreads(), threads, "destructor of a copy: ends the client");
  Check(TableOf(&client) == ExportedTable(), "constructor: points to the exported table");
}

// The table's slot is what the compiler makes of a delete expression; the flags say of which.
void TestDeleteFlags(const Arguments& server, Allocator allocator, const char* what) {
  g_allocator = allocator;
  constexpr unsigned kFlags[] = {0, 1, 2, 3, 4, 5, 7};
  for (const unsigned flags : kFlags) {
    const int threads = CountThreads();
    const bool array = (flags & kArray) != 0;
    const bool frees = (flags & 1) != 0 && allocator == Allocator::kProcessHeap;
    auto* const objects = array ? new CClientDataSource[3] : new CClientDataSource;
    // The count that stands in front of an array belongs to its memory.
    void* const memory = reinterpret_cast<unsigned*>(objects) - (array ? 1 : 0);
    if (allocator == Allocator::kProcessHeap) StartClient(objects, server);
    Check(TableOf(objects)[0](objects, flags) == memory, what);
    CheckEqual(CountThreads(), threads, "  the client has ended");
    CheckEqual(IsAllocated(memory), !frees, "  the memory is allocated or free");
    if (!frees) operator delete(memory);
  }
  g_allocator = Allocator::kProcessHeap;
}

void TestArrayBounds() {
  const DeletingDestructor other_table[1] = {nullptr};
  struct {
    Table before;
    unsigned count = 4;
    Table objects[4];
    Table behind;
  } memory;
  memory.before = memory.behind = other_table;
  for (Table& object : memory.objects) object = other_table;
  ExportedTable()[0](memory.objects, kArray);
  int destroyed = 0;
  for (const Table& object : memory.objects) destroyed += object == ExportedTable();
  CheckEqual(destroyed, 4, "array: every object is destroyed");
  Check(memory.before == other_table && memory.behind == other_table && memory.count == 4,
        "array: nothing around it is touched");
}

void TestDeleteExpressions() {
  const int deletes = g_deletes;
  auto* const one = new CClientDataSource;
  delete one;
  Check(!IsAllocated(one), "delete: the memory is free");
  CheckEqual(g_deletes, deletes, "delete: is the library's affair");
  delete[] new CClientDataSource[5];
}

void DeleteThroughBase(CClientDataSource* object, const Arguments& server, const char* what) {
  // Behind the compiler's back, which would otherwise know the object's class.
  CClientDataSource* volatile base = object;
  const int threads = CountThreads();
  const int deletes = g_deletes;
  g_destroyed = 0;
  CheckEqual(StartClient(base, server), 1, what);
  delete base;
  CheckEqual(g_destroyed, 1, "  its destructor runs");
  CheckEqual(CountThreads(), threads, "  the base's destructor ends the client");
  CheckEqual(g_deletes, deletes + 1, "  freed by the application");
}

void TestDerivedClasses(const Arguments& server) {
  DeleteThroughBase(new Account, server, "derived class: Link starts a client");
  auto* const window = new ClientWindow;
  CheckEqual(static_cast<Window*>(window)->Width(), 800, "second base: the first one's table");
  DeleteThroughBase(window, server, "second base: Link starts a client");
  Account first(42);
  Account second;
  second = first;
  Account third(second);
  CheckEqual(third.Number(), 42, "derived class: assignment, copy, its own virtual function");
  const Holder holder;
  const Holder copy(holder);
  CheckEqual(copy.before + copy.behind, 33, "member: its neighbours are copied");
  g_destroyed = 0;
  auto* const accounts = new Account[3];
  CheckEqual(accounts[2].Number(), 7, "array of a derived class: is constructed");
  delete[] accounts;
  CheckEqual(g_destroyed, 3, "array of a derived class: is destroyed");
}

}  // namespace

void TestObjects(const Arguments& server) {
  TestCopies(server);
  TestDeleteFlags(server, Allocator::kProcessHeap, "delete: returns the memory");
  TestDeleteFlags(server, Allocator::kBehindHeader, "memory behind a header: stays allocated");
  TestDeleteFlags(server, Allocator::kPrivateHeap, "memory of another heap: stays allocated");
  TestDeleteFlags(server, Allocator::kPool, "memory in a larger block: stays allocated");
  TestArrayBounds();
  TestDeleteExpressions();
  TestDerivedClasses(server);
}
