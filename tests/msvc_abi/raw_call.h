// Calls of a member function by its address alone.
#pragma once

struct RawCall {
  unsigned result;
  // Bytes of arguments that the function left on the stack; negative: took too many off it.
  int stack_drift;
};

// The stack pointer is a multiple of 4 plus the skew, which is all that the Microsoft compilers
// promise a function.
RawCall CallMember(void* function, void* object, const unsigned* arguments, unsigned count,
                   unsigned skew);
