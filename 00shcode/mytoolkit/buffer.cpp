#include "00shcode/mytoolkit/buffer.h"

#include <cstddef>
#include <cstring>
#include <new>

#include "platform/platform.h"

namespace {

constexpr std::uint32_t kDefaultStorage = 32;
constexpr std::size_t kSpareStorage = 8;
constexpr unsigned char kLineFeed = 0x0A;

// A body lies aligned in its block, behind the room for a buffer and a package's header.
constexpr std::size_t kBodyInBlock = 48;
constexpr std::size_t kStorageInBlock = kBodyInBlock - CFTBuffer::kBodyOffset;
static_assert(sizeof(CFTBuffer) <= kStorageInBlock);

unsigned char* NewStorage(std::size_t bytes) {
  return static_cast<unsigned char*>(ft::AllocBlock(bytes));
}

}  // namespace

FTBufferPtr CFTBuffer::Make(std::uint32_t capacity) {
  void* const block = ft::AllocBlock(kStorageInBlock + std::size_t{capacity} + kSpareStorage);
  return FTBufferPtr(::new (block) CFTBuffer(InPlace{capacity}));
}

FTBufferPtr CFTBuffer::MakeCopy(const void* data, std::int32_t n) {
  FTBufferPtr copy = Make(static_cast<std::uint32_t>(n));
  std::memcpy(copy->m_write, data, static_cast<std::size_t>(n));
  copy->m_write += n;
  copy->Terminate(0);
  return copy;
}

char* CFTBuffer::IntoBody(FTBufferPtr buffer, std::int32_t offset) {
  char* const data = reinterpret_cast<char*>(buffer->m_read) + offset;
  char* body = data;
  const auto length = static_cast<std::size_t>(buffer->GetDataLen() - offset);
  if (data == reinterpret_cast<char*>(buffer.get()) + kBodyInBlock) {
    buffer.release();  // the block is the body's from now on
  } else {
    body = ft::AllocBody(length);
    std::memcpy(body, data, length);
  }
  if (const std::uint32_t bytes = ft::CountedBytesOf(length); bytes > 0) {
    ft::CountBlock(body - kBodyInBlock, bytes);
  }
  return body;
}

CFTBuffer::CFTBuffer() : CFTBuffer(kDefaultStorage - 1) {}

CFTBuffer::CFTBuffer(std::uint32_t capacity)
    : m_base(NewStorage(std::size_t{capacity} + kSpareStorage)), m_capacity(capacity) {
  Reset();
}

CFTBuffer::CFTBuffer(InPlace storage) : m_base(InnerStorage()), m_capacity(storage.capacity) {
  Reset();
}

CFTBuffer::~CFTBuffer() {
  ReplaceStorage(nullptr);
}

// Of a buffer from Make alone.
unsigned char* CFTBuffer::InnerStorage() {
  return reinterpret_cast<unsigned char*>(this) + kStorageInBlock;
}

void CFTBuffer::ReplaceStorage(unsigned char* storage) {
  if (m_base != InnerStorage()) ft::FreeBlock(m_base);
  m_base = storage;
}

void CFTBuffer::Release() {
  ReplaceStorage(nullptr);
  m_read = m_write = nullptr;
  m_capacity = 0;
}

void CFTBuffer::CommitWrite(std::int32_t n) {
  m_write += n;
  Terminate(kLineFeed);
}

std::int32_t CFTBuffer::IsValid() const {
  const unsigned char* const end = m_base + m_capacity;
  return m_base <= m_read && m_read <= m_write && m_read <= end && m_write <= end ? 1 : 0;
}

std::int32_t CFTBuffer::Compact() {
  if (IsValid() == 0) return -1;
  if (m_read == m_base) return 0;
  const std::int32_t length = GetDataLen();
  std::memmove(m_base, m_read, static_cast<std::size_t>(length));
  m_read = m_base;
  m_write = m_base + length;
  Terminate(0);
  return 0;
}

void CFTBuffer::Reset() {
  m_read = m_write = m_base;
  Terminate(0);
}

void CFTBuffer::Reserve(std::int32_t n) {
  Compact();
  if (GetFreeTail() < n) Grow(static_cast<std::uint32_t>(n));
}

void CFTBuffer::Grow(std::uint32_t n) {
  const auto length = static_cast<std::uint32_t>(GetDataLen());
  unsigned char* const base = NewStorage(std::size_t{length} + n + kDefaultStorage);
  if (length > 0) std::memcpy(base, m_read, length);
  ReplaceStorage(base);
  m_read = base;
  m_write = base + length;
  Terminate(0);
  m_capacity = length + n + (kDefaultStorage - 1);
}

std::int32_t CFTBuffer::Append(const void* data, std::int32_t n) {
  if (IsValid() == 0 || n < 0) return -1;
  Reserve(n);
  if (n > 0) std::memcpy(m_write, data, static_cast<std::size_t>(n));
  m_write += n;
  Terminate(0);
  return 0;
}

// A released buffer has no place for it.
void CFTBuffer::Terminate(unsigned char terminator) {
  if (m_base != nullptr) *m_write = terminator;
}

void ReleaseFTBuffer(CFTBuffer* buffer) {
  delete buffer;
}

char* ft::AllocBody(std::size_t bytes) {
  return static_cast<char*>(ft::AllocBlock(kBodyInBlock + bytes)) + kBodyInBlock;
}

std::uint32_t ft::CountedBytesOf(std::size_t body_len) noexcept {
  const bool counts = body_len >= kCountedBodyLen || !platform::IsWindowCapacityFixed();
  return counts ? static_cast<std::uint32_t>(body_len + kBlockCost) : 0;
}

void ft::FreeBody(char* body) noexcept {
  if (body != nullptr) ft::FreeBlock(body - kBodyInBlock);
}
