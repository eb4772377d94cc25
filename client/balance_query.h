#pragma once

namespace ft {

// CClientDataSource::GetBalanceServer: runs a client of its own in the process's slot, which it
// leaves empty.
int QueryBalanceServer(const char* host, int port, char question, char** answer);

}  // namespace ft
