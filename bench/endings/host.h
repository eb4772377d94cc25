#pragma once

#include <cstdint>
#include <vector>

#include "bench/endings/window.h"
#include "client/clientdatasource.h"

namespace endings {

// An application: the exported class and a window. Bodies that arrive are freed unseen.
class Host {
 public:
  Host() = default;
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  void Link(std::uint16_t port);

  // Blocks. Throws std::runtime_error when another link event comes first, or none.
  void AwaitLinkEvent(int link_event);

  // False: refused.
  bool Ask(const std::vector<char>& body);

  // Waits for a body up to so many milliseconds. False: none came. Throws std::runtime_error when a
  // link event comes.
  bool TakeBody(int wait_ms);

  void DestroyWindow() { m_window.Destroy(); }

  void UnLink() { m_source.UnLink(); }

 private:
  Window m_window;
  CClientDataSource m_source;  // destroyed first: it ends the client
};

}  // namespace endings
