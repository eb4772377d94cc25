/** @file
 * Windows for hosts on systems that have none of their own. A window is a queue of messages under
 * a number that is not 0; CClientDataSource posts its notifications there. It holds at most 10,000
 * of them; the client keeps those that find it full, and posts them when there is room.
 * All functions may be called from any thread; they do not throw. */
#ifndef FTCLIENT_CLIENT_FTWINDOW_H
#define FTCLIENT_CLIENT_FTWINDOW_H

#include <stdint.h>

#define FTWINDOW_API __attribute__((visibility("default")))

#ifdef __cplusplus
extern "C" {
#endif

/** A message that was taken. */
typedef struct FTWindowMsg {
  unsigned int window;  /**< where it was posted */
  unsigned int message; /**< the number that it was posted with */
  uintptr_t wParam;     /**< address of a body, or 0 */
  intptr_t lParam;      /**< length of the body, or an FTLinkEvent */
} FTWindowMsg;

/** A new window; 0 when none can be made. */
FTWINDOW_API unsigned int FTCreateWindow(void);

/** Waits up to ms milliseconds (below 0: without limit) for a message and takes it.
 * 1: taken; 0: time-out; -1: no such window, also when it is destroyed during the wait. */
FTWINDOW_API int FTWaitMessage(unsigned int window, FTWindowMsg* msg, int ms);

/** A descriptor that is readable while messages wait, for poll, epoll and event loops built on
 * them. Take messages with FTWaitMessage(window, &msg, 0) until it returns 0; do not read from the
 * descriptor or close it. -1: no such window. */
FTWINDOW_API int FTGetWindowFd(unsigned int window);

/** Destroys the window with the messages that wait in it; their bodies are released.
 * 0, or -1: no such window. */
FTWINDOW_API int FTDestroyWindow(unsigned int window);

#ifdef __cplusplus
}
#endif

#endif
