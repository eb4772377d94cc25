#pragma once

#include <cstdint>
#include <string>

#include "bench/versus/job.h"

namespace versus {

// A message is the checksum of the body, four bytes, and the body.
constexpr std::uint32_t kZmqHeadBytes = 4;

// One end of a ZeroMQ link of one client to one server, with a context of its own. It gives up what
// it waits for after kPatienceMs.
class ZmqSocket {
 public:
  // Keeps as many messages waiting as the job has requests under way.
  explicit ZmqSocket(const Job& job);
  ~ZmqSocket();
  ZmqSocket(const ZmqSocket&) = delete;
  ZmqSocket& operator=(const ZmqSocket&) = delete;

  std::string Bind();  // its endpoint
  void Connect(const std::string& endpoint);

  // Waits for room. False: there was none.
  bool Send(const char* body, std::uint32_t length, std::uint32_t check_sum);

  void* Get() const { return m_socket; }

 private:
  void SetOption(int option, int value);

  void* const m_context;
  void* const m_socket;
};

}  // namespace versus
