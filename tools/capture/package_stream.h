#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

namespace capture {

// One package as it stood on the wire, sound or not.
struct WirePackage {
  enum class Verdict {
    kSound,
    kWrongChecksum,
    kTooLong,   // no client takes it; the header alone is kept
    kNoPackage  // the length is negative: nothing behind it can be read as packages
  };

  Verdict verdict = Verdict::kSound;
  std::string wire;

  std::string GetBody() const;
  std::uint32_t GetWord(std::size_t index) const;  // of the header, as it is read on the wire
  bool IsHeartbeat() const;
};

// Cuts what travels in one direction of a link into packages. Plain data.
class PackageStream {
 public:
  void Add(const char* data, std::size_t length);

  // The next package, once all of it was added.
  std::optional<WirePackage> Take();

  // Bytes that are no whole package yet.
  std::string GetRest() const { return m_bytes.substr(m_taken); }

 private:
  WirePackage TakeFront(WirePackage::Verdict verdict, std::size_t length);
  void PassOver();

  std::size_t CountRest() const { return m_bytes.size() - m_taken; }

  std::string m_bytes;
  std::size_t m_taken = 0;  // of them
  std::size_t m_to_pass_over = 0;
  bool m_readable = true;
};

}  // namespace capture
