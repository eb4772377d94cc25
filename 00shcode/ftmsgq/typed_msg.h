// Message types: which id carries what. A message of another type does not compile.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "00shcode/ftmsgq/msg.h"

// How a value travels in a message parameter. Types that are not listed here cannot.
template <typename T, typename = void>
struct FTMsgParam;

// Numbers, enums, and pointers to what somebody else owns.
template <typename T>
struct FTMsgParam<
    T, std::enable_if_t<std::is_integral_v<T> || std::is_enum_v<T> || std::is_pointer_v<T>>> {
  static_assert(sizeof(T) <= sizeof(std::uintptr_t));
  static constexpr bool kOwns = false;
  static std::uintptr_t Pack(T value) {
    if constexpr (std::is_pointer_v<T>)
      return reinterpret_cast<std::uintptr_t>(value);
    else
      return static_cast<std::uintptr_t>(value);
  }
  static T Unpack(std::uintptr_t param) {
    if constexpr (std::is_pointer_v<T>)
      return reinterpret_cast<T>(param);
    else
      return static_cast<T>(param);
  }
};

template <typename T, typename Deleter>
struct FTMsgParam<std::unique_ptr<T, Deleter>> {
  static constexpr bool kOwns = true;
  static std::uintptr_t Pack(std::unique_ptr<T, Deleter> object) {
    return reinterpret_cast<std::uintptr_t>(object.release());
  }
  static std::unique_ptr<T, Deleter> Unpack(std::uintptr_t param) {
    return std::unique_ptr<T, Deleter>(reinterpret_cast<T*>(param));
  }
};

template <typename T>
struct FTMsgParam<std::shared_ptr<T>> {
  static constexpr bool kOwns = true;
  static std::uintptr_t Pack(std::shared_ptr<T> object) {
    return reinterpret_cast<std::uintptr_t>(new std::shared_ptr<T>(std::move(object)));
  }
  static std::shared_ptr<T> Unpack(std::uintptr_t param) {
    const std::unique_ptr<std::shared_ptr<T>> box(reinterpret_cast<std::shared_ptr<T>*>(param));
    return box == nullptr ? nullptr : std::move(*box);
  }
};

// The messages with this id; their parameters are p1 to p4 in this order.
template <std::uint32_t kMsgId, typename... Params>
class FTTypedMsg {
 public:
  static constexpr std::uint32_t kId = kMsgId;

  static FTMsg Make(Params... params) {
    FTMsg msg(kId);
    // First, so that nothing leaks when packing a later parameter throws.
    if constexpr ((FTMsgParam<Params>::kOwns || ...)) msg.dispose = &Dispose;
    Pack(&msg, std::index_sequence_for<Params...>(), std::move(params)...);
    return msg;
  }

  // The parameters, which are the caller's from now on.
  static std::tuple<Params...> Take(FTMsg& msg) {
    msg.dispose = nullptr;
    return Unpack(msg, std::index_sequence_for<Params...>());
  }

 private:
  static_assert(sizeof...(Params) <= 4);
  static constexpr std::uintptr_t FTMsg::*kFields[] = {&FTMsg::p1, &FTMsg::p2, &FTMsg::p3,
                                                       &FTMsg::p4};

  template <std::size_t... kIndex>
  static void Pack(FTMsg* msg, std::index_sequence<kIndex...>, Params... params) {
    ((msg->*kFields[kIndex] = FTMsgParam<Params>::Pack(std::move(params))), ...);
  }

  template <std::size_t... kIndex>
  static std::tuple<Params...> Unpack(const FTMsg& msg, std::index_sequence<kIndex...>) {
    return {FTMsgParam<Params>::Unpack(msg.*kFields[kIndex])...};
  }

  static void Dispose(FTMsg* msg) { Take(*msg); }
};
