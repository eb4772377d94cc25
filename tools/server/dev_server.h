#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "00shcode/mytoolkit/event.h"
#include "00shcode/mytoolkit/lock.h"
#include "sockif/base_sock_if.h"
#include "tools/server/behaviour.h"

struct ServerSettings {
  std::string host = "127.0.0.1";  // dotted
  std::uint16_t port = 0;          // 0: the system chooses
  FTEventMode event_mode = FTEventMode::kByMessage;
  bool heartbeats = true;
  bool echo = false;              // answers each data package with the same body
  bool answers_balance = false;   // answers the two-byte balance question
  std::string balance_answer;     // empty: the address that the client reached
  BehaviourMaker make_behaviour;  // may be empty
};

// A server for developing hosts: one protocol class on the framework that the client stands on,
// with its wire format and heartbeats.
class DevServer final : public CFTBaseSockIf {
 public:
  // Gets one line for each thing that happens, on the server's threads, possibly several at once.
  using Report = std::function<void(const std::string& line)>;

  DevServer(const ServerSettings& settings, Report report);
  ~DevServer() override;  // as Stop

  // Blocks until the server listens. False: the address cannot be listened on.
  bool Start();

  // Blocks until all threads have ended. Links that are still up are closed
  // by the destructor, without a report.
  void Stop();

  // "address:port", once the server listens.
  std::string GetAddress() const;

  // Any thread. True when a link's behaviour was to end the server and no link is up.
  bool IsDone() const { return m_done.load(); }

  // Any thread. True while the behaviour of each link that closed was complete.
  bool IsComplete() const { return m_complete.load(); }

 protected:
  std::int32_t OnEnterThread() override;
  void OnMsg(FTMsg& msg, std::int32_t draining) override;
  std::int32_t VGetOnePkgLen(const void* data, std::int32_t count, const FTLinkInfo* link) override;
  CFTBuffer* VGetHeartbeatPkg(const FTLinkInfo* link, FTReleaseFunction* release) override;
  void OnAccepted(const FTLinkInfo* link, const FTLinkInfo* listener) override;
  void OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) override;
  void OnLinkClosed(const FTLinkInfo* link, FTCloseReason reason) override;

 private:
  bool IsBalanceQuestion(const char* body, std::int32_t body_len) const;
  void Echo(const FTLinkInfo& link, CFTBuffer* pkg);
  void AnswerBalance(const FTLinkInfo& link);
  void BeginBehaviour(const std::string& link_id) FT_REQUIRES(m_lock);
  std::string EndBehaviour(const std::string& link_id) FT_REQUIRES(m_lock);
  void TellBehaviour(const FTLinkInfo& link, const std::string& request);
  void DoWhatIsDue();
  void DoWhatIsDue(const std::string& link_id, Behaviour* behaviour) FT_REQUIRES(m_lock);
  bool Send(const std::string& link_id, const std::string& wire);
  void ReportLink(const FTLinkInfo& link, const std::string& what);

  const ServerSettings m_settings;
  const Report m_report;
  std::atomic<bool> m_done{false};
  std::atomic<bool> m_complete{true};

  // Taken before the engine's locks.
  mutable CFTLock m_lock;
  CFTEvent m_listen_tried_event;
  bool m_listen_tried FT_GUARDED_BY(m_lock) = false;
  std::uint16_t m_port FT_GUARDED_BY(m_lock) = 0;
  std::map<std::string, std::unique_ptr<Behaviour>> m_links FT_GUARDED_BY(m_lock);  // by link id
  bool m_ending FT_GUARDED_BY(m_lock) = false;  // with the last of the links
};
