#pragma once

class CClientCommThread;

// The process's one client, or null. Not guarded: see CClientDataSource on which members may run
// at the same time.
extern CClientCommThread* g_pClientCommThread;

namespace ft {

// Ends the client if there is one: asks its thread to quit, blocks until it has ended, destroys it
// and empties the slot.
void TearDownClient();

}  // namespace ft
