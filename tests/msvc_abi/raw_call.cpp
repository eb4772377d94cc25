#include "tests/msvc_abi/raw_call.h"

// unsigned CallOnStack(function, object, arguments, count, skew, stack_drift)
asm(R"(
_CallOnStack:
  pushl %ebp
  movl %esp, %ebp
  pushl %ebx
  pushl %esi
  pushl %edi
  andl $-16, %esp
  subl 24(%ebp), %esp
  movl %esp, %edi
  movl 16(%ebp), %edx
  movl 20(%ebp), %ecx
1:
  testl %ecx, %ecx
  jz 2f
  pushl -4(%edx,%ecx,4)
  decl %ecx
  jmp 1b
2:
  movl 12(%ebp), %ecx
  call *8(%ebp)
  subl %esp, %edi
  movl 28(%ebp), %edx
  movl %edi, (%edx)
  leal -12(%ebp), %esp
  popl %edi
  popl %esi
  popl %ebx
  popl %ebp
  ret
)");

extern "C" unsigned __cdecl CallOnStack(void* function, void* object, const unsigned* arguments,
                                        unsigned count, unsigned skew, int* stack_drift);

RawCall CallMember(void* function, void* object, const unsigned* arguments, unsigned count,
                   unsigned skew) {
  RawCall call{};
  call.result = CallOnStack(function, object, arguments, count, skew, &call.stack_drift);
  return call;
}
