// HOST:PORT as people write it. Functions without state.
#pragma once

#include <string>

struct Endpoint {
  std::string host;
  int port = 0;
};

// What is wrong with the text, in words for whoever wrote it; empty: nothing.
std::string FindAddressFault(const std::string& text);         // dotted IPv4
std::string FindEndpointFault(const std::string& text);        // name or dotted address, and port
std::string FindDottedEndpointFault(const std::string& text);  // dotted address and port
std::string FindLocalEndpointFault(const std::string& text);   // the same to listen on: 0 is a port

// For a text without an endpoint fault.
Endpoint ParseEndpoint(const std::string& text);

// With a dotted address instead of a name. Blocks on the system's name service; throws
// std::runtime_error when the name is unknown.
Endpoint ResolveEndpoint(const Endpoint& endpoint);

std::string ShowEndpoint(const Endpoint& endpoint);
