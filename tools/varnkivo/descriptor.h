// An open file that is closed when it goes.
#pragma once

#include <unistd.h>

namespace kivotool {

class Descriptor {
 public:
  explicit Descriptor(int value) : value_(value) {}  ///< -1: opening failed
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  ~Descriptor() {
    if (value_ >= 0) close(value_);
  }
  int Get() const { return value_; }

 private:
  int value_;
};

}  // namespace kivotool
