// Clients whose server drops them at random, each a process of its own, in real time. Prints their
// figures of each second. Exits with 1 when an answer is wrong or missing, or a link stays away.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>
#include <list>
#include <random>

#include "bench/common/child.h"
#include "bench/soak/dropping_server.h"
#include "bench/soak/host.h"
#include "bench/versus/socket.h"

namespace {

bool Soak(int clients, int seconds) {
  const versus::Socket listener = versus::Socket::Listen();
  soak::Host::PrintColumns();
  const bench::Child server([&] { soak::DroppingServer(&listener, std::random_device()()).Run(); });
  std::list<bench::Child> hosts;
  for (int number = 1; number <= clients; ++number) {
    hosts.emplace_back([&] { soak::Host(number, listener.GetPort()).Run(seconds); });
  }
  bool sound = true;
  for (bench::Child& host : hosts) sound = host.Wait() && sound;
  return sound;
}

}  // namespace

int main(int argc, char** argv) {
  int clients = 24;
  int seconds = 60;
  CLI::App app("Clients that lose their links over and over.", "soak");
  app.add_option("--clients", clients, "processes side by side")->check(CLI::PositiveNumber);
  app.add_option("--seconds", seconds, "how long")->check(CLI::PositiveNumber);
  CLI11_PARSE(app, argc, argv);
  try {
    return Soak(clients, seconds) ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "soak: %s\n", error.what());
    return 1;
  }
}
