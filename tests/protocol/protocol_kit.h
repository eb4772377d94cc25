#pragma once

#include <gmock/gmock.h>

#include "00shcode/mytoolkit/text.h"
#include "tests/support/clock.h"
#include "tests/support/process.h"
#include "tests/support/test_protocol.h"

namespace testkit {

using Kind = LinkEvent::Kind;
using Lines = std::vector<std::string>;

constexpr Milliseconds kAWhile(300);  // for what must not happen
constexpr std::int32_t kQueueLimit = 200000000;

// The lines with this text, each behind its source, number and level.
inline Lines LinesAbout(const TestProtocol& protocol, const std::string& part) {
  Lines lines;
  for (const LogLine& line : protocol.LinesWith(part)) {
    lines.push_back(line.source + ft::FormatString(" %d %d ", line.line, line.level_code) +
                    line.text);
  }
  return lines;
}

// Waits for them: some are written just after what they tell of.
inline void ExpectLines(const TestProtocol& protocol, const std::string& part,
                        const Lines& expected) {
  WaitUntil([&] { return LinesAbout(protocol, part) == expected; }, Milliseconds(2000));
  EXPECT_EQ(LinesAbout(protocol, part), expected);
}

// Those about links that ended are errors.
inline std::string LinkDown(int line, const std::string& why) {
  return ft::FormatString("ftmtsockimpl.cpp %d -1 Link down with[127.0.0.1]: ", line) + why + "\n";
}

// The release function of a refused package runs once when asked to, and otherwise never.
inline void ExpectRefused(TestProtocol& protocol, const std::string& id, const Bytes& bytes,
                          FTSendMode mode, std::int32_t result) {
  for (const auto on_refusal : {FTOnRefusal::kKeep, FTOnRefusal::kRelease}) {
    const ReleaseCounter released;
    CFTBuffer* const pkg = NewBuffer(bytes);
    EXPECT_EQ(protocol.SendPkg(id, pkg, &ReleaseCounter::Release, mode, on_refusal, 3), result);
    EXPECT_EQ(released.Count(), static_cast<int>(on_refusal));
    if (on_refusal == FTOnRefusal::kKeep) ReleaseFTBuffer(pkg);
  }
}

}  // namespace testkit
