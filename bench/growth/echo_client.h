#pragma once

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "bench/growth/protocol.h"

namespace growth {

// Links to an EchoServer: sends, and counts the answers.
class EchoClient final : public Protocol {
 public:
  // Starts. All packages have bodies of so many bytes.
  explicit EchoClient(std::uint32_t body_bytes);
  ~EchoClient() override { Stop(); }

  // Opens so many links and blocks until they are up. Throws std::runtime_error.
  void Open(std::uint16_t port, int links);

  // Any thread.
  void Send(std::size_t link);

  // Has every answer followed by a new package from now on, or no more.
  void SetRefilling(bool refilling) { m_refilling.store(refilling); }

  std::uint64_t GetSent() const { return m_sent.load(); }
  std::uint64_t GetAnswers() const { return m_answers.load(); }

  // Blocks until everything sent is answered. Throws std::runtime_error when an answer is missing
  // or another than it should be.
  void AwaitAnswers();

  // Blocks until all links have ended.
  void AwaitClosed();

 protected:
  void OnConnected(const FTLinkInfo* link) override;
  void OnConnectFailed(const FTLinkInfo* link) override;
  void OnLinkClosed(const FTLinkInfo* link, FTCloseReason reason) override;
  void OnRecvPkg(const FTLinkInfo* link, CFTBuffer* pkg, std::int32_t* keep) override;

 private:
  template <typename Condition>
  void Await(const char* what, Condition condition);
  void SendOn(const std::string& link_id);
  void Notify();

  const std::string m_body;
  std::vector<std::string> m_link_ids;  // constant once open

  std::atomic<bool> m_refilling{false};
  std::atomic<std::uint64_t> m_sent{0};
  std::atomic<std::uint64_t> m_answers{0};
  std::atomic<int> m_up{0};
  std::atomic<bool> m_failed{false};  // a link or a body

  std::mutex m_mutex;
  std::condition_variable m_changed;
};

}  // namespace growth
