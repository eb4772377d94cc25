#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

namespace versus {

// How long a run waits for something that ought to come at once.
constexpr int kPatienceMs = 20000;

// A TCP socket on the loopback interface. Blocks and throws std::system_error unless said
// otherwise.
class Socket {
 public:
  explicit Socket(int descriptor) : m_descriptor(descriptor) {}
  ~Socket();
  Socket(Socket&& other) noexcept;
  Socket& operator=(Socket&&) = delete;

  static Socket Connect(std::uint16_t port);
  // Bound to a port that the system chooses; nobody listens there yet.
  static Socket Bind();
  static Socket Listen();
  Socket Accept() const;

  int Get() const { return m_descriptor; }
  std::uint16_t GetPort() const;

  // 0 when the peer has closed.
  std::size_t Receive(char* data, std::size_t size) const;
  void SendAll(const char* data, std::size_t size) const;
  void SendAll(const char* head, std::size_t head_size, const char* body, std::size_t size) const;
  // Ends every call that waits on it.
  void ShutDown() const;

  void SendPackage(const std::string& body) const;
  std::string ReceivePackage() const;

 private:
  void ReceiveExactly(char* data, std::size_t size) const;

  int m_descriptor;
};

}  // namespace versus
