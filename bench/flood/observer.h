#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "client/clientdatasource.h"

namespace flood {

// Looks at the memory and makes calls, on a thread of its own, from its construction on.
class Observer {
 public:
  explicit Observer(CClientDataSource* client) : m_client(client) {}
  ~Observer() { Stop(); }
  Observer(const Observer&) = delete;
  Observer& operator=(const Observer&) = delete;

  void Stop();

  // The cells of a table: MiB after 1, 2, 5 and 10 seconds, the most MiB, and how many milliseconds
  // AskData and IsOnline took at most. After Stop.
  std::string GetCells() const;

 private:
  void Run();

  CClientDataSource* const m_client;
  std::atomic<bool> m_stopping{false};
  std::string m_memory_cells;
  double m_peak = 0;
  double m_ask_ms = 0;
  double m_online_ms = 0;
  std::thread m_thread{[this] { Run(); }};
};

}  // namespace flood
