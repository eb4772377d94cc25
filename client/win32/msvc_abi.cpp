#include "client/win32/msvc_abi.h"

#include <cstddef>
#include <new>

#include "client/clientdatasource.h"
#include "client/win32/msvc_rtti.h"
#include "platform/heap.h"

// The exported name of the table is that of its slots.
extern "C" const MsvcVtable FTMsvcVtable;
asm(".globl _FTMsvcVtableSlots\n"
    ".set _FTMsvcVtableSlots, _FTMsvcVtable + 4");

namespace {

using Object = const void*;  // all that an object holds: the address of its table's slots

static_assert(sizeof(Object) == 4 && sizeof(CClientDataSource) == sizeof(Object));
static_assert(offsetof(MsvcVtable, deleting_destructor) == 4);

// The application's std::type_info has a table of one slot as well. Ours is there for code that
// asks for the type of a type_info; nobody may destroy one.
void* FT_THISCALL KeepTypeInfo(void* type_info, std::uint32_t /*flags*/) {
  return type_info;
}

extern MsvcTypeDescriptor g_type_info_type;
constexpr MsvcRootClass kTypeInfoClass(&g_type_info_type);
constexpr MsvcVtable kTypeInfoVtable = {&kTypeInfoClass.locator, &KeepTypeInfo};
MsvcTypeDescriptor g_type_info_type = {&kTypeInfoVtable.deleting_destructor, nullptr,
                                       ".?AVtype_info@@"};

MsvcTypeDescriptor g_type = {&kTypeInfoVtable.deleting_destructor, nullptr,
                             ".?AVCClientDataSource@@"};
constexpr MsvcRootClass kClass(&g_type);

void* GiveTable(void* object) {
  *static_cast<Object*>(object) = &FTMsvcVtable.deleting_destructor;
  return object;
}

struct Block {
  void* start;
  std::size_t bytes;
};

Block DestroyOne(void* object) {
  FTMsvcDestroy(object);
  return {object, sizeof(Object)};
}

Block DestroyArray(void* first) {
  Object* const objects = static_cast<Object*>(first);
  std::uint32_t* const count = static_cast<std::uint32_t*>(first) - 1;
  for (std::uint32_t n = *count; n > 0; --n) FTMsvcDestroy(objects + n - 1);
  return {count, sizeof *count + *count * sizeof(Object)};
}

}  // namespace

const MsvcVtable FTMsvcVtable = {&kClass.locator, &FTMsvcDelete};

void* FTMsvcConstruct(void* object) {
  return GiveTable(new (object) CClientDataSource);
}

void* FTMsvcCopy(void* object, const void* other) {
  return GiveTable(new (object) CClientDataSource(*static_cast<const CClientDataSource*>(other)));
}

void FTMsvcDestroy(void* object) {
  auto* const client = static_cast<CClientDataSource*>(object);
  client->CClientDataSource::~CClientDataSource();
  GiveTable(object);
}

void* FTMsvcDelete(void* object, std::uint32_t flags) {
  const Block memory = (flags & kMsvcArray) != 0 ? DestroyArray(object) : DestroyOne(object);
  if ((flags & kMsvcFree) != 0) platform::FreeProcessHeapBlock(memory.start, memory.bytes);
  return memory.start;
}
