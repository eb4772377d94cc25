#include "client/server_list.h"

const ServerEntry* CServerList::TakeNext() {
  if (m_servers.empty()) return nullptr;
  if (m_next >= m_servers.size() || m_servers[m_next].port <= 0) m_next = 0;
  return &m_servers[m_next++];
}
