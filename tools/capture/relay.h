#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <vector>

#include "00shcode/ftmtsockimpl/sock.h"
#include "00shcode/mytoolkit/thread.h"
#include "tools/capture/direction.h"
#include "tools/common/endpoint.h"

namespace capture {

// Is told what passes through a relay, on the relay's thread.
class RelayEvents {
 public:
  enum class End { kApplication, kServer, kStopped, kNoServer };

  virtual ~RelayEvents() = default;
  virtual void OnUp() = 0;  // the server was reached
  virtual void OnBytes(Direction direction, const char* data, std::size_t length) = 0;
  virtual void OnEnd(End end) = 0;  // who ended the link; once
};

// Passes on the bytes of one link between an application and a server, unchanged and no faster than
// the receiver takes them. When one side ends the link, the other gets what was still on the way,
// and then the end; what travels against it from then on is lost.
class Relay final : public CMyThread {
 public:
  // Takes over the application's socket. events must outlive the object.
  Relay(FTSocket application, const Endpoint& server, RelayEvents* events);
  ~Relay() override;  // Precondition: joined.

  // True when OnEnd has returned.
  bool HasEnded() const { return m_ended.load(); }

  void StopThread() override;

 protected:
  std::int32_t OnEnterThread() override;
  std::int32_t RunOnce() override;
  void OnExitThread() override;

 private:
  struct Way {
    Direction direction;
    RelayEvents::End giver;
    RelayEvents::End taker;
    FTSocket from = kNoSocket;
    FTSocket to = kNoSocket;
    std::string pending{};  // received and not passed on yet
    bool from_ended = false;
  };

  bool ReachServer();
  const Way& GetOpposite(const Way& way) const;
  bool WaitForSockets(FTSockSet* readable, FTSockSet* writable);
  void Receive(Way* way);
  void PassOn(Way* way);
  void EndBy(RelayEvents::End end);
  void PassEndOn(const Way& way);

  // Constant.
  const Endpoint m_server;
  RelayEvents* const m_events;

  // With a lock of their own.
  platform::Waker m_waker;
  std::atomic<bool> m_ended{false};

  // The worker's alone.
  Way m_to_server{Direction::kToServer, RelayEvents::End::kApplication, RelayEvents::End::kServer};
  Way m_to_application{Direction::kToApplication, RelayEvents::End::kServer,
                       RelayEvents::End::kApplication};
  std::vector<char> m_space = std::vector<char>(32768);  // to receive into
  RelayEvents::End m_end = RelayEvents::End::kStopped;
};

}  // namespace capture
