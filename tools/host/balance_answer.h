#pragma once

#include <optional>
#include <string>

#include "client/clientdatasource.h"
#include "tools/common/endpoint.h"

// Asks a balance server through a client that has no link, and takes the answer out of its array.
// Blocks as CClientDataSource::GetBalanceServer does. Empty: no answer.
std::optional<std::string> AskBalanceServer(CClientDataSource* client, const Endpoint& server,
                                            unsigned char question);
