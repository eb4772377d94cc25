#pragma once

#include <string>

#include "tools/common/endpoint.h"

// A sentence on why nobody can listen on a dotted address and its port, found by one more attempt.
std::string ShowListenFault(const Endpoint& endpoint);
