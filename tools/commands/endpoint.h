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

// For a text without an endpoint fault.
Endpoint ParseEndpoint(const std::string& text);

std::string ShowEndpoint(const Endpoint& endpoint);
