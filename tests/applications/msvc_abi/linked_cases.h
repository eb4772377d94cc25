// The cases of the application that imports the class through its import library.
#pragma once

#include "client/clientdatasource.h"
#include "tests/msvc_abi/app.h"

// Starts a client that links to the server, without notifications.
inline int StartClient(CClientDataSource* client, const Arguments& server) {
  return client->Link(server.host, server.port, "", 0, "", 0, "", 0, "", 0, 0, 0);
}

void TestObjects(const Arguments& server);
void TestTypeInformation();
