#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "00shcode/mytoolkit/block_pool.h"

// Growable byte buffer: stored bytes lie between a read and a write position over one owned block.
// The block always has room for one byte at the write position. One thread at a time; pointers
// into it are void after Reserve, Append, Compact and Grow. Running out of memory throws
// std::bad_alloc and leaves the buffer as it was.
class CFTBuffer {
 public:
  // A buffer in one piece with its storage.
  static std::unique_ptr<CFTBuffer> Make(std::uint32_t capacity);

  // The same, holding a copy of so many bytes.
  static std::unique_ptr<CFTBuffer> MakeCopy(const void* data, std::int32_t n);

  // Ends the buffer. Its stored bytes from the offset on become an array, which ft::FreeBody
  // releases. Nothing is copied when the buffer came from Make, nothing was consumed, and the
  // offset is kBodyOffset.
  static char* IntoBody(std::unique_ptr<CFTBuffer> buffer, std::int32_t offset);
  static constexpr std::int32_t kBodyOffset = 12;

  CFTBuffer();  // capacity 31
  explicit CFTBuffer(std::uint32_t capacity);
  ~CFTBuffer();
  CFTBuffer(const CFTBuffer&) = delete;
  CFTBuffer& operator=(const CFTBuffer&) = delete;
  static void* operator new(std::size_t bytes) { return ft::AllocBlock(bytes); }
  static void operator delete(void* buffer) { ft::FreeBlock(buffer); }

  // Frees the storage and makes everything null and zero. May be called again; what is appended
  // later gets new storage.
  void Release();

  unsigned char* GetData() const { return m_read; }
  unsigned char* GetWritePos() const { return m_write; }
  std::int32_t GetDataLen() const { return static_cast<std::int32_t>(m_write - m_read); }
  std::uint32_t GetCapacity() const { return m_capacity; }
  // Bytes that fit at the write position without moving or growing.
  std::int32_t GetFreeTail() const {
    return static_cast<std::int32_t>(m_base + m_capacity - m_write);
  }

  // Drops n bytes from the front; n is at most GetDataLen.
  void Consume(std::uint32_t n) { m_read += n; }

  // Takes in n bytes that the caller wrote at the write position; n is at most GetFreeTail.
  // Stores a line feed behind them.
  void CommitWrite(std::int32_t n);

  // 1 while the positions lie in order inside the block, else 0.
  std::int32_t IsValid() const;

  // Moves the stored bytes to the start of the block. 0, or -1 when the buffer is invalid.
  std::int32_t Compact();

  // Drops all bytes; the storage stays.
  void Reset();

  // Makes a free tail of at least n bytes: consumed space first, then a larger block.
  void Reserve(std::int32_t n);

  // Moves the stored bytes to a new block with room for n more.
  void Grow(std::uint32_t n);

  // Copies n bytes behind the stored ones. 0, or -1 with nothing changed when the buffer is
  // invalid or n is negative.
  std::int32_t Append(const void* data, std::int32_t n);

 private:
  struct InPlace {
    std::uint32_t capacity;
  };

  explicit CFTBuffer(InPlace storage);

  unsigned char* InnerStorage();
  void ReplaceStorage(unsigned char* storage);
  void Terminate(unsigned char terminator);

  unsigned char* m_base = nullptr;
  unsigned char* m_read = nullptr;
  unsigned char* m_write = nullptr;
  std::uint32_t m_capacity = 0;
};

using FTBufferPtr = std::unique_ptr<CFTBuffer>;

// What a buffer's receiver calls when it is done with it.
using FTReleaseFunction = void (*)(CFTBuffer* buffer);

// Destroys a buffer made with new or Make; null is ignored.
void ReleaseFTBuffer(CFTBuffer* buffer);

namespace ft {

// An array of so many bytes, aligned to 8, which FreeBody releases. Throws std::bad_alloc.
char* AllocBody(std::size_t bytes);

// Any thread, at any time. Null is ignored.
void FreeBody(char* body) noexcept;

// What a package or a body occupies beside its bytes, with what a pool's sizes add to a short one.
constexpr std::uint32_t kBlockCost = 112;

// Bodies from IntoBody that are so long are counted until they are freed; so are shorter ones where
// windows do not limit their number. What one of this length counts for; 0: it is not counted.
constexpr std::size_t kCountedBodyLen = 4096;
std::uint32_t CountedBytesOf(std::size_t body_len) noexcept;

// What all of the process count for. Any thread.
inline std::size_t CountedBodyBytes() noexcept {
  return CountedBytes();
}

struct FTBodyDeleter {
  void operator()(char* body) const { FreeBody(body); }
};
using FTBodyPtr = std::unique_ptr<char[], FTBodyDeleter>;

}  // namespace ft
