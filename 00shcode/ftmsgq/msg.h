#pragma once

#include <cstdint>
#include <memory>

constexpr std::uint32_t FTMSG_QUIT = 1;
constexpr std::uint32_t FTMSG_TIMER = 2;

// What one thread posts into another's queue. Pointers in p1 to p4 belong to the receiver.
struct FTMsg {
  std::uint32_t id = 0;
  std::uint32_t param1 = 0;  // the timer id of a timer message, else 0
  std::int32_t param2 = 0;   // the timer's delay in ms, else 0
  std::uintptr_t p1 = 0;
  std::uintptr_t p2 = 0;
  std::uintptr_t p3 = 0;
  std::uintptr_t p4 = 0;
};

// Ownership into a message parameter, and back out of it.
template <typename T>
std::uintptr_t ToParam(std::unique_ptr<T> object) {
  return reinterpret_cast<std::uintptr_t>(object.release());
}

template <typename T>
std::unique_ptr<T> FromParam(std::uintptr_t param) {
  return std::unique_ptr<T>(reinterpret_cast<T*>(param));
}
