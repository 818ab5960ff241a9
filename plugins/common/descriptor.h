#pragma once

#include <unistd.h>

namespace quillbrook::common {

// Owns a file descriptor.
class Descriptor {
public:
  explicit Descriptor(int value = -1) : value_(value) {}
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }
  Descriptor(const Descriptor &) = delete;
  Descriptor &operator=(const Descriptor &) = delete;
  Descriptor(Descriptor &&other) noexcept : value_(other.value_) { other.value_ = -1; }
  Descriptor &operator=(Descriptor &&other) noexcept {
    const int mine = value_;
    value_ = other.value_;
    other.value_ = mine;
    return *this;
  }
  int get() const { return value_; }

private:
  int value_;
};

}  // namespace quillbrook::common
