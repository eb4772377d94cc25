#pragma once

#include <cstdint>
#include <string>

#include "00shcode/ftmsgq/ftmsgq.h"
#include "00shcode/mytoolkit/buffer.h"

struct FTLinkInfo;
struct FTLinkReq;

// All that the engine knows of the protocol class above it: the settings that its threads read and
// the operations that they call. Records passed to a callback belong to the caller and are gone
// after it returns; a callback that wants to keep something copies it.
//
// Where callbacks run depends on the two modes that the protocol class chooses when it is built:
// - event mode 1: OnRecvPkg, OnLinkClosed and OnSendSpace run on this object's thread, one at a
//   time. Event mode 0: on the link's own threads, at the same time as everything else.
// - heartbeat by message 1 with event mode 1: VGetHeartbeatPkg runs on this object's thread, else
//   on the link's send thread.
// OnConnected, OnConnectFailed and OnAccepted always run on this object's thread, VGetOnePkgLen
// always on the link's receive thread.
class CFTSockIfContract : public CFTMsgQ {
 public:
  // Any thread.
  std::int32_t GetConnectTimeoutSec() const { return m_connect_timeout_sec.Get(); }
  std::int32_t GetMaxPkgLen() const { return m_max_pkg_len.Get(); }
  std::int32_t GetRecvTimeoutSec() const { return m_recv_timeout_sec.Get(); }
  std::int32_t GetHeartbeatSec() const { return m_heartbeat_sec.Get(); }

  // The next link id. Any thread.
  virtual std::string VNewLinkId() = 0;

  // The whole length, header included, of the package that begins with these bytes; 0 when more
  // bytes are needed to tell; negative when they cannot begin a package.
  virtual std::int32_t VGetOnePkgLen(const void* data, std::int32_t count,
                                     const FTLinkInfo* link) = 0;

  // A heartbeat package and the function that releases it, or null for none.
  virtual CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo* link, FTReleaseFunction* release) = 0;

  virtual void OnLinkClosed(const FTLinkInfo* link, std::int32_t reason) = 0;

  // Sets *keep to 1 to become the package's owner.
  virtual void OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) = 0;

  virtual void OnConnectFailed(const FTLinkInfo* link) = 0;
  virtual void OnConnected(const FTLinkInfo* link) = 0;
  virtual void OnAccepted(const FTLinkInfo* link, const FTLinkInfo* listener) = 0;
  virtual void OnSetupFailed(const FTLinkReq* req, const FTLinkInfo* listener) = 0;

  // Room in the link's send queue, in bytes.
  virtual void OnSendSpace(const FTLinkInfo* link, std::int32_t free_bytes, std::int32_t limit) = 0;

  virtual void VPrepareLink(FTLinkReq* req, std::uintptr_t value1, std::uintptr_t value2) = 0;

 private:
  static constexpr std::int32_t kHeartbeatSec = 15;

  CFTLockedValue<std::int32_t> m_connect_timeout_sec{10};
  CFTLockedValue<std::int32_t> m_max_pkg_len{0x500000};  // links with packages so long are closed
  CFTLockedValue<std::int32_t> m_recv_timeout_sec{2 * kHeartbeatSec + 5};
  CFTLockedValue<std::int32_t> m_heartbeat_sec{kHeartbeatSec};
};
