#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "00shcode/mytoolkit/buffer.h"

// Cuts a stream of bytes into whole packages. Packages that the regular buffer can hold are
// assembled there; a longer one gets a buffer of its own size, so that no byte of the next package
// enters it. Knows nothing of sockets; one thread at a time.
class CFTPkgCutter {
 public:
  // The length of the package that begins with the bytes, 0: more are needed, negative: none.
  using LengthRule = std::function<std::int32_t(const unsigned char* data, std::int32_t count)>;

  enum class Result { kGoOn, kTooBig, kProtocolError, kLengthGrew };

  explicit CFTPkgCutter(LengthRule length_rule);

  // Where the next bytes go: at most GetFreeTail of them at GetWritePos, then CommitWrite.
  CFTBuffer* GetBuffer() { return m_oversize != nullptr ? m_oversize.get() : &m_regular; }

  // Moves the whole packages to the end of the list. After any result but kGoOn the bytes that
  // are left are gone, and the packages cut before stay in the list.
  Result Cut(std::int32_t max_pkg_len, std::vector<FTBufferPtr>* packages);

 private:
  std::int32_t GetFirstLength();
  Result KeepIncomplete(std::int32_t length);
  void TakeOversize(std::int32_t length, std::vector<FTBufferPtr>* packages);
  Result Discard(Result why);

  const LengthRule m_length_rule;
  CFTBuffer m_regular;
  FTBufferPtr m_oversize;  // while one long package is assembled
};
