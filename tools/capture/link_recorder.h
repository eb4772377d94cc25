#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "tools/capture/capture_writer.h"
#include "tools/capture/direction.h"
#include "tools/capture/tcp_segment.h"

namespace capture {

// Writes one link to a capture file as the TCP segments that the two ends might have exchanged.
// One thread.
class LinkRecorder {
 public:
  // The writer must outlive the object.
  LinkRecorder(CaptureWriter* writer, const Address& application, const Address& server);

  // All are dated now. False: the file takes no more.
  bool Begin();
  bool Add(Direction direction, const char* data, std::size_t length);
  bool End(Direction direction);  // by whoever sends in this direction

 private:
  struct Side {
    Address address;
    std::uint32_t next_sequence = 0;
  };

  bool Write(Direction direction, unsigned flags, std::string payload = {});

  CaptureWriter* const m_writer;
  Side m_application;
  Side m_server;
};

}  // namespace capture
