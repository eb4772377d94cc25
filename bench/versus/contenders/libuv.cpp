// libuv: its loop on a thread, what is waiting written together, and a queue to the application.
#include <uv.h>

#include <netinet/in.h>

#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "bench/versus/contender.h"
#include "bench/versus/cutter.h"
#include "bench/versus/inbox.h"
#include "bench/versus/outbox.h"
#include "bench/versus/socket.h"
#include "bench/versus/wire.h"

namespace versus {

namespace {

void Check(int result) {
  if (result < 0) throw std::runtime_error(uv_strerror(result));
}

class LibuvContender : public Contender {
 public:
  explicit LibuvContender(std::uint16_t port) {
    Check(uv_loop_init(&m_loop));
    m_loop.data = this;
    Check(uv_async_init(&m_loop, &m_wake_writer, [](uv_async_t* h) { Self(h)->WriteIfIdle(); }));
    Check(uv_async_init(&m_loop, &m_end, [](uv_async_t* h) { Self(h)->CloseAll(); }));
    Check(uv_tcp_init(&m_loop, &m_tcp));
    Connect(port);
    Check(uv_tcp_nodelay(&m_tcp, 1));
    Check(uv_read_start(Stream(), &Allocate, &OnRead));
    m_thread = std::thread([this] { uv_run(&m_loop, UV_RUN_DEFAULT); });
  }

  ~LibuvContender() override {
    m_inbox.Close();
    uv_async_send(&m_end);
    m_thread.join();
    uv_loop_close(&m_loop);
  }

  bool Send(const char* body, std::uint32_t length) override {
    if (m_outbox.Add(body, length)) uv_async_send(&m_wake_writer);
    return true;
  }

  bool Take(Body* body) override { return m_inbox.Take(body); }
  void Free(const Body& body) override { delete[] body.data; }

 private:
  template <typename Handle>
  static LibuvContender* Self(const Handle* handle) {
    return static_cast<LibuvContender*>(handle->loop->data);
  }

  uv_stream_t* Stream() { return reinterpret_cast<uv_stream_t*>(&m_tcp); }

  void Connect(std::uint16_t port) {
    sockaddr_in address{};
    Check(uv_ip4_addr("127.0.0.1", port, &address));
    uv_connect_t request;
    int result = UV_EAGAIN;
    request.data = &result;
    Check(
        uv_tcp_connect(&request, &m_tcp, reinterpret_cast<const sockaddr*>(&address),
                       [](uv_connect_t* r, int status) { *static_cast<int*>(r->data) = status; }));
    while (result == UV_EAGAIN) uv_run(&m_loop, UV_RUN_ONCE);
    Check(result);
  }

  static void Allocate(uv_handle_t* handle, std::size_t, uv_buf_t* buffer) {
    const Cutter::Space space = Self(handle)->m_cutter.GetSpace();
    *buffer = uv_buf_init(space.data, static_cast<unsigned int>(space.size));
  }

  static void OnRead(uv_stream_t* stream, ssize_t count, const uv_buf_t*) {
    LibuvContender* const self = Self(stream);
    if (count < 0) {
      uv_read_stop(stream);
      return self->m_inbox.Close();
    }
    self->m_cutter.Commit(static_cast<std::size_t>(count), &self->m_bodies);
    for (const Body& body : self->m_bodies) self->m_inbox.Put(body);
    self->m_bodies.clear();
  }

  // A wake-up may come late, when a write is under way again.
  void WriteIfIdle() {
    if (!m_writing) Write();
  }

  void Write() {
    m_writing = m_outbox.TakeAll(&m_chunk);
    if (!m_writing) return;
    const uv_buf_t buffer = uv_buf_init(m_chunk.data(), static_cast<unsigned int>(m_chunk.size()));
    const int result =
        uv_write(&m_write, Stream(), &buffer, 1, [](uv_write_t* request, int status) {
          LibuvContender* const self = Self(request->handle);
          if (status < 0) return self->m_inbox.Close();
          self->Write();
        });
    if (result < 0) m_inbox.Close();
  }

  void CloseAll() {
    uv_walk(
        &m_loop, [](uv_handle_t* handle, void*) { uv_close(handle, nullptr); }, nullptr);
  }

  Inbox m_inbox{Inbox::Taking::kOneByOne};
  Outbox m_outbox{PlainCheckSum};

  uv_loop_t m_loop;
  uv_async_t m_wake_writer;
  uv_async_t m_end;
  uv_tcp_t m_tcp;

  // The loop's alone.
  Cutter m_cutter{PlainCheckSum};
  std::vector<Body> m_bodies;
  uv_write_t m_write;
  std::string m_chunk;
  bool m_writing = false;

  std::thread m_thread;
};

}  // namespace

const char* const kContenderName = "libuv";

std::unique_ptr<Contender> MakeContender(std::uint16_t port, const Job&) {
  return std::make_unique<LibuvContender>(port);
}

}  // namespace versus
