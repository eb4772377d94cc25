#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

struct ServerEntry {
  std::string host;  // dotted IPv4 address
  std::int32_t port = 0;
};

// The servers to try, in order and over again from the first. The usable ones end before the first
// port of 0 or less; the first one is always tried. Not locked.
class CServerList {
 public:
  void Assign(std::vector<ServerEntry> servers) { m_servers = std::move(servers); }

  // The server whose turn it is, or null when the list is empty; the turn moves on.
  const ServerEntry* TakeNext();

 private:
  std::vector<ServerEntry> m_servers;
  std::size_t m_next = 0;
};
