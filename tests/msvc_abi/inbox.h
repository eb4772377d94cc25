// A window that receives notifications and is never shown.
#pragma once

class Inbox {
 public:
  static constexpr unsigned kMessage = 0x8000 + 17;

  Inbox();
  ~Inbox();
  Inbox(const Inbox&) = delete;
  Inbox& operator=(const Inbox&) = delete;

  unsigned Window() const { return reinterpret_cast<unsigned>(m_window); }

  // Waits for the next notification, at most 10 seconds; false at the limit.
  bool Take(char** body, int* value);

  // Whether the next one is this link event.
  bool TakeEvent(int event);

 private:
  void* m_window;
};
