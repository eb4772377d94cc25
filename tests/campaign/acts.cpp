#include "tests/campaign/schedule.h"

namespace campaign {

namespace {

using u32 = std::uint32_t;
using testkit::BigEndian;

constexpr u32 kLargestBody = 5242867 - 12;  // behind its numbers

void SendPackages(Stage& s, u32 count, u32 most) {
  for (; count > 0; --count) s.servers.SendPackage(count * 7919 % most);
}

void SendBadCheckSum(Stage& s, u32 a, u32 b) {
  const Bytes body = testkit::PatternBody(1 + a % 2000);
  s.servers.SendBytes(testkit::BuildHeader(u32(body.size()), BigEndian(b)) + body);
}

// The first is the largest length that can be: its body never comes.
void SendHostileLength(Stage& s, u32 a, u32 b) {
  static constexpr u32 kLengths[] = {5242867, 5242868, 5242880, 0x7FFFFFF3, 0x7FFFFFF4, 0xFFFFFFFF};
  s.servers.SendGarbage(testkit::BuildHeader(kLengths[a % 6], BigEndian(b)));
}

void AskTogether(Stage& s, u32 a, u32 b) {
  s.host.FailAllocations(0, 0);
  s.host.AskTogether(2 + int(a % 3), 1 + b % 20, a % 2000);
}

void Ask(Stage& s, u32 a, u32 b) {
  for (u32 i = 0; i <= b % 20; ++i) s.host.Ask(b % 16 == 0 ? a % 500000 : a % 2000);
}

void Relink(Stage& s, u32 a, u32 b) {
  for (u32 i = 0; i < b % 4; ++i) {
    s.host.UnLink();
    s.host.Link();
  }
  s.host.UnLink();
  s.crippled = s.machine.LacksThreads();
  if (a % 3 != 0) s.host.Link();
}

void AskBalance(Stage& s, u32, u32) {
  s.EndFaults();
  s.servers.Heal();
  s.host.UnLink();
  s.host.AskBalance(s.servers.FirstServer(), [&] { s.servers.Turn(); });
  s.host.Link();
  s.crippled = false;
}

void LetPass(Stage& s, u32 a, u32) {
  static constexpr u32 kTicks[] = {100, 2100, 10100, 16000, 36000};
  s.LetPass(kTicks[a % std::size(kTicks)]);
}

const Act kActs[] = {
    {"packages", 12, [](Stage& s, u32 a, u32 b) { SendPackages(s, 1 + a % 40, 1 + b % 3000); }},
    {"flood", 2, [](Stage& s, u32 a, u32 b) { SendPackages(s, 500 + a % 1000, 1 + b % 200); }},
    {"window-full", 1,
     [](Stage& s, u32 a, u32 b) { SendPackages(s, 11000 + a % 1000, 1 + b % 500); }},
    {"large-package", 2,
     [](Stage& s, u32 a, u32 b) { s.servers.SendPackage(a % 4 ? b % 400000 : kLargestBody); }},
    {"single-bytes", 2, [](Stage& s, u32 a, u32) { s.servers.SendPackage(a % 40, 1); }},
    {"heartbeat", 2, [](Stage& s, u32, u32) { s.servers.SendBytes(testkit::kHeartbeatPackage); }},
    {"empty-package", 2, [](Stage& s, u32, u32) { s.servers.SendForeign(""); }},
    {"balance-bytes", 2, [](Stage& s, u32, u32) { s.servers.SendForeign("\1A"); }},
    {"bad-checksum", 3, &SendBadCheckSum},
    {"random-bytes", 2,
     [](Stage& s, u32 a, u32 b) { s.servers.SendGarbage(testkit::PatternBody(1 + a % 3000, b)); }},
    {"hostile-length", 4, &SendHostileLength},
    {"half-close", 9, [](Stage& s, u32, u32) { s.servers.EndLink(End::kHalfClose); }},
    {"close", 3, [](Stage& s, u32, u32) { s.servers.EndLink(End::kClose); }},
    {"reset", 5, [](Stage& s, u32, u32) { s.servers.EndLink(End::kReset); }},
    {"greeting", 2, [](Stage& s, u32 a, u32) { s.servers.Set(Greeting(a % 8 % 5)); }},
    {"answering", 3, [](Stage& s, u32 a, u32) { s.servers.Set(Answering(a % 4 % 3)); }},
    {"await-up", 30, [](Stage& s, u32, u32) { s.AwaitUp(); }},
    {"take", 3,
     [](Stage& s, u32 a, u32) {
       for (u32 left = a % 100; left > 0 && s.host.Take(1); --left) continue;
     }},
    {"ask", 6, &Ask},
    {"ask-together", 2, &AskTogether},
    {"change-window", 2, [](Stage& s, u32, u32) { s.host.GiveWindow(); }},
    {"no-window", 1, [](Stage& s, u32, u32) { s.host.TakeWindowAway(); }},
    {"destroy-window", 1, [](Stage& s, u32, u32) { s.host.DestroyWindow(); }},
    {"relink", 3, &Relink},
    {"balance", 1, &AskBalance},
    {"ticks", 4, &LetPass},
    {"faults-end", 4, [](Stage& s, u32, u32) { s.EndFaults(); }},
};

}  // namespace

const std::vector<Act>& AllActs() {
  static const std::vector<Act> all = [] {
    std::vector<Act> acts(std::begin(kActs), std::end(kActs));
    for (const Act& act : SystemActs()) acts.push_back(act);
    return acts;
  }();
  return all;
}

}  // namespace campaign
