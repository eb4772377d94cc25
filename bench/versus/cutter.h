#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "bench/versus/contender.h"
#include "bench/versus/wire.h"

namespace versus {

// Cuts what is read into bodies and verifies them. Short packages are copied out of a buffer of
// 64 KiB; the rest of a long one is read into the body itself.
class Cutter {
 public:
  struct Space {
    char* data;
    std::size_t size;
  };

  explicit Cutter(CheckSum check_sum);
  ~Cutter();
  Cutter(const Cutter&) = delete;
  Cutter& operator=(const Cutter&) = delete;

  // Where the next bytes go.
  Space GetSpace() const;

  // Takes them in and appends the bodies that are whole and right; each is the caller's, to be
  // released with delete[].
  void Commit(std::size_t count, std::vector<Body>* bodies);

 private:
  void CutBuffer(std::vector<Body>* bodies);
  void Finish(const Body& body, std::uint32_t check_sum, std::vector<Body>* bodies) const;

  static constexpr std::size_t kBufferBytes = 65536;

  const CheckSum m_check_sum;
  const std::unique_ptr<char[]> m_buffer;
  std::size_t m_buffered = 0;

  Body m_long;  // its data are null while no long package is under way
  std::uint32_t m_long_check_sum = 0;
  std::size_t m_long_filled = 0;
};

}  // namespace versus
