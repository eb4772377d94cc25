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
  m_links.push_back({entry, m_blind || m_spoils, false, m_ticks});
  return static_cast<std::uint32_t>(m_links.size());
}

Bytes Oracle::MakePackage(std::uint32_t link, std::size_t size, std::uint32_t request) {
  Link& to = m_links[link - 1];
  to.last_data = m_ticks;
  return BodyOf(link, to.sent++, request, size);
}

void Oracle::SpoilAll() {
  for (Link& link : m_links) link.spoiled = true;
}

std::uint32_t Oracle::TakeRequest(const Bytes& body) {
  if (body == "\1A") return 0;  // the balance question
  const std::uint32_t number = BigEndianAt(body, 0);
  Require(body.size() >= 4 && body == BigEndian(number) + PatternBody(body.size() - 4, number),
          "a request is not what was asked");
  std::uint32_t& last = m_arrived[number >> 24];
  Require(number > last && number <= m_asked[number >> 24], "requests out of order, or twice");
  return last = number;
}

Bytes Oracle::MakeRequest(std::uint32_t thread, std::size_t size) {
  std::uint32_t& last = m_asked[thread];
  last = std::max(last, thread << 24) + 1;
  return BigEndian(last) + PatternBody(size, last);
}

void Oracle::Begin(std::size_t entries, bool has_window) {
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
  SpoilAll();
  m_blind = true;
}

void Oracle::See() {
  SpoilAll();
  m_blind = false;
  m_events_lost = true;
  m_state = State::kUnknown;
  m_current = 0;
}

void Oracle::TicksPass(std::uint32_t milliseconds) {
  m_ticks += milliseconds;
  for (Link& link : m_links) link.spoiled |= m_ticks - link.last_data > kQuietTicks;
}

void Oracle::OnEvent(std::intptr_t link_event) {
  const bool closes = link_event == LINK_EVENT_CLOSED;
  Require(link_event >= LINK_EVENT_UP && link_event <= LINK_EVENT_CLOSED, "an unknown event");
  Require(m_blind || m_state != (closes ? State::kDown : State::kUp),
          closes ? "the end of no link" : "news of a connect while a link is up");
  if (closes) CheckEnd();
  m_losses += closes ? 1 : 0;
  m_current = 0;
  m_state = link_event == LINK_EVENT_UP ? State::kUp : State::kDown;
  if (link_event != LINK_EVENT_UP) ++m_attempts;
}

void Oracle::OnBody(const Bytes& body) {
  ++m_packages;
  Require(m_state != State::kDown || m_blind, "a package while no link is up");
  m_state = State::kUp;
  const auto foreign = m_foreign.find(body);
  if (foreign != m_foreign.end() && foreign->second-- > 0) return;
  const std::uint32_t number = BigEndianAt(body, 0), index = BigEndianAt(body, 4);
  const std::uint32_t request = BigEndianAt(body, 8);
  Require(body.size() >= kNumbers && number >= 1 && number <= m_links.size() &&
              body == BodyOf(number, index, request, body.size() - kNumbers),
          "a package that nobody sent");
  Link& link = m_links[number - 1];
  Require(index >= link.next && index < link.sent, "a package twice or out of order");
  Require(index == link.next || link.spoiled, "a package is missing");
  link.next = index + 1;
  CheckTurn(number);
  if (request != 0) m_last_answered = request;
}

void Oracle::CheckTurn(std::uint32_t number) {
  Require(m_current == 0 || m_current == number, "packages of two links without an event between");
  m_current = number;
  const std::size_t turn = static_cast<std::size_t>(m_attempts) % m_entries;
  Require(m_events_lost || m_blind || m_links[number - 1].entry == turn, "a server out of turn");
}

void Oracle::CheckEnd() {
  if (m_current == 0 || m_watchdog || Clock::now() - m_begin > kPatience) return;
  const Link& link = m_links[m_current - 1];
  Require(link.spoiled || link.in_order, "a link that is well has ended");
  Require(link.spoiled || link.next == link.sent, "a link that ended in order lost packages");
}

}  // namespace campaign
