#include "bench/flood/application.h"

#include <cstring>
#include <stdexcept>
#include <string>

namespace flood {

namespace {

constexpr int kPatienceMs = 20000;
constexpr unsigned int kMessage = 0x8001;

}  // namespace

Application::Application(int port, const versus::Job& job)
    : m_bodies(job.bodies, job.size), m_window(FTCreateWindow()) {
  m_client.Link("127.0.0.1", port, "", 0, "", 0, "", 0, "", 0, m_window, kMessage);
  if (Take().lParam != LINK_EVENT_UP) throw std::runtime_error("no link");
  const std::string command = job.Command();
  m_client.AskData(command.data(), static_cast<unsigned int>(command.size()));
}

void Application::TakeBody() {
  const FTWindowMsg msg = Take();
  const std::string& expected = m_bodies.Of(m_taken);
  char* const body = reinterpret_cast<char*>(msg.wParam);
  if (body == nullptr || static_cast<std::size_t>(msg.lParam) != expected.size() ||
      std::memcmp(body, expected.data(), expected.size()) != 0) {
    throw std::runtime_error("wrong notification " + std::to_string(m_taken));
  }
  m_client.FreeBuffer(body);
  ++m_taken;
}

FTWindowMsg Application::Take() const {
  FTWindowMsg msg{};
  if (FTWaitMessage(m_window, &msg, kPatienceMs) != 1) throw std::runtime_error("nothing comes");
  return msg;
}

}  // namespace flood
