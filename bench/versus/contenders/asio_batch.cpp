// Asio as well as one can: large reads, bodies handed over in bulk, what is waiting written
// together, and ftclient's own checksum.
#include <asio.hpp>
#include <string>
#include <thread>
#include <vector>

#include "bench/versus/contender.h"
#include "bench/versus/cutter.h"
#include "bench/versus/inbox.h"
#include "bench/versus/outbox.h"
#include "bench/versus/wire.h"

namespace versus {

namespace {

class AsioBatchContender : public Contender {
 public:
  explicit AsioBatchContender(std::uint16_t port) : m_work(m_io.get_executor()), m_socket(m_io) {
    m_socket.connect({asio::ip::address_v4::loopback(), port});
    m_socket.set_option(asio::ip::tcp::no_delay(true));
    Read();
    m_thread = std::thread([this] { m_io.run(); });
  }

  ~AsioBatchContender() override {
    m_io.stop();
    m_inbox.Close();
    m_thread.join();
  }

  bool Send(const char* body, std::uint32_t length) override {
    if (m_outbox.Add(body, length)) asio::post(m_io, [this] { Write(); });
    return true;
  }

  bool Take(Body* body) override { return m_inbox.Take(body); }
  void Free(const Body& body) override { delete[] body.data; }

 private:
  void Read() {
    const Cutter::Space space = m_cutter.GetSpace();
    m_socket.async_read_some(asio::buffer(space.data, space.size),
                             [this](std::error_code error, std::size_t count) {
                               if (error) return m_inbox.Close();
                               m_cutter.Commit(count, &m_bodies);
                               m_inbox.PutAll(&m_bodies);
                               Read();
                             });
  }

  void Write() {
    if (!m_outbox.TakeAll(&m_chunk)) return;
    asio::async_write(m_socket, asio::buffer(m_chunk), [this](std::error_code error, std::size_t) {
      if (error) return m_inbox.Close();
      Write();
    });
  }

  Inbox m_inbox{Inbox::Taking::kAllAtOnce};
  Outbox m_outbox{FastCheckSum};
  asio::io_context m_io{1};
  asio::executor_work_guard<asio::io_context::executor_type> m_work;
  asio::ip::tcp::socket m_socket;

  // The thread's alone.
  Cutter m_cutter{FastCheckSum};
  std::vector<Body> m_bodies;
  std::string m_chunk;

  std::thread m_thread;
};

}  // namespace

const char* const kContenderName = "asio-batch";

std::unique_ptr<Contender> MakeContender(std::uint16_t port, const Job&) {
  return std::make_unique<AsioBatchContender>(port);
}

}  // namespace versus
