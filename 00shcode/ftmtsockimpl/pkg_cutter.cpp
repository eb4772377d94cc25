#include "00shcode/ftmtsockimpl/pkg_cutter.h"

#include <algorithm>
#include <utility>

void CFTPkgCutter::Pass::Count(std::int32_t length) {
  ++cut;
  longest = std::max(longest, length);
}

CFTPkgCutter::CFTPkgCutter(LengthRule length_rule)
    : m_length_rule(std::move(length_rule)), m_ahead(kAheadBytes) {}

int CFTPkgCutter::GetSpaces(platform::BytePiece spaces[kMaxSpaces]) {
  int count = 0;
  if (m_long != nullptr) spaces[count++] = {m_long->GetWritePos(), m_long->GetFreeTail()};
  spaces[count++] = {m_ahead.GetWritePos(), m_ahead.GetFreeTail()};
  return count;
}

void CFTPkgCutter::Commit(std::int32_t count) {
  if (m_long != nullptr) {
    const std::int32_t missing = std::min(count, m_long->GetFreeTail());
    m_long->CommitWrite(missing);
    count -= missing;
  }
  m_ahead.CommitWrite(count);
}

CFTPkgCutter::Pass CFTPkgCutter::Cut(std::int32_t max_pkg_len, std::vector<FTBufferPtr>* packages) {
  Pass pass;
  pass.result = CutAll(max_pkg_len, &pass, packages);
  if (pass.result == Result::kGoOn) {
    m_ahead.Compact();
  } else {
    m_long.reset();
    m_ahead.Reset();
  }
  return pass;
}

CFTPkgCutter::Result CFTPkgCutter::CutAll(std::int32_t max_pkg_len, Pass* pass,
                                          std::vector<FTBufferPtr>* packages) {
  for (;;) {
    if (m_long != nullptr) {
      const Result result = CutLong(max_pkg_len, pass, packages);
      if (result != Result::kGoOn || m_long != nullptr) return result;
    }
    if (m_ahead.GetDataLen() == 0) return Result::kGoOn;
    const bool more = m_ahead.GetDataLen() > kRegularBytes;
    const Result result = CutWindow(max_pkg_len, pass, packages);
    if (result != Result::kGoOn || !more) return result;
  }
}

// One filling of the regular buffer: what it would hold is all that the length rule gets to see.
CFTPkgCutter::Result CFTPkgCutter::CutWindow(std::int32_t max_pkg_len, Pass* pass,
                                             std::vector<FTBufferPtr>* packages) {
  const std::size_t cut_before = packages->size();
  const unsigned char* const window = m_ahead.GetData();
  const std::int32_t window_bytes = std::min(m_ahead.GetDataLen(), kRegularBytes);
  std::int32_t used = 0;
  std::int32_t length = 0;
  for (;;) {
    length = m_length_rule(window + used, window_bytes - used);
    if (length < 0 || length >= max_pkg_len) {
      packages->resize(cut_before);
      return length < 0 ? Result::kProtocolError : Result::kTooBig;
    }
    if (length == 0 || length > window_bytes - used) break;
    packages->push_back(CFTBuffer::MakeCopy(window + used, length));
    pass->Count(length);
    used += length;
  }
  m_ahead.Consume(static_cast<std::uint32_t>(used));
  if (length > kRegularBytes) BeginLong(length);
  const bool stuck = length == 0 && used == 0 && window_bytes == kRegularBytes;
  return stuck ? Result::kNoLength : Result::kGoOn;
}

CFTPkgCutter::Result CFTPkgCutter::CutLong(std::int32_t max_pkg_len, Pass* pass,
                                           std::vector<FTBufferPtr>* packages) {
  const std::int32_t held = m_long->GetDataLen();
  const bool full = m_long->GetFreeTail() == 0;
  const std::int32_t length = m_length_rule(m_long->GetData(), held);
  if (length < 0) return Result::kProtocolError;
  if (length >= max_pkg_len) return Result::kTooBig;
  if (length == 0) return full ? Result::kNoLength : Result::kGoOn;
  if (length > held) {
    const bool fits = static_cast<std::uint32_t>(length) <= m_long->GetCapacity();
    return fits ? Result::kGoOn : Result::kLengthGrew;
  }
  FinishLong(length, packages);
  pass->Count(length);
  return Result::kGoOn;
}

void CFTPkgCutter::BeginLong(std::int32_t length) {
  m_long = CFTBuffer::Make(static_cast<std::uint32_t>(length));
  const std::int32_t count = std::min(length, m_ahead.GetDataLen());
  m_long->Append(m_ahead.GetData(), count);
  m_ahead.Consume(static_cast<std::uint32_t>(count));
}

void CFTPkgCutter::FinishLong(std::int32_t length, std::vector<FTBufferPtr>* packages) {
  FTBufferPtr assembled = std::move(m_long);
  const std::int32_t left = assembled->GetDataLen() - length;
  if (left == 0) {
    assembled->Append(nullptr, 0);  // ends it with a zero, as every package
    packages->push_back(std::move(assembled));
    return;
  }
  packages->push_back(CFTBuffer::MakeCopy(assembled->GetData(), length));
  PutBackInFront(assembled->GetData() + length, left);
}

// A length that shrank leaves bytes of the next package behind.
void CFTPkgCutter::PutBackInFront(const unsigned char* data, std::int32_t count) {
  const std::vector<unsigned char> behind(m_ahead.GetData(), m_ahead.GetWritePos());
  m_ahead.Reset();
  m_ahead.Append(data, count);
  m_ahead.Append(behind.data(), static_cast<std::int32_t>(behind.size()));
}
