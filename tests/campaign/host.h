#pragma once

#include <functional>

#include "tests/campaign/servers.h"
#include "tests/support/memory_limit.h"

namespace campaign {

// The application: the client and the windows that it is told to use, the newest last. Every call
// of the client must return in time, and may fail for lack of memory only while there is none.
class Host {
 public:
  Host(const Servers& servers, Oracle* oracle);
  ~Host();

  // The nth allocation of the next call of the client fails, and count - 1 after it; 0: none.
  void FailAllocations(int nth, int count);
  bool IsRunning() const { return g_pClientCommThread != nullptr; }
  void Link();
  void UnLink();
  void Ask(std::size_t size);
  void AskTogether(int threads, std::uint32_t times, std::size_t size);
  void AskBalance(std::size_t server, const std::function<void()>& meanwhile);
  void WakeClient();  // so that it looks at its timers
  void GiveWindow();  // a new one
  void TakeWindowAway();
  void DestroyWindow();
  bool HasWindow() const { return m_window != 0; }
  bool Take(int milliseconds);  // one notification; false when none comes in time
  bool IsAnswered() const { return m_oracle->LastAnswered() == m_last_asked; }

 private:
  template <typename Call>
  auto InTime(const char* name, Call call);
  void ChangeTo(unsigned int window);
  void TakeAll();
  void Handle(const FTWindowMsg& msg, unsigned int window);

  Oracle* const m_oracle;
  const std::vector<testkit::Endpoint> m_servers;
  const std::size_t m_usable;
  CClientDataSource m_client;
  unsigned int m_window = 0;
  std::vector<unsigned int> m_older;
  std::uint32_t m_last_asked = 0;
  int m_fail_at = 0, m_fail_count = 0;  // allocations of the next call
};

}  // namespace campaign
