#include "tests/campaign/oracle.h"

#include "client/clientdatasource.h"

namespace campaign {

namespace {

using testkit::BigEndian;
using testkit::BigEndianAt;
using testkit::PatternBody;

constexpr std::size_t kNumbers = 12;          // bytes in front of the pattern
constexpr std::uint64_t kQuietTicks = 33000;  // just below the limit of silence
constexpr std::chrono::seconds kPatience(7);  // just below the limit for an answer

Bytes BodyOf(std::uint32_t link, std::uint32_t index, std::uint32_t request, std::size_t size) {
  return BigEndian(link) + BigEndian(index) + BigEndian(request) +
         PatternBody(size, link * 7919 + index);
}

}  // namespace

std::uint32_t Oracle::AddLink(std::size_t entry) {
  const Guard guard(m_lock);
  m_links.push_back({entry});
  m_links.back().last_data = m_ticks;
  m_links.back().spoiled = m_blind;
  return static_cast<std::uint32_t>(m_links.size());
}

Bytes Oracle::MakePackage(std::uint32_t link, std::size_t size, std::uint32_t request) {
  const Guard guard(m_lock);
  Link& to = m_links[link - 1];
  to.last_data = m_ticks;
  return BodyOf(link, to.sent++, request, size);
}

void Oracle::AddForeign(const Bytes& body) {
  const Guard guard(m_lock);
  ++m_foreign[body];
}

void Oracle::Spoil(std::uint32_t link) {
  const Guard guard(m_lock);
  m_links[link - 1].spoiled = true;
}

void Oracle::SpoilAll() {
  const Guard guard(m_lock);
  for (Link& link : m_links) link.spoiled = true;
}

void Oracle::EndsInOrder(std::uint32_t link) {
  const Guard guard(m_lock);
  m_links[link - 1].in_order = true;
}

std::uint32_t Oracle::TakeRequest(const Bytes& body) {
  const Guard guard(m_lock);
  if (body == "\1A") return 0;  // the balance question
  const std::uint32_t number = BigEndianAt(body, 0);
  if (body.size() < 4 || body != BigEndian(number) + PatternBody(body.size() - 4, number)) {
    Fail("a request is not what was asked");
  }
  std::uint32_t& last = m_arrived[number >> 24];
  if (number <= last || number > m_asked[number >> 24]) Fail("requests out of order, or twice");
  return last = number;
}

Bytes Oracle::MakeRequest(std::uint32_t thread, std::size_t size) {
  const Guard guard(m_lock);
  std::uint32_t& last = m_asked[thread];
  last = std::max(last, thread << 24) + 1;
  return BigEndian(last) + PatternBody(size, last);
}

void Oracle::Begin(std::size_t entries, bool has_window) {
  const Guard guard(m_lock);
  m_entries = entries;
  m_state = State::kDown;
  m_attempts = 0;
  m_current = 0;
  m_events_lost = m_watchdog = false;
  m_blind = !has_window;
  m_begin = Clock::now();
}

void Oracle::End() {
  SpoilAll();
  m_state = State::kDown;
}

void Oracle::Blind() {
  const Guard guard(m_lock);
  SpoilAll();
  m_blind = true;
}

void Oracle::See() {
  const Guard guard(m_lock);
  SpoilAll();
  m_blind = false;
  m_events_lost = true;
  m_state = State::kUnknown;
  m_current = 0;
}

void Oracle::TicksPass(std::uint32_t milliseconds) {
  const Guard guard(m_lock);
  m_ticks += milliseconds;
  for (Link& link : m_links) link.spoiled |= m_ticks - link.last_data > kQuietTicks;
}

void Oracle::WatchdogMayBite() {
  m_watchdog = true;
}

void Oracle::OnEvent(std::intptr_t link_event) {
  const Guard guard(m_lock);
  const State before = m_state;
  const bool closes = link_event == LINK_EVENT_CLOSED;
  if (link_event < LINK_EVENT_UP || link_event > LINK_EVENT_CLOSED) Fail("an unknown event");
  if (before == (closes ? State::kDown : State::kUp) && !m_blind) {
    Fail("event " + std::to_string(link_event) + (closes ? " while down" : " while up"));
  }
  if (closes) {
    CheckComplete();
    ++m_losses;
  }
  m_current = 0;
  m_state = link_event == LINK_EVENT_UP ? State::kUp : State::kDown;
  if (link_event != LINK_EVENT_UP) ++m_attempts;
}

void Oracle::OnBody(const Bytes& body) {
  const Guard guard(m_lock);
  ++m_packages;
  if (m_state == State::kDown && !m_blind) return Fail("a package while no link is up");
  m_state = State::kUp;
  const auto foreign = m_foreign.find(body);
  if (foreign != m_foreign.end() && foreign->second-- > 0) return;
  const std::uint32_t number = BigEndianAt(body, 0), index = BigEndianAt(body, 4);
  const std::uint32_t request = BigEndianAt(body, 8);
  if (body.size() < kNumbers || number < 1 || number > m_links.size() ||
      body != BodyOf(number, index, request, body.size() - kNumbers)) {
    return Fail("a package that nobody sent");
  }
  Link& link = m_links[number - 1];
  if (index < link.next || index >= link.sent || (index > link.next && !link.spoiled)) {
    Fail("package " + std::to_string(index) + " of link " + std::to_string(number) + ", not " +
         std::to_string(link.next));
  }
  link.next = index + 1;
  CheckTurn(number);
  if (request != 0) m_last_answered = request;
}

void Oracle::CheckTurn(std::uint32_t number) {
  if (m_current != 0 && m_current != number) Fail("packages of two links without an event between");
  m_current = number;
  const std::size_t turn = static_cast<std::size_t>(m_attempts) % m_entries;
  if (!m_events_lost && !m_blind && m_links[number - 1].entry != turn) {
    Fail("server " + std::to_string(m_links[number - 1].entry) + " out of its turn");
  }
}

void Oracle::CheckComplete() {
  if (m_current == 0 || m_watchdog || Clock::now() - m_begin > kPatience) return;
  const Link& link = m_links[m_current - 1];
  if (link.in_order && !link.spoiled && link.next != link.sent) {
    Fail("link " + std::to_string(m_current) + " ended in order with " + std::to_string(link.next) +
         " of " + std::to_string(link.sent) + " packages");
  }
}

void Oracle::Fail(const std::string& what) {
  const Guard guard(m_lock);
  if (m_fault.empty()) m_fault = what;
}

void Oracle::Check() const {
  const Guard guard(m_lock);
  if (!m_fault.empty()) throw std::runtime_error(m_fault);
}

}  // namespace campaign
