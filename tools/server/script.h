#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "tools/server/wire_package.h"

struct ScriptAct {
  enum class Kind { kSendText, kSendRequest, kClose, kIgnore };

  Kind kind = Kind::kIgnore;
  std::int64_t delay_ms = 0;  // after the act before
  std::string text;           // of kSendText
  Checksum checksum = Checksum::kRight;
};

struct ScriptRule {
  enum class Trigger {
    kTime,              // once, so long after the link came up
    kInterval,          // again and again
    kAnyRequest,        // each request that no earlier rule takes
    kRequest,           // the same with this body
    kRequestBeginning,  // the same with a body that begins so
  };

  Trigger trigger = Trigger::kTime;
  std::int64_t time_ms = 0;
  std::string text;
  std::vector<ScriptAct> acts;

  bool Takes(const std::string& request) const;
};

// What a server is to say and when.
struct Script {
  std::vector<ScriptRule> rules;
  bool heartbeats = true;
};

// Throws std::runtime_error that names the file, the line and what is wrong.
Script ReadScript(const std::string& path);

// The language in a few lines, for those who write one.
extern const char kScriptHelp[];
