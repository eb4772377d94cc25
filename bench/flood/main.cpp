// An application that takes 100 ms for each notification while a server pushes as fast as it can,
// and that catches up afterwards. Prints a row of the table that run begins. The result is 1 when a
// package is missing, damaged or out of order.
// usage: flood PORT SIZE COUNT SECONDS    versus_server's port, bytes of a body, packages, slow
// time
#include <chrono>
#include <cstdio>
#include <stdexcept>
#include <string>
#include <thread>

#include "bench/common/stop_watch.h"
#include "bench/flood/application.h"
#include "bench/flood/observer.h"
#include "bench/versus/job.h"

namespace {

using namespace std::chrono_literals;

constexpr auto kTimeForOne = 100ms;

// As much again is pushed as is taken, so that the client is at its limits when it ends.
void Flood(int port, const versus::Job& job, int slow_seconds) {
  versus::Job twice = job;
  twice.count *= 2;
  flood::Application application(port, twice);
  flood::Observer observer(application.Client());
  for (const bench::StopWatch watch; watch.GetMs() < slow_seconds * 1000;) {
    application.TakeBody();
    std::this_thread::sleep_for(kTimeForOne);
  }
  const bench::StopWatch catching_up;
  while (application.GetTaken() < job.count) application.TakeBody();
  const double catching_up_seconds = catching_up.GetMs() / 1000;
  std::this_thread::sleep_for(1s);
  observer.Stop();
  const bench::StopWatch unlinking;
  application.Client()->UnLink();
  std::printf("| %u |%s %.1f | %.2f |\n", job.size, observer.GetCells().c_str(), unlinking.GetMs(),
              catching_up_seconds);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc != 5) throw std::runtime_error("usage: flood PORT SIZE COUNT SECONDS");
    versus::Job job;
    job.bodies = versus::BodyKind::kRandom;
    job.size = static_cast<std::uint32_t>(std::stoul(argv[2]));
    job.count = std::stoull(argv[3]);
    Flood(std::stoi(argv[1]), job, std::stoi(argv[4]));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "flood: %s\n", error.what());
    return 1;
  }
  return 0;
}
