// Collects a response body for libcurl.
#ifndef VARNKIVO_TRANSPORT_BODY_CHUNK_H_
#define VARNKIVO_TRANSPORT_BODY_CHUNK_H_

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace varnkivo {

/// A growing heap text of at most 16 MiB: a hostile server must not be able to fill the memory.
class BodyChunk {
 public:
  BodyChunk() = default;
  BodyChunk(const BodyChunk&) = delete;
  BodyChunk& operator=(const BodyChunk&) = delete;
  ~BodyChunk() { Drop(); }

  /// Null when nothing was received.
  const char* Text() const { return text_; }
  std::size_t Size() const { return size_; }
  void Drop() {
    std::free(text_);
    text_ = nullptr;
    size_ = capacity_ = 0;
  }
  /// CURLOPT_WRITEFUNCTION with a BodyChunk as its data. A result other than the block's length aborts the transfer.
  static std::size_t Write(char* block, std::size_t size, std::size_t count, void* chunk) noexcept {
    return static_cast<BodyChunk*>(chunk)->Append(block, size * count);
  }

 private:
  static constexpr std::size_t kMostBytes = 16u << 20;

  std::size_t Append(const char* block, std::size_t length) noexcept {
    if (length > kMostBytes - size_ || !Reserve(size_ + length + 1)) {
      Drop();
      return 0;
    }
    std::memcpy(text_ + size_, block, length);
    size_ += length;
    text_[size_] = '\0';
    return length;
  }

  /// Doubles, so that a long body is not copied at every block of it.
  bool Reserve(std::size_t bytes) noexcept {
    if (bytes <= capacity_) return true;
    const std::size_t wanted = std::max(bytes, std::min(2 * capacity_, kMostBytes + 1));
    char* larger = static_cast<char*>(std::realloc(text_, wanted));
    if (!larger) return false;
    text_ = larger;
    capacity_ = wanted;
    return true;
  }

  char* text_ = nullptr;
  std::size_t capacity_ = 0;
  std::size_t size_ = 0;  // without the NUL
};

}  // namespace varnkivo

#endif  // VARNKIVO_TRANSPORT_BODY_CHUNK_H_
