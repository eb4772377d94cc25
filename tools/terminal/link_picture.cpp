#include "tools/terminal/link_picture.h"

#include <algorithm>
#include <cstdint>
#include <utility>

#include "00shcode/mytoolkit/text.h"
#include "tools/common/count_text.h"
#include "tools/common/time_text.h"
#include "tools/terminal/spark_line.h"

namespace {

constexpr int kHeightWithGraphs = 12;
constexpr int kPeakWidth = 20;  // of what stands behind a graph
constexpr char kGap[] = "   ";

// Behind spaces up to the width, so that figures do not jump.
std::string AlignRight(std::int64_t number, std::size_t width) {
  const std::string text = ShowGrouped(number);
  return std::string(width > text.size() ? width - text.size() : 0, ' ') + text;
}

FTTime SecondsBefore(const FTTime& time, std::int64_t milliseconds) {
  return {(time.seconds * 1000 + time.milliseconds - milliseconds) / 1000, 0};
}

ScreenLine DrawState(const LinkPicture& picture) {
  const LinkStatistics& statistics = *picture.statistics;
  const std::int64_t lasted_ms = statistics.GetMsInState(picture.tick_now);
  const FTTime since = SecondsBefore(picture.wall_now, lasted_ms);
  const std::string when =
      " since " + ShowTimeOfDay(since).substr(0, 8) + " (" + ShowDuration(lasted_ms) + ")";
  switch (statistics.GetState()) {
    case LinkState::kUp:
      return {" up" + when + kGap + picture.server, LineStyle::kGood};
    case LinkState::kLost:
      return {" lost" + when + kGap + "next: " + picture.server, LineStyle::kBad};
    default:
      return {" connecting" + when + kGap + picture.server, LineStyle::kWaiting};
  }
}

std::string DrawHistory(const LinkPicture& picture) {
  const LinkStatistics& statistics = *picture.statistics;
  const auto silence_ms = statistics.GetMsSincePackage(picture.tick_now);
  std::string silence = "no package yet";
  if (silence_ms) {
    silence = ft::FormatString("last package %.1f s ago", static_cast<double>(*silence_ms) / 1000);
  }
  return " " + silence + kGap + ShowCount(statistics.GetLinks(), "link") + ", " +
         std::to_string(statistics.GetLosses()) + " lost, " +
         ShowCount(statistics.GetFailures(), "failed attempt");
}

std::string DrawTotal(const char* direction, const Flow& total) {
  return " " + ft::PadString(direction, 8, ft::kAlignLeft, ' ') + AlignRight(total.packages, 10) +
         (total.packages == 1 ? " package " : " packages") + AlignRight(total.bytes, 15) +
         (total.bytes == 1 ? " byte " : " bytes");
}

std::string DrawRates(const char* direction, const FlowHistory& history, std::int64_t second) {
  const Flow last = history.GetSecond(second - 1);
  return DrawTotal(direction, history.GetTotal()) + AlignRight(last.packages, 8) + " /s" +
         AlignRight(last.bytes, 11) + " bytes/s";
}

// The bytes of the last seconds that are over, as many as there is room for.
std::string DrawGraph(const FlowHistory& history, std::int64_t second, const LinkPicture& picture,
                      int width) {
  std::vector<std::int64_t> bytes;
  for (int ago = std::min(FlowHistory::kSeconds, width - kPeakWidth); ago > 0; --ago) {
    bytes.push_back(history.GetSecond(second - ago).bytes);
  }
  const std::int64_t peak = bytes.empty() ? 0 : *std::max_element(bytes.begin(), bytes.end());
  return " " + DrawSparkLine(bytes, picture.unicode) + " at most " + ShowGrouped(peak);
}

std::vector<ScreenLine> DrawFigures(const LinkPicture& picture, const ScreenSize& size) {
  const LinkStatistics& statistics = *picture.statistics;
  const std::int64_t second = statistics.SecondOf(picture.tick_now);
  std::vector<ScreenLine> lines{DrawState(picture), {DrawHistory(picture)}};
  const auto add_flow = [&](const char* direction, const FlowHistory& history) {
    lines.push_back({DrawRates(direction, history, second)});
    if (size.height < kHeightWithGraphs) return;
    lines.push_back({DrawGraph(history, second, picture, size.width)});
  };
  add_flow("received", statistics.GetReceived());
  add_flow("sent", statistics.GetSent());
  return lines;
}

std::string DrawRule(const LinkPicture& picture, int width) {
  std::string text =
      picture.input ? " Enter sends, Ctrl-D ends the input, Ctrl-C ends " : " Ctrl-C ends ";
  if (picture.scrolled > 0) text = " newer lines below: " + std::to_string(picture.scrolled) + " ";
  std::string rule = picture.unicode ? "──" : "--";
  rule += text;
  for (int at = static_cast<int>(text.size()) + 2; at < width; ++at) {
    rule += picture.unicode ? "─" : "-";
  }
  return rule;
}

bool BeginsCharacter(char byte) {
  return (byte & 0xc0) != 0x80;
}

// A line that is too long shows its end, where the cursor is.
std::string DrawInput(const std::string& typed, int width) {
  std::size_t begin = typed.size();
  for (int room = std::max(width - 4, 1); begin > 0 && room > 0;) {
    if (BeginsCharacter(typed[--begin])) --room;
  }
  return "> " + typed.substr(begin);
}

// The text in rows of the width; all but the first are indented.
std::vector<std::string> Wrap(const std::string& text, int width) {
  constexpr int kIndent = 14;
  std::vector<std::string> rows(1);
  int column = 0;
  for (const char byte : text) {
    if (BeginsCharacter(byte) && ++column > std::max(width, kIndent + 2)) {
      rows.emplace_back(kIndent, ' ');
      column = kIndent + 1;
    }
    rows.back() += byte;
  }
  return rows;
}

// The newest lines that are in sight and fit; the oldest of them may show only its end.
std::vector<ScreenLine> DrawLog(const LinkPicture& picture, int width, std::size_t room) {
  std::deque<ScreenLine> rows;
  std::size_t at = picture.log->size() - std::min(picture.scrolled, picture.log->size());
  while (at > 0 && rows.size() < room) {
    const std::vector<std::string> wrapped = Wrap((*picture.log)[--at], width);
    for (auto row = wrapped.rbegin(); row != wrapped.rend() && rows.size() < room; ++row) {
      rows.push_front({*row});
    }
  }
  return {rows.begin(), rows.end()};
}

}  // namespace

std::vector<ScreenLine> DrawLink(const LinkPicture& picture, const ScreenSize& size) {
  const auto height = static_cast<std::size_t>(std::max(size.height, 1));
  const std::size_t input_lines = picture.input ? 1 : 0;
  std::vector<ScreenLine> lines = DrawFigures(picture, size);
  lines.push_back({DrawRule(picture, size.width)});
  if (lines.size() + input_lines > height) lines.resize(height - input_lines);
  const std::size_t room = height - input_lines - lines.size();
  for (ScreenLine& row : DrawLog(picture, size.width, room)) lines.push_back(std::move(row));
  lines.resize(height - input_lines);
  if (picture.input) lines.push_back({DrawInput(*picture.input, size.width)});
  return lines;
}

std::vector<std::string> ShowTotals(const LinkStatistics& statistics) {
  return {DrawTotal("received", statistics.GetReceived().GetTotal()),
          DrawTotal("sent", statistics.GetSent().GetTotal())};
}
