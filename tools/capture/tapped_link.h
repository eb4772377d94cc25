#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "tools/capture/direction.h"
#include "tools/capture/link_recorder.h"
#include "tools/capture/package_stream.h"
#include "tools/capture/relay.h"
#include "tools/common/body_text.h"

namespace capture {

// How packages are printed.
struct TapStyle {
  BodyStyle body = BodyStyle::kTextIfPrintable;
  bool heartbeats = true;
};

// Prints what passes through a relay, package by package, and records it.
class TappedLink final : public RelayEvents {
 public:
  // The number tells this link from others in what is printed. writer may be null, else it must
  // outlive the object.
  TappedLink(int number, const Address& application, const Address& server, const TapStyle& style,
             CaptureWriter* writer);

  void OnUp() override;
  void OnBytes(Direction direction, const char* data, std::size_t length) override;
  void OnEnd(End end) override;

 private:
  struct Way {
    PackageStream stream;
    std::int64_t packages = 0;
    std::int64_t bytes = 0;
  };

  void Print(const std::string& what) const;
  void PrintPackage(Direction direction, const WirePackage& package) const;
  void PrintRest(const char* arrow, const Way& way) const;
  void CheckRecording(bool sound);

  const std::string m_name;
  const std::string m_ends;
  const TapStyle m_style;
  std::unique_ptr<LinkRecorder> m_recorder;  // null: nothing is recorded (any more)
  Way m_to_server;
  Way m_to_application;
};

}  // namespace capture
