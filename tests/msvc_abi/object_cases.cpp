#include "tests/msvc_abi/allocator.h"
#include "tests/msvc_abi/cases.h"
#include "tests/msvc_abi/system.h"

namespace {

using DeletingDestructor = void*(__thiscall*)(void* object, unsigned flags);
using Table = const DeletingDestructor*;

const Table& TableOf(const void* object) {
  return *static_cast<const Table*>(object);
}

// What Microsoft's compiler makes of a delete expression; the flags say of which.
void* DeleteThroughTable(void* object, unsigned flags) {
  return TableOf(object)[0](object, flags);
}

void* ExportedTable() {
  return GetProcAddress(GetModuleHandleA("ftclient.dll"), "??_7CClientDataSource@@6B@");
}

void TestCopies(const Arguments& arguments) {
  const int threads = CountThreads();
  CClientDataSource client;
  CClientDataSource assigned;
  CheckEqual(StartClient(&client, arguments), 1, "stack object: Link starts a client");
  Check(CountThreads() > threads, "stack object: the client has threads");
  {
    const CClientDataSource copy(client);
    Check(TableOf(&copy) == TableOf(&client), "copy: points to the same table");
    Check(&(assigned = client) == &assigned, "assignment: returns the object assigned to");
    CheckEqual(StartClient(&client, arguments), 0, "copy and assignment: leave the client running");
  }
  CheckEqual(CountThreads(), threads, "destructor of a copy: ends the client");
  Check(TableOf(&client) == ExportedTable(), "table: objects point to the exported one");
}

struct DeleteCase {
  unsigned flags;
  bool array;
  bool frees;
  const char* what;
};

constexpr DeleteCase kDeleteCases[] = {
    {0, false, false, "flags 0: destroys only"},   {1, false, true, "flags 1: frees one"},
    {5, false, true, "flags 5: frees one"},        {2, true, false, "flags 2: destroys an array"},
    {3, true, true, "flags 3: frees an array"},    {7, true, true, "flags 7: frees an array"},
    {4, false, false, "flags 4: nothing to free"},
};

CClientDataSource* NewObjects(bool array) {
  return array ? new CClientDataSource[3] : new CClientDataSource;
}

// The count that stands in front of an array belongs to its memory.
void* MemoryOf(CClientDataSource* objects, bool array) {
  return array ? static_cast<void*>(reinterpret_cast<unsigned*>(objects) - 1) : objects;
}

void TestDeleteFlags(const Arguments& arguments) {
  const int threads = CountThreads();
  for (const DeleteCase& row : kDeleteCases) {
    CClientDataSource* const objects = NewObjects(row.array);
    void* const memory = MemoryOf(objects, row.array);
    StartClient(objects, arguments);
    Check(DeleteThroughTable(objects, row.flags) == memory, row.what);
    CheckEqual(CountThreads(), threads, "  the client has ended");
    CheckEqual(IsAllocated(memory), !row.frees, "  the memory is allocated or free");
    if (!row.frees) Release(memory);
  }
}

void DeleteForeignMemory(bool array, const char* what) {
  CClientDataSource* const objects = NewObjects(array);
  void* const memory = MemoryOf(objects, array);
  DeleteThroughTable(objects, array ? 3 : 1);
  Check(IsAllocated(memory), what);
  Release(memory);
}

void TestForeignMemory(Allocator allocator, const char* what) {
  UseAllocator(allocator);
  DeleteForeignMemory(false, what);
  DeleteForeignMemory(true, what);
  UseAllocator(Allocator::kProcessHeap);
}

void TestArrayBounds() {
  const DeletingDestructor other_table[1] = {nullptr};
  struct {
    Table before = nullptr;
    unsigned count = 4;
    Table objects[4] = {};
    Table behind = nullptr;
  } memory;
  const Table table = static_cast<Table>(ExportedTable());
  memory.before = memory.behind = other_table;
  for (Table& object : memory.objects) object = other_table;
  table[0](memory.objects, 2);
  int destroyed = 0;
  for (const Table& object : memory.objects) destroyed += object == table;
  CheckEqual(destroyed, 4, "array: every object is destroyed");
  Check(memory.before == other_table && memory.behind == other_table && memory.count == 4,
        "array: nothing around it is touched");
}

void TestDeleteExpressions() {
  const int deletes = DeleteCalls();
  CClientDataSource* const one = new CClientDataSource;
  delete one;
  Check(!IsAllocated(one), "delete: the memory is free");
  CheckEqual(DeleteCalls(), deletes, "delete: is the library's affair");
  delete static_cast<CClientDataSource*>(nullptr);
  delete[] new CClientDataSource[5];
}

}  // namespace

void TestObjects(const Arguments& arguments) {
  CheckEqual(sizeof(CClientDataSource), 4, "an object has four bytes");
  TestCopies(arguments);
  TestDeleteFlags(arguments);
  TestArrayBounds();
  TestForeignMemory(Allocator::kBehindHeader, "memory behind a header: stays allocated");
  TestForeignMemory(Allocator::kPrivateHeap, "memory of another heap: stays allocated");
  TestForeignMemory(Allocator::kPool, "memory at the start of a larger block: stays allocated");
  TestDeleteExpressions();
}
