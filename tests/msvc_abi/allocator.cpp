#include "tests/msvc_abi/allocator.h"

#include "tests/msvc_abi/system.h"

namespace {

constexpr unsigned kHeaderBytes = 32;
constexpr unsigned kPoolBytes = 4096;

Allocator g_allocator = Allocator::kProcessHeap;
int g_delete_calls = 0;
Handle g_private_heap = nullptr;

Handle HeapInUse() {
  if (g_allocator != Allocator::kPrivateHeap) return GetProcessHeap();
  if (g_private_heap == nullptr) g_private_heap = HeapCreate(0, 0, 0);
  return g_private_heap;
}

unsigned HeaderInUse() {
  return g_allocator == Allocator::kBehindHeader ? kHeaderBytes : 0;
}

void* Allocate(unsigned bytes) {
  const unsigned whole = g_allocator == Allocator::kPool ? kPoolBytes : bytes + HeaderInUse();
  return static_cast<char*>(HeapAlloc(HeapInUse(), 0, whole)) + HeaderInUse();
}

void Delete(void* pointer) {
  ++g_delete_calls;
  if (pointer != nullptr) Release(pointer);
}

}  // namespace

void UseAllocator(Allocator allocator) {
  g_allocator = allocator;
}

int DeleteCalls() {
  return g_delete_calls;
}

bool IsAllocated(const void* pointer) {
  const char* const block = static_cast<const char*>(pointer) - HeaderInUse();
  return HeapValidate(HeapInUse(), 0, block) != 0;
}

void Release(void* pointer) {
  HeapFree(HeapInUse(), 0, static_cast<char*>(pointer) - HeaderInUse());
}

void* operator new(unsigned bytes) {
  return Allocate(bytes);
}

void* operator new[](unsigned bytes) {
  return Allocate(bytes);
}

void operator delete(void* pointer) noexcept {
  Delete(pointer);
}

void operator delete[](void* pointer) noexcept {
  Delete(pointer);
}

void operator delete(void* pointer, unsigned) noexcept {
  Delete(pointer);
}

void operator delete[](void* pointer, unsigned) noexcept {
  Delete(pointer);
}
