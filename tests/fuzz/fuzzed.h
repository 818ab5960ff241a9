// What fuzz targets share. A target is one function, which libFuzzer calls with inputs that it makes, and replay.cpp
// with those of the corpus. What breaks ends the process.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size);

namespace fuzzed {

inline void require(bool is_true, const char *what) {
  if (!is_true) {
    std::fprintf(stderr, "broken: %s\n", what);
    std::abort();
  }
}

// The input as texts.
class Input {
public:
  Input(const uint8_t *data, size_t size) : rest_(reinterpret_cast<const char *>(data), size) {}

  bool is_empty() const { return rest_.empty(); }
  // The first character decides what the rest is for.
  char take_choice() {
    const char choice = rest_.empty() ? '\0' : rest_[0];
    rest_.erase(0, 1);
    return choice;
  }
  std::string take_line() {
    const size_t end = rest_.find('\n');
    std::string line = rest_.substr(0, end);
    rest_.erase(0, end == std::string::npos ? end : end + 1);
    return line;
  }
  std::string take_rest() { return std::move(rest_); }

private:
  std::string rest_;
};

}  // namespace fuzzed
