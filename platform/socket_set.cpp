#include <algorithm>

#include "platform/platform.h"

namespace platform {

bool SocketSet::Add(Socket socket) {
  if (IsFull()) return false;
  m_sockets.push_back(socket);
  return true;
}

bool SocketSet::Contains(Socket socket) const {
  return std::find(m_sockets.begin(), m_sockets.end(), socket) != m_sockets.end();
}

}  // namespace platform
