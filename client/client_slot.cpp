#include "client/client_slot.h"

#include "00shcode/mytoolkit/block_pool.h"
#include "client/comm_thread.h"

CClientCommThread* g_pClientCommThread = nullptr;

void ft::TearDownClient() {
  if (g_pClientCommThread == nullptr) return;
  g_pClientCommThread->PostQuit();
  g_pClientCommThread->WaitThreadExit();
  delete g_pClientCommThread;
  g_pClientCommThread = nullptr;
  ft::FreeIdleBlocks();  // those of packages that nobody came to handle or to send, too
}
