#pragma once

#include <QByteArray>
#include <QString>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>

namespace tw::testing {

// Reads a fuzzer's bytes as a stream of small decisions. Reads past the end
// give zeros, so every input, however short, decodes to something.
class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}

  bool atEnd() const { return pos_ >= size_; }
  std::size_t left() const { return atEnd() ? 0 : size_ - pos_; }

  std::uint8_t byte() { return atEnd() ? 0 : data_[pos_++]; }
  bool flag() { return (byte() & 1) != 0; }
  // A number in [0, n), n from 1 to 256.
  std::size_t below(std::size_t n) { return n <= 1 ? 0 : byte() % n; }
  std::uint16_t u16() { return static_cast<std::uint16_t>(byte() | byte() << 8); }
  std::uint32_t u32() { return u16() | static_cast<std::uint32_t>(u16()) << 16; }
  std::uint64_t u64() { return u32() | static_cast<std::uint64_t>(u32()) << 32; }

  // Up to `n` bytes, fewer at the end of the input.
  QByteArray bytes(std::size_t n) {
    const std::size_t take = n < left() ? n : left();
    QByteArray out(reinterpret_cast<const char*>(data_ + pos_), static_cast<qsizetype>(take));
    pos_ += take;
    return out;
  }
  // A length byte (0 to `max`), then that many bytes.
  QByteArray lengthPrefixed(std::size_t max) { return bytes(below(max + 1)); }
  // Everything not read yet.
  QByteArray rest() { return bytes(left()); }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t pos_ = 0;
};

// A property that does not hold: reported like a crash, so the fuzzer keeps
// the input and the corpus replay fails on it.
[[noreturn]] inline void propertyFailed(const char* condition, const char* file, int line) {
  std::fprintf(stderr, "%s:%d: property does not hold: %s\n", file, line, condition);
  std::abort();
}

}  // namespace tw::testing

#define TW_FUZZ_CHECK(condition) \
  ((condition) ? void(0) : ::tw::testing::propertyFailed(#condition, __FILE__, __LINE__))
