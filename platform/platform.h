// What the library needs from an operating system, and all that it knows of one.
//
// Every backend implements this contract with the same file stems (thread, clock, socket, window).
// Unless a line says otherwise a call may be made from any thread, does not block and throws
// nothing but std::bad_alloc; a failed call returns the result named and leaves its outputs alone.
#pragma once

#include <cstddef>
#include <cstdint>
#include <utility>
#include <vector>

namespace platform {

// ---------------------------------------------------------------- threads

using ThreadHandle = void*;
using ThreadMain = void (*)(void* argument);

// Starts a thread that runs main(argument) at once. stack_bytes of 0 or less means the system's
// default. Returns a handle that JoinThread must release, or null when no thread can be made.
ThreadHandle StartThread(ThreadMain main, void* argument, int stack_bytes);

// Blocks without limit until the thread has ended, then releases the handle.
void JoinThread(ThreadHandle thread);

std::uint32_t CurrentThreadId();

// Shown by debuggers and process viewers, possibly cut to the system's length.
void NameCurrentThread(const char* name);

void SleepMs(std::uint32_t milliseconds);

// Lets other threads that wait for this core run first.
void YieldThread();

// Re-entrant: its holder may lock again and must unlock as often.
class Mutex {
 public:
  Mutex();
  ~Mutex();
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  void Lock();  // blocks
  void Unlock();

 private:
  alignas(8) unsigned char m_storage[48];
};

// Auto-reset: keeps at most one signal, and one wait consumes it.
class Event {
 public:
  static constexpr std::uint32_t kNoLimit = 0xFFFFFFFFU;

  Event();
  ~Event();
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  bool Set();
  // Blocks for at most the milliseconds given, on a clock that nobody can set. True: signalled.
  bool Wait(std::uint32_t milliseconds);

 private:
  alignas(8) unsigned char m_storage[16];
};

// While it lives, this thread may write to a pipe whose reader is gone: the write fails, and no
// signal ends the process. errno stays as it is.
class BrokenPipeGuard {
 public:
  BrokenPipeGuard();
  ~BrokenPipeGuard();
  BrokenPipeGuard(const BrokenPipeGuard&) = delete;
  BrokenPipeGuard& operator=(const BrokenPipeGuard&) = delete;

 private:
  bool m_was_pending = false;
  alignas(8) unsigned char m_storage[128];
};

// Waits until a line can be written to standard error without blocking, at most timeout_ms. False
// when nobody reads it; until somebody does, later calls do not wait any more. Always true on
// systems that cannot tell.
bool WaitForStandardError(int timeout_ms);

// ---------------------------------------------------------------- clocks

// Milliseconds since an arbitrary moment, those included that the machine slept; wraps to 0 after
// 2^32 ms.
std::uint32_t TickCount();

// Tests replace the counter behind TickCount; null brings the system's own back.
void SetTickCounter(std::uint32_t (*counter)());

// Wall clock: whole seconds since 1970-01-01 00:00 UTC, perhaps some milliseconds late. Costs next
// to nothing.
std::int64_t WallClockSeconds();

// Wall clock: seconds since 1970-01-01 00:00 UTC and the milliseconds of that second.
void GetWallClock(std::int64_t* seconds, std::uint16_t* milliseconds);

struct LocalTime {
  int year;
  int month;    // 1 to 12
  int day;      // 1 to 31
  int hour;     // 0 to 23
  int minute;   // 0 to 59
  int second;   // 0 to 60
  int weekday;  // 0 to 6, Sunday is 0
};

// False when the system cannot convert the time.
bool ToLocalTime(std::int64_t seconds, LocalTime* local);

// ---------------------------------------------------------------- sockets

using Socket = std::intptr_t;
constexpr Socket kNoSocket = -1;

constexpr std::uint16_t kFamilyInet = 2;
constexpr std::uint32_t kAnyAddress = 0;
constexpr std::uint32_t kNoAddress = 0xFFFFFFFFU;

// An IPv4 socket address, laid out as the systems lay it out.
struct SocketAddress {
  std::uint16_t family;
  std::uint16_t port;     // network byte order
  std::uint32_t address;  // network byte order
  unsigned char zero[8];
};

// What a system's socket error means to the engine.
enum class SocketError {
  kNone,
  kWouldBlock,   // nothing possible now, the socket is sound
  kInProgress,   // a connect that goes on in the background
  kInterrupted,  // the call was not carried out and is to be made again
  kRefused,      // the peer's host answered, nobody listens there
  kAborted,      // a waiting connection was given up before it could be accepted
  kBroken        // everything else
};

// The meaning of one of the system's own error numbers.
SocketError MeaningOf(int system_error);

// Makes the process ready for sockets. May be called any number of times.
void StartSockets();

// A new blocking TCP/IPv4 socket that child processes do not inherit and that sends small
// packages at once; kNoSocket when none can be made. The caller closes it.
Socket OpenTcpSocket();

void CloseSocket(Socket socket);
void SetBlocking(Socket socket, bool blocking);
void SetLinger(Socket socket, bool linger, int seconds);

// kNoAddress is refused, though some systems would take it.
bool BindSocket(Socket socket, const SocketAddress& local);

// Binds and listens so that a server can be restarted on its port at once.
bool ListenOn(Socket socket, const SocketAddress& local);

// Takes one waiting connection, non-blocking inheritance as for OpenTcpSocket. kNoSocket: *error
// says why (kWouldBlock, kAborted or kBroken).
Socket AcceptSocket(Socket listening, SocketAddress* peer, SocketError* error);

// Starts a connect on a non-blocking socket: kNone (connected), kInProgress or kBroken. The
// addresses 0.0.0.0 and kNoAddress and port 0 give kBroken at once. A refusal is never reported
// here: see TakeConnectResult.
SocketError ConnectSocket(Socket socket, const SocketAddress& remote);

enum class ConnectState { kConnected, kFailed };

// For a connecting socket that became writable: reads and clears the socket's pending error, and
// fills both ends when it is connected. A socket that was connected to itself counts as failed.
ConnectState TakeConnectResult(Socket socket, SocketAddress* local, SocketAddress* peer);

struct BytePiece {
  void* data;
  int length;
};

struct ConstBytePiece {
  const void* data;
  int length;
};

constexpr int kMaxPieces = 256;  // in one call

// Move bytes into or out of the pieces as if they were one block; the number moved, perhaps fewer
// than there is room for, or 0 with *error set. An orderly end of the stream is kBroken. Neither
// blocks on a non-blocking socket, and neither raises a signal.
int ReceivePieces(Socket socket, const BytePiece* pieces, int count, SocketError* error);
int SendPieces(Socket socket, const ConstBytePiece* pieces, int count, SocketError* error);

bool GetLocalAddress(Socket socket, SocketAddress* address);
bool GetPeerAddress(Socket socket, SocketAddress* address);

// Network byte order; kNoAddress for any text but a numeric IPv4 address. As everywhere, "127.1"
// and parts in octal (0...) or hexadecimal (0x...) digits are understood; white space ends the
// address.
std::uint32_t ParseAddress(const char* text);

std::uint16_t PortToNetwork(std::uint16_t port);
std::uint16_t PortToHost(std::uint16_t port);

// Blocks on the system's name service. Fills the first IPv4 address, network byte order.
bool LookUpHost(const char* name, std::uint32_t* address);

// Sockets to wait for, and after the wait those that are ready.
class SocketSet {
 public:
  static constexpr std::size_t kCapacity = 2048;

  // False, and nothing is added, when the set is full.
  bool Add(Socket socket);
  bool Contains(Socket socket) const;
  bool IsFull() const { return m_sockets.size() >= kCapacity; }
  bool IsEmpty() const { return m_sockets.empty(); }

  const std::vector<Socket>& Members() const { return m_sockets; }
  void Assign(std::vector<Socket> ready) { m_sockets = std::move(ready); }

 private:
  std::vector<Socket> m_sockets;
};

// Ends waits for sockets from outside. Once used it ends every wait that names it, until it is
// cleared.
class Waker {
 public:
  Waker();
  ~Waker();
  Waker(const Waker&) = delete;
  Waker& operator=(const Waker&) = delete;

  // False when the system has no descriptor for it: then waits run to their limits.
  bool IsUsable() const { return m_signal != kNoSocket; }

  void Wake();
  void Clear();

  // For the waits alone: readable while the waker is in use.
  Socket Signal() const { return m_signal; }

 private:
  const Socket m_signal;
};

// Blocks until a socket of the read set is readable or one of the write set is writable, at most
// timeout_ms (negative: without limit), or until the waker (may be null) is used. Either set may be
// null. Leaves only ready sockets in the sets and returns their number, 0 on time-out, -1 on
// failure (the sets are then empty). Any socket number is served. A socket with an error counts as
// ready; a number that is no open socket is a failure.
int WaitForSockets(SocketSet* read, SocketSet* write, int timeout_ms, Waker* waker = nullptr);

enum class Readiness { kReadable, kWritable };

// The same for one socket: true when it is ready. kNoSocket: waits for the waker alone.
bool WaitForSocket(Socket socket, Readiness readiness, int timeout_ms, Waker* waker = nullptr);

// ---------------------------------------------------------------- windows

// Called with the wParam of a message that nobody will ever read.
using DiscardFunction = void (*)(std::uintptr_t w_param);

struct WindowPost {
  std::uint32_t message;
  std::uintptr_t w_param;
  std::intptr_t l_param;
};

enum class WindowState {
  kOpen,
  kFull,  // there will be room once messages have been taken
  kGone   // there is no such window
};

struct PostResult {
  std::size_t posted;
  WindowState window;  // kOpen: all were posted; else why not the rest
};

// How many messages wait in a window of our own at most. Systems with windows keep as many for all
// windows of a thread, unless they are set up otherwise.
constexpr std::size_t kWindowCapacity = 10000;

// False where more may wait.
bool IsWindowCapacityFixed();

// Posts them in their order behind whatever is queued for the window, until one cannot be posted;
// nothing is kept of the others, and discard is not called for them. discard (may be null) serves
// systems whose windows can be destroyed with messages still queued by us. Never blocks.
PostResult PostToWindow(std::uint32_t window, const WindowPost* posts, std::size_t count,
                        DiscardFunction discard);

}  // namespace platform
