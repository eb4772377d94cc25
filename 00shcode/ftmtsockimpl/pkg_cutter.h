#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "00shcode/mytoolkit/buffer.h"
#include "platform/platform.h"

// Cuts a stream of bytes into whole packages. Reads may run ahead of the cutting, but what is cut
// and what is lost stays as if a regular buffer of kRegularBytes were filled and cut over and over,
// and a longer package were read into a buffer of its own size. Knows nothing of sockets; one
// thread at a time.
class CFTPkgCutter {
 public:
  static constexpr std::int32_t kRegularBytes = 2048;
  static constexpr std::int32_t kAheadBytes = 65536;

  // The length of the package that begins with the bytes, 0: more are needed, negative: none.
  using LengthRule = std::function<std::int32_t(const unsigned char* data, std::int32_t count)>;

  enum class Result {
    kGoOn,
    kTooBig,
    kProtocolError,
    kLengthGrew,
    kNoLength  // a full regular buffer tells no length: nothing more can be read
  };

  // What one call of Cut did.
  struct Pass {
    void Count(std::int32_t length);

    Result result = Result::kGoOn;
    std::int32_t cut = 0;      // packages, lost ones included
    std::int32_t longest = 0;  // bytes of the longest of them
  };

  static constexpr int kMaxSpaces = 2;

  explicit CFTPkgCutter(LengthRule length_rule);

  // Where the next bytes go, in this order; the number of pieces.
  int GetSpaces(platform::BytePiece spaces[kMaxSpaces]);

  // Takes in so many bytes, at most as many as the pieces hold.
  void Commit(std::int32_t count);

  // Moves the whole packages to the end of the list. After any result but kGoOn the bytes that are
  // left are gone, and so are the packages that were cut from the same regular buffer.
  Pass Cut(std::int32_t max_pkg_len, std::vector<FTBufferPtr>* packages);

 private:
  Result CutAll(std::int32_t max_pkg_len, Pass* pass, std::vector<FTBufferPtr>* packages);
  Result CutWindow(std::int32_t max_pkg_len, Pass* pass, std::vector<FTBufferPtr>* packages);
  Result CutLong(std::int32_t max_pkg_len, Pass* pass, std::vector<FTBufferPtr>* packages);
  void BeginLong(std::int32_t length);
  void FinishLong(std::int32_t length, std::vector<FTBufferPtr>* packages);
  void PutBackInFront(const unsigned char* data, std::int32_t count);

  const LengthRule m_length_rule;
  CFTBuffer m_ahead;   // read and not yet cut
  FTBufferPtr m_long;  // the long package that is being assembled
};
