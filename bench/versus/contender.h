#pragma once

#include <cstdint>
#include <memory>

#include "bench/versus/job.h"

namespace versus {

struct Body {
  char* data = nullptr;
  std::uint32_t length = 0;
};

// A client of one kind with a link to the server. The members belong to the application's thread,
// which is the one that makes the object; they throw on errors.
class Contender {
 public:
  virtual ~Contender() = default;

  // Packs and sends a copy. False: it has to wait until an answer is taken.
  virtual bool Send(const char* body, std::uint32_t length) = 0;

  // Waits for the next body whose checksum is right; others are dropped. False: none came within
  // kPatienceMs, or the link is gone. It is freed before the next one is taken.
  virtual bool Take(Body* body) = 0;
  virtual void Free(const Body& body) = 0;
};

// Each program has its own: the name, and a contender whose link is up.
extern const char* const kContenderName;
std::unique_ptr<Contender> MakeContender(std::uint16_t port, const Job& job);

}  // namespace versus
