#pragma once

#include <array>
#include <cstddef>
#include <string>

// Keeps what the process writes to its standard error stream, for as long as the object lives: the
// last 100,000 bytes or more of it. Does nothing when the stream is no terminal. One
// object.
class ErrorPipe {
 public:
  // Throws std::system_error when the system has no descriptors left.
  ErrorPipe();
  ~ErrorPipe();  // the stream is what it was
  ErrorPipe(const ErrorPipe&) = delete;
  ErrorPipe& operator=(const ErrorPipe&) = delete;

  // What was written since the last call. Does not block.
  std::string Take();

  // Gives the stream back and writes to it what was kept. For signal handlers too.
  void Spill();

 private:
  void Keep(const char* text, std::size_t count);

  // Of a fixed size: what signal handlers touch does not move.
  std::array<char, 200000> m_kept{};
  std::size_t m_kept_count = 0;
  int m_reader = -1;
  int m_stream = -1;  // the stream as it was
};
