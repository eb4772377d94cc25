#include "bench/endings/scene.h"

#include <stdexcept>
#include <string>
#include <vector>

#include "bench/common/stop_watch.h"
#include "client/clientdatasource.h"

namespace endings {

namespace {

constexpr std::size_t kBodyBytes = 16384;
constexpr int kUnreadRequests = 2000;
constexpr std::uint64_t kEndlessly = 1ULL << 40;
constexpr char kImpossibleHeader[12] = {1, 0, 0, 0, '\x7F', '\xFF', '\xFF', '\xFF'};

}  // namespace

Scene::~Scene() {
  if (m_closing.joinable()) m_closing.join();
}

void Scene::LinkUp(std::uint16_t port) {
  const bench::StopWatch watch;
  m_host.Link(port);
  m_host.AwaitLinkEvent(LINK_EVENT_UP);
  m_link_ms = watch.GetMs();
}

void Scene::LinkToOwnServer() {
  const versus::Socket listener = versus::Socket::Listen();
  LinkUp(listener.GetPort());
  m_peer.emplace(listener.Accept());
}

void Scene::StartJob(const versus::Job& job) {
  LinkUp(m_server_port);
  const std::string command = job.Command();
  if (!m_host.Ask({command.begin(), command.end()})) throw std::runtime_error("refused job");
}

void Scene::StartPushes() {
  versus::Job job;
  job.size = kBodyBytes;
  job.count = kEndlessly;
  StartJob(job);
}

void Scene::Connecting(Time time) {
  m_silent_port.emplace();
  m_host.Link(m_silent_port->Get());
  std::this_thread::sleep_for(time);
  m_host.TakeBody(0);  // no news
}

void Scene::Refused(Time time) {
  m_refusing_port.emplace();
  m_host.Link(m_refusing_port->Get());
  std::this_thread::sleep_for(time);
  m_host.TakeBody(0);
}

void Scene::Idle(Time time) {
  LinkToOwnServer();
  std::this_thread::sleep_for(time);
  m_host.TakeBody(0);
}

void Scene::BeingClosed(Time time) {
  LinkToOwnServer();
  m_closing = std::thread([this, time] {
    std::this_thread::sleep_for(time);
    m_peer.reset();
  });
}

void Scene::ClosedByClient(Time time) {
  LinkToOwnServer();
  m_peer->SendAll(kImpossibleHeader, sizeof kImpossibleHeader);
  std::this_thread::sleep_for(time);
}

void Scene::JustLost(Time time) {
  LinkToOwnServer();
  m_peer.reset();
  std::this_thread::sleep_for(time);
}

void Scene::Unread(Time time) {
  LinkToOwnServer();
  const std::vector<char> body(kBodyBytes, 'x');
  for (int i = 0; i < kUnreadRequests; ++i) {
    if (!m_host.Ask(body)) throw std::runtime_error("refused request");
  }
  std::this_thread::sleep_for(time);
  m_host.TakeBody(0);
}

void Scene::BothWays(Time time) {
  versus::Job job;
  job.kind = versus::JobKind::kPipeline;
  StartJob(job);
  const std::vector<char> body(kBodyBytes, 'x');
  std::uint32_t under_way = 0;
  const auto end = Clock::now() + time;
  do {
    while (under_way < job.GetOutstanding() && m_host.Ask(body)) ++under_way;
    if (!m_host.TakeBody(versus::kPatienceMs)) throw std::runtime_error("missing answer");
    --under_way;
  } while (Clock::now() < end);
}

void Scene::SlowWindow(Time time) {
  StartPushes();
  const auto end = Clock::now() + time;
  do {
    if (!m_host.TakeBody(versus::kPatienceMs)) throw std::runtime_error("missing body");
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  } while (Clock::now() < end);
}

void Scene::WindowDestroyed(Time time) {
  StartPushes();
  if (!m_host.TakeBody(versus::kPatienceMs)) throw std::runtime_error("missing body");
  m_host.DestroyWindow();
  std::this_thread::sleep_for(time);
}

}  // namespace endings
