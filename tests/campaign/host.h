#pragma once

#include <list>

#include "tests/campaign/memory_limit.h"
#include "tests/campaign/oracle.h"
#include "tests/campaign/schedule.h"
#include "tests/support/client_test.h"

namespace campaign {

// The application: the client and the windows that it is told to use, the newest last. Every call
// of the client must return in time, and may fail for lack of memory only while there is none.
class Host {
 public:
  Host(std::vector<testkit::Endpoint> servers, Oracle* oracle);
  ~Host();

  void Play(const Step& step);
  // The nth allocation of the next call of the client fails, and count - 1 after it; 0: none.
  void FailAllocations(int nth, int count);
  bool IsRunning() const;
  int Link();
  void UnLink();
  bool Ask(std::uint32_t thread, std::size_t size);  // false: refused
  void AskBalance(std::size_t server);
  void WakeClient();  // so that it looks at its timers
  void GiveWindow();  // a new one
  bool HasWindow() const { return m_window != 0; }
  // Takes one notification; false when none comes in time.
  bool Take(int milliseconds);
  std::uint32_t LastAsked() const { return m_last_asked; }
  void CheckNothingIsPosted();  // after the client has ended

 private:
  template <typename Call>
  auto InTime(const char* name, Call call);
  void AskMany(const Step& step, std::uint32_t threads);
  void ChangeTo(unsigned int window);
  void TakeAll();
  bool Handle(const FTWindowMsg& msg, unsigned int window);  // true

  Oracle* const m_oracle;
  const std::vector<testkit::Endpoint> m_servers;
  CClientDataSource m_client;
  unsigned int m_window = 0;
  std::list<unsigned int> m_older;
  std::uint32_t m_last_asked = 0;
  int m_fail_at = 0, m_fail_count = 0;  // allocations of the next call
};

}  // namespace campaign
