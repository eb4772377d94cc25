#include "00shcode/ftmtsockimpl/pkg_cutter.h"

#include <utility>

namespace {

constexpr std::uint32_t kRegularCapacity = 2048;

FTBufferPtr CopyFront(const CFTBuffer& buffer, std::int32_t length) {
  auto package = std::make_unique<CFTBuffer>(static_cast<std::uint32_t>(length));
  package->Append(buffer.GetData(), length);
  return package;
}

}  // namespace

CFTPkgCutter::CFTPkgCutter(LengthRule length_rule)
    : m_length_rule(std::move(length_rule)), m_regular(kRegularCapacity) {}

CFTPkgCutter::Result CFTPkgCutter::Cut(std::int32_t max_pkg_len,
                                       std::vector<FTBufferPtr>* packages) {
  std::int32_t length = GetFirstLength();
  while (length > 0) {
    if (length >= max_pkg_len) return Discard(Result::kTooBig);
    if (length > GetBuffer()->GetDataLen()) return KeepIncomplete(length);
    if (m_oversize != nullptr) {
      TakeOversize(length, packages);
      return Result::kGoOn;
    }
    packages->push_back(CopyFront(m_regular, length));
    m_regular.Consume(static_cast<std::uint32_t>(length));
    length = GetFirstLength();
  }
  if (length < 0) return Discard(Result::kProtocolError);
  m_regular.Compact();
  return Result::kGoOn;
}

std::int32_t CFTPkgCutter::GetFirstLength() {
  const CFTBuffer* const buffer = GetBuffer();
  return m_length_rule(buffer->GetData(), buffer->GetDataLen());
}

CFTPkgCutter::Result CFTPkgCutter::KeepIncomplete(std::int32_t length) {
  const auto needed = static_cast<std::uint32_t>(length);
  if (m_oversize != nullptr) {
    return needed <= m_oversize->GetCapacity() ? Result::kGoOn : Discard(Result::kLengthGrew);
  }
  if (needed <= m_regular.GetCapacity()) {
    m_regular.Compact();
    return Result::kGoOn;
  }
  m_oversize = std::make_unique<CFTBuffer>(needed);
  m_oversize->Append(m_regular.GetData(), m_regular.GetDataLen());
  m_regular.Reset();
  return Result::kGoOn;
}

void CFTPkgCutter::TakeOversize(std::int32_t length, std::vector<FTBufferPtr>* packages) {
  m_regular.Reset();
  if (m_oversize->GetDataLen() == length) {
    packages->push_back(std::move(m_oversize));
    return;
  }
  packages->push_back(CopyFront(*m_oversize, length));
  m_oversize->Consume(static_cast<std::uint32_t>(length));
  m_regular.Append(m_oversize->GetData(), m_oversize->GetDataLen());
  m_oversize.reset();
}

CFTPkgCutter::Result CFTPkgCutter::Discard(Result why) {
  m_oversize.reset();
  m_regular.Reset();
  return why;
}
