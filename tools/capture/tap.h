#pragma once

#include <cstdint>
#include <list>
#include <memory>
#include <string>

#include "00shcode/ftmtsockimpl/sock.h"
#include "tools/capture/capture_writer.h"
#include "tools/capture/relay.h"
#include "tools/capture/tapped_link.h"
#include "tools/common/endpoint.h"

namespace capture {

struct TapOptions {
  Endpoint listen;        // a dotted address; port 0: the system chooses
  Endpoint server;        // a dotted address
  std::string recording;  // a capture file; empty: none
  TapStyle style;
};

// Stands between applications and their server: a relay for each link that comes. One thread.
class Tap {
 public:
  // Throws std::runtime_error when there is to be a recording and it cannot be written.
  explicit Tap(const TapOptions& options);
  ~Tap();  // as Stop
  Tap(const Tap&) = delete;
  Tap& operator=(const Tap&) = delete;

  // False: the address cannot be listened on.
  bool Listen();

  // "address:port", while it listens.
  std::string GetAddress() const;

  // Takes a link that comes within so many milliseconds, and frees those that have ended.
  void RunOnce(std::int32_t wait_ms);

  // Closes the links that are still up, and listens no longer.
  void Stop();

  // True while everything was recorded that should be.
  bool IsRecordingSound() const { return !m_writer || m_writer->IsSound(); }

 private:
  struct Link {
    TappedLink events;
    Relay relay;

    Link(int number, FTSocket application, const FTSockAddr& peer, const TapOptions& options,
         CaptureWriter* writer);
    ~Link();
  };

  void Accept();

  const TapOptions m_options;
  const std::unique_ptr<CaptureWriter> m_writer;
  FTSocket m_listening = kNoSocket;
  int m_count = 0;
  std::list<Link> m_links;
};

}  // namespace capture
