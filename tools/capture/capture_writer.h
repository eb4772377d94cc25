#pragma once

#include <cstdint>
#include <cstdio>
#include <memory>
#include <string>

#include "00shcode/mytoolkit/lock.h"

namespace capture {

// A new capture file (pcapng) of IP packets. A packet is in the file when Write returns.
class CaptureWriter {
 public:
  // Replaces a file of that name. Throws std::runtime_error when it cannot be written.
  explicit CaptureWriter(const std::string& path);

  // Any thread. False, now and from then on: the file took no more (the disk is full, say).
  bool Write(std::int64_t time_us, const std::string& packet);
  bool IsSound() const;

 private:
  struct Closer {
    void operator()(std::FILE* file) const { std::fclose(file); }
  };

  bool WriteBlock(std::uint32_t type, std::string body) FT_REQUIRES(m_lock);

  mutable CFTLock m_lock;  // writes to the file are made under it
  const std::unique_ptr<std::FILE, Closer> m_file;
  bool m_sound FT_GUARDED_BY(m_lock) = true;
};

}  // namespace capture
