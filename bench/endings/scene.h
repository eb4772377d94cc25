#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <thread>

#include "bench/endings/deaf_ports.h"
#include "bench/endings/host.h"
#include "bench/versus/job.h"
#include "bench/versus/socket.h"

namespace endings {

// One life of a client, brought into a state in which it is ended. The members up to UnLink are
// tried on a scene of its own each; they block for the time given, in which the state goes on, and
// throw std::runtime_error when it is another.
class Scene {
 public:
  using Time = std::chrono::microseconds;

  // versus_server listens at the port.
  explicit Scene(std::uint16_t server_port) : m_server_port(server_port) {}
  ~Scene();
  Scene(const Scene&) = delete;
  Scene& operator=(const Scene&) = delete;

  void Connecting(Time time);  // nobody answers
  void Refused(Time time);
  void Idle(Time time);
  void BeingClosed(Time time);      // returns at once; the server closes when the time is over
  void ClosedByClient(Time time);   // something impossible was sent; the time runs from there
  void JustLost(Time time);         // the server has closed; the time runs from there
  void Unread(Time time);           // requests wait, which the server does not read
  void BothWays(Time time);         // as many requests and answers under way as the link takes
  void SlowWindow(Time time);       // much more is pushed than the application takes
  void WindowDestroyed(Time time);  // pushes go on; the time runs from the window's end

  void UnLink() { m_host.UnLink(); }

  // From Link to the link, in milliseconds, in states that have one.
  std::optional<double> GetLinkTime() const { return m_link_ms; }

 private:
  using Clock = std::chrono::steady_clock;

  void LinkUp(std::uint16_t port);
  void LinkToOwnServer();
  void StartPushes();
  void StartJob(const versus::Job& job);

  const std::uint16_t m_server_port;
  std::optional<SilentPort> m_silent_port;
  std::optional<RefusingPort> m_refusing_port;
  std::optional<versus::Socket> m_peer;
  std::thread m_closing;
  std::optional<double> m_link_ms;
  Host m_host;
};

}  // namespace endings
