#include <windows.h>

#include <process.h>

#include <memory>
#include <new>

#include "platform/platform.h"

namespace platform {

namespace {

struct ThreadStart {
  ThreadMain main;
  void* argument;
};

unsigned __stdcall RunThread(void* start_argument) {
  const std::unique_ptr<ThreadStart> start(static_cast<ThreadStart*>(start_argument));
  start->main(start->argument);
  return 0;
}

CRITICAL_SECTION* AsCriticalSection(unsigned char* storage) {
  return std::launder(reinterpret_cast<CRITICAL_SECTION*>(storage));
}

HANDLE& AsHandle(unsigned char* storage) {
  return *std::launder(reinterpret_cast<HANDLE*>(storage));
}

}  // namespace

ThreadHandle StartThread(ThreadMain main, void* argument, int stack_bytes) {
  auto start = std::make_unique<ThreadStart>(ThreadStart{main, argument});
  const auto stack = static_cast<unsigned>(stack_bytes > 0 ? stack_bytes : 0);
  const auto thread = _beginthreadex(nullptr, stack, &RunThread, start.get(), 0, nullptr);
  if (thread == 0) return nullptr;
  start.release();
  return reinterpret_cast<ThreadHandle>(thread);
}

void JoinThread(ThreadHandle thread) {
  WaitForSingleObject(thread, INFINITE);
  CloseHandle(thread);
}

std::uint32_t CurrentThreadId() {
  return GetCurrentThreadId();
}

// The system offers names only since Windows 10.
void NameCurrentThread(const char* name) {
  using SetName = HRESULT(WINAPI*)(HANDLE, PCWSTR);
  const HMODULE kernel = GetModuleHandleA("kernel32.dll");
  const auto set_name = reinterpret_cast<SetName>(
      reinterpret_cast<void*>(GetProcAddress(kernel, "SetThreadDescription")));
  if (set_name == nullptr) return;
  wchar_t wide[64];
  if (MultiByteToWideChar(CP_ACP, 0, name, -1, wide, 64) > 0) set_name(GetCurrentThread(), wide);
}

void SleepMs(std::uint32_t milliseconds) {
  Sleep(milliseconds);
}

void YieldThread() {
  SwitchToThread();
}

Mutex::Mutex() {
  static_assert(sizeof(CRITICAL_SECTION) <= sizeof m_storage && alignof(CRITICAL_SECTION) <= 8);
  InitializeCriticalSection(new (m_storage) CRITICAL_SECTION);
}

Mutex::~Mutex() {
  DeleteCriticalSection(AsCriticalSection(m_storage));
}

void Mutex::Lock() {
  EnterCriticalSection(AsCriticalSection(m_storage));
}

void Mutex::Unlock() {
  LeaveCriticalSection(AsCriticalSection(m_storage));
}

Event::Event() {
  new (m_storage) HANDLE(CreateEventA(nullptr, FALSE, FALSE, nullptr));
}

Event::~Event() {
  const HANDLE event = AsHandle(m_storage);
  if (event != nullptr) CloseHandle(event);
}

bool Event::Set() {
  return SetEvent(AsHandle(m_storage)) != FALSE;
}

bool Event::Wait(std::uint32_t milliseconds) {
  static_assert(kNoLimit == INFINITE);
  return WaitForSingleObject(AsHandle(m_storage), milliseconds) != WAIT_TIMEOUT;
}

}  // namespace platform
