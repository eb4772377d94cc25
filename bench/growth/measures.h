// The measurements. Each makes a client and a server for itself, the server in another process, and
// throws std::runtime_error when a link or an answer is missing. To be called while this process
// has one thread, and once per process.
#pragma once

#include <cstdint>

#include "bench/common/table.h"

namespace growth {

struct LinksPlan {
  int links;
  double rate;  // packages a second on each link, each of which is echoed
  std::uint32_t body_bytes;
  double seconds;
};

bench::Table MakeLinksTable(bench::Table::Form form);
void MeasureLinks(const LinksPlan& plan, const bench::Table& table);

struct BodiesPlan {
  std::uint32_t body_bytes;
  double seconds;
};

bench::Table MakeBodiesTable(bench::Table::Form form);
void MeasureBodies(const BodiesPlan& plan, const bench::Table& table);

// How long after the server's process died the client has back what so many links took.
bench::Table MakeLossTable(bench::Table::Form form);
void MeasureLoss(int links, const bench::Table& table);

}  // namespace growth
