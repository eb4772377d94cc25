// What one writes without any library: a thread that reads, and a queue to the application.
#include <system_error>
#include <thread>
#include <vector>

#include "bench/versus/contender.h"
#include "bench/versus/cutter.h"
#include "bench/versus/inbox.h"
#include "bench/versus/socket.h"
#include "bench/versus/wire.h"

namespace versus {

namespace {

class ThreadContender : public Contender {
 public:
  explicit ThreadContender(std::uint16_t port)
      : m_socket(Socket::Connect(port)), m_thread([this] { Receive(); }) {}

  ~ThreadContender() override {
    m_socket.ShutDown();
    m_inbox.Close();
    m_thread.join();
  }

  bool Send(const char* body, std::uint32_t length) override {
    char head[kHeadBytes];
    EncodeHead({length, PlainCheckSum(body, length)}, head);
    m_socket.SendAll(head, sizeof head, body, length);
    return true;
  }

  bool Take(Body* body) override { return m_inbox.Take(body); }
  void Free(const Body& body) override { delete[] body.data; }

 private:
  void Receive() {
    try {
      ReceiveAll();
    } catch (const std::system_error&) {
      // The server's end may come as a reset, and so may ours.
    }
    m_inbox.Close();
  }

  void ReceiveAll() {
    Cutter cutter(PlainCheckSum);
    std::vector<Body> bodies;
    for (;;) {
      const Cutter::Space space = cutter.GetSpace();
      const std::size_t received = m_socket.Receive(space.data, space.size);
      if (received == 0) return;
      cutter.Commit(received, &bodies);
      for (const Body& body : bodies) m_inbox.Put(body);
      bodies.clear();
    }
  }

  const Socket m_socket;
  Inbox m_inbox{Inbox::Taking::kOneByOne};
  std::thread m_thread;
};

}  // namespace

const char* const kContenderName = "thread";

std::unique_ptr<Contender> MakeContender(std::uint16_t port, const Job&) {
  return std::make_unique<ThreadContender>(port);
}

}  // namespace versus
