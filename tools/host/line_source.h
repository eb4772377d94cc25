#pragma once

#include <string>

// Where the requests of a session come from. None of the calls blocks.
class LineSource {
 public:
  virtual ~LineSource() = default;

  // True when no line will follow those that are waiting.
  virtual bool HasEnded() const = 0;

  virtual bool IsEmpty() const = 0;

  // The oldest line, without its end; not for an empty source.
  virtual std::string GetFirst() const = 0;
  virtual void DropFirst() = 0;
};
