/// @file
/// ftclient: keeps one TCP link to one of up to five servers and delivers what the server sends as
/// messages posted to a window of the application.
#pragma once

#if defined(_WIN32)
#if defined(FTCLIENT_BUILD)
#define FTCLIENT_API __declspec(dllexport)
#elif defined(FTCLIENT_STATIC)
#define FTCLIENT_API
#else
#define FTCLIENT_API __declspec(dllimport)
#endif
#else
#define FTCLIENT_API __attribute__((visibility("default")))
#endif

/// lParam of a notification whose wParam is 0.
enum FTLinkEvent {
  LINK_EVENT_UP = 1,              ///< the link to a server is up
  LINK_EVENT_CONNECT_FAILED = 2,  ///< an attempt failed; the next server is tried within 2 seconds
  LINK_EVENT_CLOSED = 3           ///< the link ended; the next server is tried within 2 seconds
};

/// All objects of this class act on one client per process; an object holds nothing itself.
///
/// Notifications are messages (window, message, wParam, lParam) posted to the window in the order
/// of the events:
/// - wParam not 0: a package arrived; wParam is the address of its body, lParam the body's length
///   in bytes. The body belongs to the application, which returns it with FreeBuffer.
/// - wParam 0: a link event; lParam is one of FTLinkEvent.
///
/// Those that find the window full are posted as soon as there is room. When too many wait, the
/// link is not read, so that the server waits too.
///
/// Link, UnLink, GetBalanceServer, the default constructor and the destructor must not run at the
/// same time as each other or as any other member. IsOnline, AskData and ChangeReceieveWnd may be
/// called from any thread while the client runs, FreeBuffer always. A member throws nothing but
/// std::bad_alloc.
class FTCLIENT_API CClientDataSource {
 public:
  /// Forgets a client that runs: it goes on, but no member reaches it any more.
  CClientDataSource();
  /// Copying does nothing.
  CClientDataSource(const CClientDataSource& other);
  /// Assigning does nothing.
  CClientDataSource& operator=(const CClientDataSource& other);
  /// Ends the client as UnLink does.
  virtual ~CClientDataSource();

  /// Starts the client; does not wait for the link. Servers are dotted IPv4 addresses with their
  /// ports, tried in this order. At a port of 0 or less the client starts over with the first
  /// entry, which is tried whatever its port. A null address is an empty one. window and message
  /// say where notifications go; 0 for either: nowhere. 1, or 0 with nothing changed when a client
  /// runs.
  int Link(const char* host1, int port1, const char* host2, int port2, const char* host3, int port3,
           const char* host4, int port4, const char* host5, int port5, unsigned int window,
           unsigned int message);

  /// Ends the client and its link. Blocks until all its threads have ended, usually a few
  /// milliseconds. Notifications posted before may still be waiting in the window. Always 0.
  int UnLink();

  /// 1 while the link to a server is up, else 0.
  int IsOnline();

  /// Sends one request; the data are copied. Does not block on the network. 0: handed on, or no
  /// client runs; -1: there is neither a link nor an attempt to open one, length exceeds 2^31 - 13,
  /// or the server has left more than 800,000,000 bytes unread (400,000,000 in a 32-bit process).
  /// A request made before the link is up is lost. One that is not answered within 8 to
  /// 11 seconds ends the link.
  int AskData(const char* data, unsigned int length);

  /// Sends notifications to another window from now on, those included that were not posted yet.
  /// With a window or message of 0 link events are dropped and packages are kept inside, out of
  /// reach, until UnLink; above 64 MiB the link is not read until there is a window.
  void ChangeReceieveWnd(unsigned int window, unsigned int message);

  /// Releases a body delivered to a window or an answer of GetBalanceServer; null is ignored. While
  /// 256 MiB (in a 32-bit process 128 MiB) in bodies are out, further ones wait; if none comes back
  /// for a second, one more is posted. Only Windows counts bodies below 4 KiB.
  void FreeBuffer(char* buffer);

  /// Asks a balance server (host name or address) one question of one byte. Blocks: at most about 8
  /// seconds for the link and 8 to 11 for the answer. 1: *answer is an array that FreeBuffer
  /// releases: four bytes with the length n of what follows, least significant first, and n bytes.
  /// 0: no answer, *answer is null. No client may be running.
  int GetBalanceServer(char* host, int port, char question, char** answer);
};
