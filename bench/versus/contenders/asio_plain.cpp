// Asio as its examples teach it: one read for the head, one for the body, one write per package,
// and a queue to the application.
#include <asio.hpp>
#include <deque>
#include <string>
#include <thread>
#include <utility>

#include "bench/versus/contender.h"
#include "bench/versus/inbox.h"
#include "bench/versus/wire.h"

namespace versus {

namespace {

class AsioPlainContender : public Contender {
 public:
  explicit AsioPlainContender(std::uint16_t port) : m_work(m_io.get_executor()), m_socket(m_io) {
    m_socket.connect({asio::ip::address_v4::loopback(), port});
    m_socket.set_option(asio::ip::tcp::no_delay(true));
    ReadHead();
    m_thread = std::thread([this] { m_io.run(); });
  }

  ~AsioPlainContender() override {
    m_io.stop();
    m_inbox.Close();
    m_thread.join();
    delete[] m_body.data;
  }

  bool Send(const char* body, std::uint32_t length) override {
    std::string package;
    package.reserve(kHeadBytes + length);
    AppendPackage(&package, body, length, PlainCheckSum);
    asio::post(m_io, [this, moved = std::move(package)]() mutable {
      m_outgoing.push_back(std::move(moved));
      if (m_outgoing.size() == 1) Write();
    });
    return true;
  }

  bool Take(Body* body) override { return m_inbox.Take(body); }
  void Free(const Body& body) override { delete[] body.data; }

 private:
  void ReadHead() {
    asio::async_read(m_socket, asio::buffer(m_head), [this](std::error_code error, std::size_t) {
      if (error) return m_inbox.Close();
      const std::uint32_t length = DecodeHead(m_head).body_length;
      m_body = {new char[length], length};
      ReadBody();
    });
  }

  void ReadBody() {
    asio::async_read(m_socket, asio::buffer(m_body.data, m_body.length),
                     [this](std::error_code error, std::size_t) {
                       if (error) return m_inbox.Close();
                       const Body body = std::exchange(m_body, Body());
                       if (PlainCheckSum(body.data, body.length) == DecodeHead(m_head).check_sum) {
                         m_inbox.Put(body);
                       } else {
                         delete[] body.data;
                       }
                       ReadHead();
                     });
  }

  void Write() {
    asio::async_write(m_socket, asio::buffer(m_outgoing.front()),
                      [this](std::error_code error, std::size_t) {
                        if (error) return m_inbox.Close();
                        m_outgoing.pop_front();
                        if (!m_outgoing.empty()) Write();
                      });
  }

  Inbox m_inbox{Inbox::Taking::kOneByOne};
  asio::io_context m_io{1};
  asio::executor_work_guard<asio::io_context::executor_type> m_work;
  asio::ip::tcp::socket m_socket;

  // The thread's alone.
  char m_head[kHeadBytes];
  Body m_body;
  std::deque<std::string> m_outgoing;

  std::thread m_thread;
};

}  // namespace

const char* const kContenderName = "asio";

std::unique_ptr<Contender> MakeContender(std::uint16_t port, const Job&) {
  return std::make_unique<AsioPlainContender>(port);
}

}  // namespace versus
