#ifndef QUILCAT_FUZZ_CHOICES_H_
#define QUILCAT_FUZZ_CHOICES_H_

#include <stddef.h>
#include <stdint.h>

/// What the bytes of an input choose; past their end it is always the first choice.
class Choices {
 public:
  Choices(const uint8_t* data, size_t size) : next_(data), end_(data + size) {}

  bool AtEnd() const { return next_ == end_; }
  /// 0 to `count` - 1.
  size_t Below(size_t count) {
    const size_t value = Byte();
    return (count > 256 ? value << 8 | Byte() : value) % count;
  }

 private:
  size_t Byte() { return AtEnd() ? 0 : *next_++; }

  const uint8_t* next_;
  const uint8_t* end_;
};

#endif  // QUILCAT_FUZZ_CHOICES_H_
