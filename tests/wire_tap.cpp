// A relay for one link that writes down what it carries.
// usage: wire_tap PORT TO_SERVER TO_CLIENT
// Prints 'listening on ADDRESS:PORT', takes one link, links to the port of this machine, and ends
// with the link. The two files hold the bytes of each direction.
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/support/socket_io.h"

namespace {

using testkit::Bytes;
using testkit::Deadline;
using testkit::Descriptor;
using testkit::Direction;
using testkit::ReadResult;

constexpr std::chrono::seconds kLimit{30};

Descriptor AcceptOne() {
  const Descriptor listening = testkit::OpenBoundSocket();
  testkit::StartListening(listening, 1);
  std::printf("listening on %s:%d\n", testkit::kLoopbackHost, testkit::LocalPort(listening));
  std::fflush(stdout);
  if (!WaitReady(listening, Direction::kRead, Deadline(kLimit))) {
    throw std::runtime_error("nobody links");
  }
  return testkit::AcceptWaiting(listening);
}

Descriptor LinkTo(std::uint16_t port) {
  Descriptor server = testkit::OpenSocket();
  if (!ConnectTo(server, port, Deadline(kLimit))) throw std::runtime_error("no server answers");
  return server;
}

void WriteAll(const Descriptor& socket, const Bytes& bytes) {
  std::size_t written = 0;
  while (written < bytes.size()) {
    if (!WaitReady(socket, Direction::kWrite, Deadline(kLimit))) {
      throw std::runtime_error("the receiver does not read");
    }
    written += WriteAvailable(socket, bytes.data() + written, bytes.size() - written);
  }
}

// One direction of the link.
class Channel {
 public:
  Channel(const Descriptor* from, const Descriptor* to, const char* file)
      : m_from(from), m_to(to), m_file(file, std::ios::binary) {
    m_file.exceptions(std::ios::failbit | std::ios::badbit);
  }

  const Descriptor* From() const { return m_from; }
  bool IsOver() const { return m_over; }

  // Carries what is there. False when the link was reset, so that it is over in both directions.
  bool Carry() {
    Bytes bytes;
    const ReadResult result = ReadAvailable(*m_from, &bytes);
    m_file.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (result == ReadResult::kBytes) WriteAll(*m_to, bytes);
    if (result == ReadResult::kReset) return false;
    if (result == ReadResult::kOrderlyEnd) {
      m_over = true;
      StopSending(*m_to);
    }
    return true;
  }

 private:
  const Descriptor* const m_from;
  const Descriptor* const m_to;
  std::ofstream m_file;
  bool m_over = false;
};

void Relay(std::uint16_t port, const char* to_server_file, const char* to_client_file) {
  const Descriptor client = AcceptOne();
  const Descriptor server = LinkTo(port);
  Channel to_server(&client, &server, to_server_file);
  Channel to_client(&server, &client, to_client_file);
  while (!to_server.IsOver() || !to_client.IsOver()) {
    std::vector<testkit::Interest> interests;
    for (Channel* channel : {&to_server, &to_client}) {
      if (!channel->IsOver()) interests.push_back({channel->From(), false});
    }
    WaitForAny(interests);
    for (Channel* channel : {&to_server, &to_client}) {
      if (!channel->IsOver() && !channel->Carry()) return;
    }
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) return std::fprintf(stderr, "usage: wire_tap PORT TO_SERVER TO_CLIENT\n"), 2;
  try {
    Relay(static_cast<std::uint16_t>(std::stoi(argv[1])), argv[2], argv[3]);
  } catch (const std::exception& error) {
    return std::fprintf(stderr, "wire_tap: %s\n", error.what()), 1;
  }
}
