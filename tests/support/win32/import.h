// Lets a test program put functions of its own before those of the system's DLLs. A call of a DLL's
// function goes through a pointer that the linker takes from the DLL's import library, unless the
// program defines that pointer itself:
//
//   decltype(&Hook) g_import_of_send __asm__("__imp__send@16") = &Hook;
#pragma once

#include <windows.h>

namespace testkit {

// The DLL's own function.
template <typename Function>
Function SystemFunction(const char* dll, const char* name) {
  return reinterpret_cast<Function>(
      reinterpret_cast<void*>(GetProcAddress(LoadLibraryA(dll), name)));
}

}  // namespace testkit
