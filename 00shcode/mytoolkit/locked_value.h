#pragma once

#include <cstdint>
#include <utility>

#include "00shcode/mytoolkit/lock.h"

// A value with a lock of its own: every read is a copy, every access is whole. Any thread.
template <typename Value>
class CFTLockedValue {
 public:
  CFTLockedValue() = default;
  explicit CFTLockedValue(Value value) : m_value(std::move(value)) {}

  Value Get() const {
    const CFTScopedLock guard(&m_lock);
    return m_value;
  }

  void Set(Value value) {
    const CFTScopedLock guard(&m_lock);
    m_value = std::move(value);
  }

  // Integers only; the new value.
  Value Add(Value amount) {
    const CFTScopedLock guard(&m_lock);
    m_value += amount;
    return m_value;
  }

  Value Increment() { return Add(1); }

 private:
  mutable CFTLock m_lock;
  Value m_value FT_GUARDED_BY(m_lock){};
};
