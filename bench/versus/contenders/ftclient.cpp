// ftclient as a host has it: the exported class and a window of its own.
#include "client/clientdatasource.h"

#include <stdexcept>

#include "bench/versus/contender.h"
#include "bench/versus/socket.h"
#include "client/ftwindow.h"

namespace versus {

namespace {

class FtClientContender : public Contender {
 public:
  explicit FtClientContender(std::uint16_t port) : m_window(FTCreateWindow()) {
    m_source.Link("127.0.0.1", port, "", 0, "", 0, "", 0, "", 0, m_window, 1);
    FTWindowMsg msg{};
    if (FTWaitMessage(m_window, &msg, kPatienceMs) != 1 || msg.wParam != 0 ||
        msg.lParam != LINK_EVENT_UP) {
      throw std::runtime_error("no link");
    }
  }

  ~FtClientContender() override {
    m_source.UnLink();
    FTDestroyWindow(m_window);
  }

  bool Send(const char* body, std::uint32_t length) override {
    return m_source.AskData(body, length) == 0;
  }

  bool Take(Body* body) override {
    FTWindowMsg msg{};
    if (FTWaitMessage(m_window, &msg, kPatienceMs) != 1 || msg.wParam == 0) return false;
    body->data = reinterpret_cast<char*>(msg.wParam);
    body->length = static_cast<std::uint32_t>(msg.lParam);
    return true;
  }

  void Free(const Body& body) override { m_source.FreeBuffer(body.data); }

 private:
  const unsigned int m_window;
  CClientDataSource m_source;
};

}  // namespace

const char* const kContenderName = "ftclient";

std::unique_ptr<Contender> MakeContender(std::uint16_t port, const Job&) {
  return std::make_unique<FtClientContender>(port);
}

}  // namespace versus
