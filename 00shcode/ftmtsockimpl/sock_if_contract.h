#pragma once

#include <cstdint>
#include <string>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "00shcode/ftmtsockimpl/link_info.h"
#include "00shcode/mytoolkit/buffer.h"

// Where OnRecvPkg, OnLinkClosed and OnSendSpace run.
enum class FTEventMode : std::int32_t {
  kDirect = 0,    // on the link's own threads, at the same time as everything else
  kByMessage = 1  // on the protocol object's thread, one at a time
};

// Where VGetHeartbeatPkg runs.
enum class FTHeartbeatMode : std::int32_t {
  kOnSendThread = 0,
  kByMessage = 1  // on the protocol object's thread, if events come by message too
};

// Whether the link threads report the room in their send queues (OnSendSpace).
enum class FTSpaceReports : std::int32_t { kNone = 0, kWanted = 1 };

// All that the engine expects of the protocol object above it: the settings that its threads read
// and the operations that they call. Records passed to a callback belong to the caller and are gone
// after it returns; a callback that wants to keep something copies it.
//
// OnConnected, OnConnectFailed and OnAccepted always run on this object's thread, VGetOnePkgLen
// always on the link's receive thread; for the others see the two modes.
class CFTSockIfContract : public CFTMsgQ {
 public:
  // Any thread.
  std::int32_t GetConnectTimeoutSec() const { return 10; }
  std::int32_t GetMaxPkgLen() const { return 0x500000; }  // links with packages so long are closed
  std::int32_t GetHeartbeatSec() const { return 15; }
  std::int32_t GetRecvTimeoutSec() const { return 2 * GetHeartbeatSec() + 5; }

  // The next link id. Any thread.
  virtual std::string VNewLinkId() = 0;

  // The whole length, header included, of the package that begins with these bytes; 0 when more
  // bytes are needed to tell; negative when they cannot begin a package.
  virtual std::int32_t VGetOnePkgLen(const void* data, std::int32_t count,
                                     const FTLinkInfo* link) = 0;

  // A heartbeat package and the function that releases it, or null for none.
  virtual CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo* link, FTReleaseFunction* release) = 0;

  virtual void OnLinkClosed(const FTLinkInfo* link, FTCloseReason reason) = 0;

  // Sets *keep to 1 to become the package's owner, who releases it with ReleaseFTBuffer.
  virtual void OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) = 0;

  virtual void OnConnectFailed(const FTLinkInfo* link) = 0;
  virtual void OnConnected(const FTLinkInfo* link) = 0;
  virtual void OnAccepted(const FTLinkInfo* link, const FTLinkInfo* listener) = 0;
  virtual void OnSetupFailed(const FTLinkReq* req, const FTLinkInfo* listener) = 0;

  // Room in the link's send queue, in bytes.
  virtual void OnSendSpace(const FTLinkInfo* link, std::int32_t free_bytes, std::int32_t limit) = 0;

  virtual void VPrepareLink(FTLinkReq* req, std::uintptr_t value1, std::uintptr_t value2) = 0;
};
