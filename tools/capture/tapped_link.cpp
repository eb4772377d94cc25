#include "tools/capture/tapped_link.h"

#include "tools/capture/package_text.h"
#include "tools/common/console.h"
#include "tools/common/count_text.h"

namespace capture {

namespace {

std::string ShowTotal(std::int64_t packages, std::int64_t bytes) {
  return ShowCount(packages, "package") + " (" + ShowCount(bytes, "byte") + ")";
}

const char* ShowEnd(RelayEvents::End end) {
  switch (end) {
    case RelayEvents::End::kApplication:
      return "closed by the application";
    case RelayEvents::End::kServer:
      return "closed by the server";
    case RelayEvents::End::kNoServer:
      return "closed: the server was not reached";
    default:
      return "closed: the tap was stopped";
  }
}

}  // namespace

TappedLink::TappedLink(int number, const Address& application, const Address& server,
                       const TapStyle& style, CaptureWriter* writer)
    : m_name(std::to_string(number)),
      m_ends(ShowAddress(application) + " -> " + ShowAddress(server)),
      m_style(style),
      m_recorder(writer == nullptr ? nullptr
                                   : std::make_unique<LinkRecorder>(writer, application, server)) {}

void TappedLink::OnUp() {
  Print("up: " + m_ends);
  if (m_recorder) CheckRecording(m_recorder->Begin());
}

void TappedLink::OnBytes(Direction direction, const char* data, std::size_t length) {
  if (m_recorder) CheckRecording(m_recorder->Add(direction, data, length));
  Way& way = direction == Direction::kToServer ? m_to_server : m_to_application;
  way.bytes += static_cast<std::int64_t>(length);
  way.stream.Add(data, length);
  while (const auto package = way.stream.Take()) {
    ++way.packages;
    PrintPackage(direction, *package);
  }
}

void TappedLink::PrintPackage(Direction direction, const WirePackage& package) const {
  if (package.IsHeartbeat() && !m_style.heartbeats) return;
  Print((direction == Direction::kToServer ? "-> " : "<- ") +
        ShowPackage(package, direction, m_style.body));
}

void TappedLink::OnEnd(End end) {
  if (end == End::kNoServer) {
    Print(std::string(ShowEnd(end)) + ": " + m_ends);
    return;
  }
  const auto ender = end == End::kServer ? Direction::kToApplication : Direction::kToServer;
  if (m_recorder && end != End::kStopped) CheckRecording(m_recorder->End(ender));
  PrintRest("->", m_to_server);
  PrintRest("<-", m_to_application);
  Print(std::string(ShowEnd(end)) + ": -> " + ShowTotal(m_to_server.packages, m_to_server.bytes) +
        ", <- " + ShowTotal(m_to_application.packages, m_to_application.bytes));
}

void TappedLink::PrintRest(const char* arrow, const Way& way) const {
  const auto rest = static_cast<std::int64_t>(way.stream.GetRest().size());
  if (rest > 0) Print(std::string(arrow) + " an unfinished package: " + ShowCount(rest, "byte"));
}

void TappedLink::CheckRecording(bool sound) {
  if (sound) return;
  Print("is not recorded any more: the file cannot be written to; is the disk full?");
  m_recorder.reset();
}

void TappedLink::Print(const std::string& what) const {
  PrintStamped(m_name + " " + what);
}

}  // namespace capture
