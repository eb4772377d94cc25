#include "tools/capture/recorded_link.h"

#include <algorithm>
#include <list>
#include <map>
#include <stdexcept>
#include <utility>

#include "tools/capture/capture_reader.h"
#include "tools/capture/tcp_segment.h"

namespace capture {

namespace {

bool Has(const TcpSegment& segment, unsigned flag) {
  return (segment.flags & flag) != 0;
}

// One direction of a link: brings its segments into their order.
struct Way {
  Direction direction;
  Address from;
  Address to;
  bool is_begun = false;
  std::uint32_t next_sequence = 0;
  std::map<std::uint32_t, TcpSegment> early{};  // by sequence number
  PackageStream stream{};
};

// Follows one link from its first segment to its end.
class LinkReader {
 public:
  LinkReader(std::int64_t time_us, const TcpSegment& first)
      : m_first_sequence(first.sequence),
        m_to_server{Direction::kToServer, first.from, first.to},
        m_to_application{Direction::kToApplication, first.to, first.from} {
    m_link.start_us = time_us;
  }

  // True for the segment that the link began with, which may be there again. Behind the end it
  // begins another link between the same ports.
  bool IsBegunBy(const TcpSegment& segment) const {
    return !m_ended && m_to_server.from == segment.from && m_to_server.to == segment.to &&
           m_first_sequence == segment.sequence;
  }

  bool HasComeUp() const { return m_to_application.is_begun; }

  // True when segments are there whose predecessors are not; a reset may have any number.
  bool LacksBytes() const { return LacksBytes(m_to_server) || LacksBytes(m_to_application); }

  // False: the segment belongs to another link.
  bool Take(std::int64_t time_us, const TcpSegment& segment) {
    Way* const way = FindWay(segment);
    if (way == nullptr || m_ended) return false;
    if (Has(segment, TcpFlags::kSyn) && !way->is_begun) {
      way->is_begun = true;
      way->next_sequence = segment.sequence + 1;
    } else if (way->is_begun && !Has(segment, TcpFlags::kSyn)) {
      // An acknowledgement has the same number as the bytes behind it.
      TcpSegment& kept = way->early[segment.sequence];
      if (segment.payload.size() >= kept.payload.size()) kept = segment;
      TakeInOrder(time_us, way);
    }
    return true;
  }

  RecordedLink Finish() {
    const std::int64_t time_us =
        m_link.events.empty() ? m_link.start_us : m_link.events.back().time_us;
    if (!m_ended) AddRest(time_us, m_to_application);
    return std::move(m_link);
  }

 private:
  static bool LacksBytes(const Way& way) {
    return std::any_of(way.early.begin(), way.early.end(),
                       [](const auto& entry) { return !Has(entry.second, TcpFlags::kRst); });
  }

  Way* FindWay(const TcpSegment& segment) {
    for (Way* const way : {&m_to_server, &m_to_application}) {
      if (way->from == segment.from && way->to == segment.to) return way;
    }
    return nullptr;
  }

  void TakeInOrder(std::int64_t time_us, Way* way) {
    for (auto next = way->early.begin(); next != way->early.end() && !m_ended;) {
      const TcpSegment& segment = next->second;
      const auto known = static_cast<std::int32_t>(way->next_sequence - segment.sequence);
      if (known < 0) {
        ++next;  // bytes in front of it are still missing
        continue;
      }
      AddNewBytes(time_us, static_cast<std::size_t>(known), segment, way);
      way->early.erase(next);
      next = way->early.begin();
    }
  }

  void AddNewBytes(std::int64_t time_us, std::size_t known, const TcpSegment& segment, Way* way) {
    const std::string& payload = segment.payload;
    if (known < payload.size()) {
      way->stream.Add(&payload[known], payload.size() - known);
      way->next_sequence += static_cast<std::uint32_t>(payload.size() - known);
      while (auto package = way->stream.Take()) {
        m_link.events.push_back({time_us, way->direction, false, std::move(*package)});
      }
    }
    const bool ends = Has(segment, TcpFlags::kFin) || Has(segment, TcpFlags::kRst);
    if (!ends || known > payload.size()) return;
    AddRest(time_us, *way);
    m_link.events.push_back({time_us, way->direction, true, {}});
    m_ended = true;
  }

  void AddRest(std::int64_t time_us, const Way& way) {
    const std::string rest = way.stream.GetRest();
    if (rest.empty()) return;
    const WirePackage package{WirePackage::Verdict::kNoPackage, rest};
    m_link.events.push_back({time_us, way.direction, false, package});
  }

  const std::uint32_t m_first_sequence;
  RecordedLink m_link;
  bool m_ended = false;
  Way m_to_server;
  Way m_to_application;
};

void TakeFrame(const Frame& frame, std::list<LinkReader>* readers) {
  const auto segment = FindTcpSegment(frame);
  if (!segment) return;
  if (Has(*segment, TcpFlags::kSyn) && !Has(*segment, TcpFlags::kAck)) {
    for (const LinkReader& reader : *readers) {
      if (reader.IsBegunBy(*segment)) return;
    }
    readers->emplace_back(frame.time_us, *segment);
  }
  // The youngest first: its ports may have been another link's before.
  for (auto reader = readers->rbegin(); reader != readers->rend(); ++reader) {
    if (reader->Take(frame.time_us, *segment)) return;
  }
}

}  // namespace

std::vector<RecordedLink> ReadRecordedLinks(const std::string& path) {
  std::list<LinkReader> readers;
  for (const Frame& frame : ReadCapture(path)) TakeFrame(frame, &readers);
  std::vector<RecordedLink> links;
  for (LinkReader& reader : readers) {
    if (!reader.HasComeUp()) continue;
    if (reader.LacksBytes()) throw std::runtime_error("'" + path + "' lacks bytes of a link");
    links.push_back(reader.Finish());
  }
  if (links.empty())
    throw std::runtime_error("'" + path + "' does not hold the beginning of a link");
  return links;
}

}  // namespace capture
