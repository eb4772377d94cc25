// What the applications here use of the system, declared by hand: the system's own headers want the
// compiler's runtime, and these programs have none.
#pragma once

#define SYSTEM_API __declspec(dllimport)

using Handle = void*;

// The start of what the system tells of a process.
struct ProcessEntry {
  unsigned next_offset;  // from this entry to the next
  int threads;
  unsigned not_used[15];
  unsigned process;
};

struct HandleTable {
  unsigned count;
  struct {
    unsigned short process;  // the low half of its id
    unsigned short not_used[7];
  } entries[1];
};

struct WindowMessage {
  Handle window;
  unsigned message;
  unsigned w_param;
  int l_param;
  unsigned time;
  int x;
  int y;
};

// As the compiler and the system's runtime know it.
class type_info {
 public:
  virtual ~type_info();
  SYSTEM_API const char* name() const;
  SYSTEM_API int operator==(const type_info& other) const;
};

extern "C" {

SYSTEM_API void __stdcall ExitProcess(unsigned code);
SYSTEM_API int __stdcall FreeLibrary(Handle module);
SYSTEM_API unsigned __stdcall GetCurrentProcessId();
SYSTEM_API Handle __stdcall GetModuleHandleA(const char* name);
SYSTEM_API void* __stdcall GetProcAddress(Handle module, const char* name);
SYSTEM_API Handle __stdcall GetProcessHeap();
SYSTEM_API unsigned __stdcall GetTickCount();
SYSTEM_API void* __stdcall HeapAlloc(Handle heap, unsigned flags, unsigned bytes);
SYSTEM_API Handle __stdcall HeapCreate(unsigned options, unsigned initial, unsigned maximum);
SYSTEM_API int __stdcall HeapFree(Handle heap, unsigned flags, void* block);
SYSTEM_API int __stdcall HeapValidate(Handle heap, unsigned flags, const void* block);
SYSTEM_API Handle __stdcall LoadLibraryA(const char* name);
SYSTEM_API void* __stdcall SetUnhandledExceptionFilter(int(__stdcall* filter)(void* exception));
SYSTEM_API int __stdcall TerminateProcess(Handle process, unsigned code);

SYSTEM_API int __stdcall NtQuerySystemInformation(int what, void* data, unsigned bytes,
                                                  unsigned* needed);

SYSTEM_API Handle __stdcall CreateWindowExA(unsigned ex_style, const char* class_name,
                                            const char* title, unsigned style, int x, int y,
                                            int width, int height, Handle parent, Handle menu,
                                            Handle instance, void* parameter);
SYSTEM_API int __stdcall DestroyWindow(Handle window);
SYSTEM_API unsigned __stdcall MsgWaitForMultipleObjects(unsigned count, const Handle* handles,
                                                        int wait_all, unsigned milliseconds,
                                                        unsigned wake_mask);
SYSTEM_API int __stdcall PeekMessageA(WindowMessage* message, Handle window, unsigned first,
                                      unsigned last, unsigned remove);
SYSTEM_API int __cdecl wsprintfA(char* text, const char* format, ...);

SYSTEM_API int __cdecl __getmainargs(int* count, char*** arguments, char*** environment,
                                     int expand_wildcards, int* new_mode);
SYSTEM_API int __cdecl _write(int descriptor, const void* data, unsigned bytes);
SYSTEM_API int __cdecl atoi(const char* text);
int __cdecl memcmp(const void* a, const void* b, unsigned bytes);
void* __cdecl memcpy(void* to, const void* from, unsigned bytes);
void* __cdecl memset(void* to, int value, unsigned bytes);
int __cdecl strcmp(const char* a, const char* b);

}  // extern "C"
