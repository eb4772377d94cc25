#include "client/client_slot.h"

#include <new>

#include "00shcode/mytoolkit/block_pool.h"
#include "client/comm_thread.h"

CClientCommThread* g_pClientCommThread = nullptr;

namespace {

// A client can be ended without memory for a message, too.
void AskToQuit(CClientCommThread* client) {
  try {
    client->PostQuit();
  } catch (const std::bad_alloc&) {
    client->StopThread();
  }
}

}  // namespace

void ft::TearDownClient() {
  if (g_pClientCommThread == nullptr) return;
  AskToQuit(g_pClientCommThread);
  g_pClientCommThread->WaitThreadExit();
  delete g_pClientCommThread;
  g_pClientCommThread = nullptr;
  ft::FreeIdleBlocks();  // those of packages that nobody came to handle or to send, too
}
