#pragma once

#include <string>

#include "tools/commands/endpoint.h"

// Why nobody can listen on a dotted address and its port, found by one more attempt.
std::string FindListenFault(const Endpoint& endpoint);
