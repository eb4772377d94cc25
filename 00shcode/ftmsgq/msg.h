#pragma once

#include <cstdint>
#include <utility>

constexpr std::uint32_t FTMSG_QUIT = 1;
constexpr std::uint32_t FTMSG_TIMER = 2;

// What one thread posts into another's queue. It owns what its parameters own: FTTypedMsg packs
// them and takes them out again, and a message that nobody takes apart releases them by itself.
struct FTMsg {
  using Disposal = void (*)(FTMsg* msg);

  FTMsg() = default;
  explicit FTMsg(std::uint32_t msg_id) : id(msg_id) {}
  ~FTMsg() { Dispose(); }

  FTMsg(FTMsg&& other) noexcept { TakeOver(&other); }
  FTMsg& operator=(FTMsg&& other) noexcept {
    if (this != &other) {
      Dispose();
      TakeOver(&other);
    }
    return *this;
  }

  std::uint32_t id = 0;
  std::uint32_t param1 = 0;  // the timer id of a timer message, else 0
  std::int32_t param2 = 0;   // the timer's delay in ms, else 0
  std::uintptr_t p1 = 0;
  std::uintptr_t p2 = 0;
  std::uintptr_t p3 = 0;
  std::uintptr_t p4 = 0;
  Disposal dispose = nullptr;  // null: the parameters own nothing

 private:
  void Dispose() {
    if (dispose != nullptr) dispose(this);
  }

  void TakeOver(FTMsg* other) {
    id = other->id;
    param1 = other->param1;
    param2 = other->param2;
    p1 = other->p1;
    p2 = other->p2;
    p3 = other->p3;
    p4 = other->p4;
    dispose = std::exchange(other->dispose, nullptr);
  }
};
