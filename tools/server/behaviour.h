#pragma once

#include <functional>
#include <memory>
#include <string>

#include "00shcode/mytoolkit/clock.h"

struct ServerAct {
  std::string wire;     // bytes to send
  bool closes = false;  // the link, when everything is sent
};

// What a server does on one link beside answering. Plain data: the time comes from outside, as
// readings of the tick clock. One thread at a time.
class Behaviour {
 public:
  virtual ~Behaviour() = default;

  // A data package came. What there is to say about it; empty: nothing.
  virtual std::string OnRequest(const std::string& body, const FTTime& now) = 0;

  // The next act that is due by now; null: none. It stays the next one until it is dropped.
  virtual const ServerAct* FindDue(const FTTime& now) = 0;
  virtual void DropDue() = 0;

  // How far it came, for the line that tells the link's end.
  virtual std::string ShowProgress() const = 0;

  // True when everything happened that was to happen.
  virtual bool IsComplete() const = 0;

  // True when the server is to end with this link, or with the last of those that are up by then.
  virtual bool EndsServer() const = 0;
};

// Makes what is done on a link that came up at this time. Any thread, one at a time.
using BehaviourMaker = std::function<std::unique_ptr<Behaviour>(const FTTime& start)>;
