#pragma once

#include <cstdint>
#include <string>

#include "client/clientdatasource.h"
#include "client/ftwindow.h"

namespace soak {

// An application whose server drops it again and again: it makes numbered requests, some hundred a
// second, and checks that each answer is the request that is next.
class Host {
 public:
  Host(int number, std::uint16_t port);
  ~Host();
  Host(const Host&) = delete;
  Host& operator=(const Host&) = delete;

  // Blocks, and ends the client. Prints a line of figures each second, as PrintColumns names them,
  // and at last by how many KiB the heap has grown. Throws std::runtime_error on a wrong or missing
  // answer, and when no link comes up.
  void Run(int seconds);

  static void PrintColumns();

 private:
  std::string MakeBody(std::uint64_t request) const;
  void Ask();
  void Take(const FTWindowMsg& msg);
  void TakeBody(char* body, std::size_t length);
  void PrintFigures(int second) const;

  const int m_number;
  const double m_heap_before;
  const unsigned int m_window;
  CClientDataSource m_client;
  bool m_up = false;
  std::uint64_t m_losses = 0;
  std::uint64_t m_asked = 0;     // on this link
  std::uint64_t m_answered = 0;  // on this link
  std::uint64_t m_packages = 0;  // answers on all links
  std::uint64_t m_bytes = 0;     // of their bodies
};

}  // namespace soak
