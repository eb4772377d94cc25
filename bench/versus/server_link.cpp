#include "bench/versus/server_link.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <system_error>
#include <vector>

#include "bench/versus/body_set.h"
#include "bench/versus/wire.h"
#include "bench/versus/zmq_server.h"

namespace versus {

namespace {

constexpr std::size_t kEchoBytes = 1 << 18;
constexpr std::size_t kMinChunkBytes = 1 << 18;

std::string MakePackage(const Job& job, const std::string& body, std::uint64_t n) {
  std::string package;
  AppendPackage(&package, body.data(), static_cast<std::uint32_t>(body.size()), PlainCheckSum);
  if (job.IsDamaged(n)) package[kHeadBytes + body.size() / 2] ^= 1;
  return package;
}

}  // namespace

void ServerLink::Serve() const {
  try {
    const std::string command = m_socket.ReceivePackage();
    const std::string zmq_prefix = "zmq ";
    if (command.compare(0, zmq_prefix.size(), zmq_prefix) == 0) {
      ServeZmq(Job::Parse(command.substr(zmq_prefix.size())));
      return;
    }
    const Job job = Job::Parse(command);
    if (job.kind == JobKind::kPush) {
      Push(job);
    } else {
      Echo();
    }
  } catch (const std::system_error& error) {
    // How clients end: some by a reset.
    if (error.code() == std::errc::connection_reset || error.code() == std::errc::broken_pipe)
      return;
    std::fprintf(stderr, "versus_server: %s\n", error.what());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "versus_server: %s\n", error.what());
  }
}

// Sends the same chunk over and over: all packages of a period, several times.
void ServerLink::Push(const Job& job) const {
  const BodySet bodies(job.bodies, job.size);
  const std::uint64_t period = bodies.GetCount() * (job.damaged ? Job::kDamageStep : 1);
  std::string chunk;
  std::uint64_t in_chunk = 0;
  while (in_chunk % period != 0 || chunk.size() < kMinChunkBytes) {
    chunk += MakePackage(job, bodies.Of(in_chunk), in_chunk);
    ++in_chunk;
  }
  const std::size_t package_bytes = kHeadBytes + job.size;
  for (std::uint64_t left = job.count; left > 0;) {
    const std::uint64_t now = std::min(left, in_chunk);
    m_socket.SendAll(chunk.data(), now * package_bytes);
    left -= now;
  }
  WaitForEnd();
}

void ServerLink::Echo() const {
  std::vector<char> buffer(kEchoBytes);
  while (const std::size_t received = m_socket.Receive(buffer.data(), buffer.size())) {
    m_socket.SendAll(buffer.data(), received);
  }
}

void ServerLink::WaitForEnd() const {
  char byte;
  while (m_socket.Receive(&byte, 1) > 0) {
  }
}

void ServerLink::ServeZmq(const Job& job) const {
  ZmqServer server(job);
  m_socket.SendPackage(server.GetEndpoint());
  if (job.kind == JobKind::kPush) {
    server.Push();
    WaitForEnd();
  } else {
    server.Echo(m_socket);
  }
}

}  // namespace versus
