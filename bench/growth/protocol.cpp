#include "bench/growth/protocol.h"

#include <thread>

#include "client/package.h"

namespace growth {

Protocol::Protocol()
    : CFTBaseSockIf(FTEventMode::kByMessage, FTHeartbeatMode::kOnSendThread,
                    FTSpaceReports::kNone) {
  SetIdleWaitMs(500);
}

void Protocol::Start() {
  StartThread(0);
  while (IsRunning() == 0) std::this_thread::yield();
}

void Protocol::Stop() {
  PostQuit();
  WaitThreadExit();
}

std::int32_t Protocol::VGetOnePkgLen(const void* data, std::int32_t count, const FTLinkInfo*) {
  return ft::GetPkgLen(data, count);
}

CFTBuffer* Protocol::VGetHeartbeatPkg(const FTLinkInfo*, FTReleaseFunction* release) {
  *release = &ReleaseFTBuffer;
  return ft::MakeHeartbeatPkg().release();
}

}  // namespace growth
