// The application's operator new and delete, which can be made to work as different runtimes' do.
#pragma once

enum class Allocator {
  kProcessHeap,   // a block of the process's heap, as it is
  kBehindHeader,  // behind a header in such a block, as debugging runtimes do
  kPrivateHeap,   // a block of a heap of the runtime's own
  kPool           // cut from one large block of the process's heap
};

void UseAllocator(Allocator allocator);
int DeleteCalls();

// Whether what operator new returned is still allocated, at its heap's word.
bool IsAllocated(const void* pointer);

// How operator delete releases it, for memory that somebody else should have released.
void Release(void* pointer);
