#pragma once

#include "00shcode/ftmtsockimpl/pkg_cutter.h"
#include "tests/support/wire.h"

namespace testkit {

// Feeds a cutter as a link's receive thread does: a cut after each read of at most what fits.
struct CutterFeed {
  // One read and the cut behind it; how many bytes, from the first on, were read.
  std::size_t ReadOnce(const Bytes& bytes) {
    platform::BytePiece spaces[CFTPkgCutter::kMaxSpaces];
    std::size_t read = 0;
    for (int i = 0, count = cutter.GetSpaces(spaces); i < count; ++i) {
      const auto room = static_cast<std::size_t>(spaces[i].length);
      read += bytes.copy(static_cast<char*>(spaces[i].data), room, read);
    }
    cutter.Commit(static_cast<std::int32_t>(read));
    pass = cutter.Cut(5242880, &packages);
    return read;
  }
  // Stops at the first result but kGoOn.
  CFTPkgCutter::Result Feed(Bytes bytes) {
    do {
      bytes.erase(0, ReadOnce(bytes));
    } while (!bytes.empty() && pass.result == CFTPkgCutter::Result::kGoOn);
    return pass.result;
  }

  // Whether exactly these packages were cut since the last call, each with a zero behind it.
  bool Gave(const std::vector<Bytes>& expected) {
    std::vector<Bytes> given;
    bool are_ended = true;
    for (const FTBufferPtr& package : std::exchange(packages, {})) {
      given.emplace_back(package->GetData(), package->GetWritePos());
      are_ended = are_ended && *package->GetWritePos() == 0;
    }
    return are_ended && given == expected;
  }

  CFTPkgCutter cutter;
  CFTPkgCutter::Pass pass{};
  std::vector<FTBufferPtr> packages{};
};

}  // namespace testkit
