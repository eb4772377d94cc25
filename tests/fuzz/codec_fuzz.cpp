// Packages are written and understood as the wire format says, whatever stands in them.
#include "client/package.h"
#include "tests/fuzz/script.h"

namespace {

using namespace testkit;

// From a block of exactly their size, so that a read behind the bytes is seen.
std::optional<Bytes> Decode(const Bytes& bytes) {
  CFTBuffer buffer(static_cast<std::uint32_t>(bytes.size()));
  buffer.Append(bytes.data(), static_cast<std::int32_t>(bytes.size()));
  PkgHead head;
  char* body = nullptr;
  std::int32_t length = 0;
  const std::int32_t result = ft::DecodePkg(&buffer, &head, &body, &length);
  const ft::FTBodyPtr owned(body);
  EXPECT_EQ(result, body == nullptr ? -1 : 0);
  if (body == nullptr) return std::nullopt;
  return Bytes(body, static_cast<std::size_t>(length));
}

Bytes Encode(const Bytes& body) {
  CFTBuffer buffer;
  EXPECT_EQ(ft::EncodePkg(&buffer, body.data(), static_cast<std::int32_t>(body.size())), 0);
  return Bytes(reinterpret_cast<const char*>(buffer.GetData()),
               static_cast<std::size_t>(buffer.GetDataLen()));
}

// What the length rule says of the first bytes, however few; they end where their block ends.
void CheckLengths(const Bytes& bytes, std::int64_t announced) {
  const std::size_t most = std::min(bytes.size(), kHeaderSize);
  const auto block = std::make_unique<char[]>(most);
  for (std::size_t count = 0; count <= most; ++count) {
    char* const shown = block.get() + most - count;
    bytes.copy(shown, count);
    const std::int32_t length = ft::GetPkgLen(shown, static_cast<std::int32_t>(count));
    const std::int64_t whole = count < kHeaderSize ? 0 : announced + std::int64_t{kHeaderSize};
    EXPECT_TRUE(whole <= INT32_MAX ? length == whole : length < 0) << count << ": " << length;
  }
}

}  // namespace

// With an odd first byte the check sum in the header is made right.
int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Input input(data, size);
  const bool mend = input.Byte() % 2 == 1;
  Bytes bytes = input.Take(size);
  EXPECT_EQ(Encode(bytes), BuildPackage(bytes));

  const std::size_t announced = BigEndianAt(bytes, 4);
  CheckLengths(bytes, std::int64_t{BigEndianAt(bytes, 4)});
  if (announced > INT32_MAX - kHeaderSize) {
    CFTBuffer nothing;
    EXPECT_EQ(ft::EncodePkg(&nothing, "x", static_cast<std::int32_t>(announced)), -1);
  }
  std::optional<Bytes> body;
  if (bytes.size() >= kHeaderSize) {
    body = bytes.substr(kHeaderSize, announced);
    if (mend) bytes.replace(8, 4, CheckSum(*body));
    if (body->size() < announced || bytes.substr(8, 4) != CheckSum(*body)) body.reset();
  }
  EXPECT_EQ(Decode(bytes), body);
  return 0;
}
