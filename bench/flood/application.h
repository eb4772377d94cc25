#pragma once

#include <cstdint>

#include "bench/versus/body_set.h"
#include "bench/versus/job.h"
#include "client/clientdatasource.h"
#include "client/ftwindow.h"

namespace flood {

// Has a server push and compares every body with what it ought to be. All calls come from one
// thread, wait for what ought to come, and throw std::runtime_error when it does not.
class Application {
 public:
  Application(int port, const versus::Job& job);

  CClientDataSource* Client() { return &m_client; }

  void TakeBody();
  std::uint64_t GetTaken() const { return m_taken; }

 private:
  FTWindowMsg Take() const;

  const versus::BodySet m_bodies;
  const unsigned int m_window;
  CClientDataSource m_client;
  std::uint64_t m_taken = 0;
};

}  // namespace flood
