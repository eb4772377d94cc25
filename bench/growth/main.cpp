// What an engine takes as its links and its packages grow, and how it gives that back. Client and
// server are protocol classes in two processes; each row of a table is made by two new ones.
#include <sys/resource.h>
#include <CLI/CLI.hpp>

#include <cstdint>
#include <functional>
#include <vector>

#include "bench/common/child.h"
#include "bench/growth/measures.h"

namespace {

struct Options {
  bool json = false;
  double seconds = 5;
  std::uint32_t bytes = 64;
  std::vector<int> links = {1, 10, 100, 500};
  std::vector<double> rates = {0, 10};
  std::vector<std::uint32_t> sizes = {8, 64, 512, 4096, 32768, 262144, 1048576, 5000000};
};

using Measurement = std::function<void()>;

bench::Table::Form FormOf(const Options& options) {
  return options.json ? bench::Table::Form::kJson : bench::Table::Form::kMarkdown;
}

bool RunApart(const std::vector<Measurement>& measurements) {
  bool good = true;
  for (const Measurement& measurement : measurements) good &= bench::Child(measurement).Wait();
  return good;
}

bool GrowLinks(const Options& options) {
  const bench::Table table = growth::MakeLinksTable(FormOf(options));
  std::vector<Measurement> all;
  for (const double rate : options.rates) {
    for (const int links : options.links) {
      const growth::LinksPlan plan{links, rate, options.bytes, options.seconds};
      all.push_back([plan, &table] { growth::MeasureLinks(plan, table); });
    }
  }
  return RunApart(all);
}

bool GrowBodies(const Options& options) {
  const bench::Table table = growth::MakeBodiesTable(FormOf(options));
  std::vector<Measurement> all;
  for (const std::uint32_t size : options.sizes) {
    const growth::BodiesPlan plan{size, options.seconds};
    all.push_back([plan, &table] { growth::MeasureBodies(plan, table); });
  }
  return RunApart(all);
}

bool LoseLinks(const Options& options) {
  const bench::Table table = growth::MakeLossTable(FormOf(options));
  std::vector<Measurement> all;
  for (const int links : options.links) {
    all.push_back([links, &table] { growth::MeasureLoss(links, table); });
  }
  return RunApart(all);
}

// A link takes two descriptors, and many systems allow no more than 1,024 at first.
void AllowManyDescriptors() {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  limit.rlim_cur = limit.rlim_max;
  setrlimit(RLIMIT_NOFILE, &limit);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app("What an engine takes as its links and packages grow.", "growth");
  app.add_flag("--json", options.json, "a line of JSON for each row");
  const auto add_links = [&](CLI::App* command) {
    command->add_option("--links", options.links, "one row for each number")->delimiter(',');
  };
  const auto add_seconds = [&](CLI::App* command) {
    command->add_option("--seconds", options.seconds, "how long each row is measured");
  };
  const auto largest = CLI::Range(1, 5000000);

  CLI::App* const links = app.add_subcommand("links", "growing numbers of links");
  add_links(links);
  add_seconds(links);
  links->add_option("--rates", options.rates, "packages a second on each link")->delimiter(',');
  links->add_option("--bytes", options.bytes, "of a body")->check(largest);
  CLI::App* const bodies = app.add_subcommand("bodies", "growing bodies on one link");
  add_seconds(bodies);
  bodies->add_option("--sizes", options.sizes, "bytes of a body")->delimiter(',')->check(largest);
  CLI::App* const loss = app.add_subcommand("loss", "links whose server dies");
  add_links(loss);
  app.require_subcommand(1);
  CLI11_PARSE(app, argc, argv);

  AllowManyDescriptors();
  if (*links) return GrowLinks(options) ? 0 : 1;
  if (*bodies) return GrowBodies(options) ? 0 : 1;
  return LoseLinks(options) ? 0 : 1;
}
