#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace quillbrook::jsgf {

// Numbers texts from 0 in the order in which they are first added.
class Vocabulary {
public:
  static constexpr uint32_t kUnknown = UINT32_MAX;

  // The text's number; a new one when it wasn't there.
  uint32_t add(std::string_view text);

  // The text's number, kUnknown when it was never added.
  uint32_t find(std::string_view text) const;

  std::string_view operator[](uint32_t number) const {
    const uint32_t begin = number == 0 ? 0 : entries_[number - 1].end;
    return std::string_view(text_).substr(begin, entries_[number].end - begin);
  }
  uint32_t size() const { return static_cast<uint32_t>(entries_.size()); }

private:
  struct Entry {
    uint32_t hash;
    uint32_t end;  // in text_; an entry begins where the one before it ends
  };

  size_t slot_of(std::string_view text, uint32_t hash) const;
  void grow();

  std::string text_;
  std::vector<Entry> entries_;
  std::vector<uint32_t> slots_;  // open addressing, a power of two: number + 1, or 0
};

}  // namespace quillbrook::jsgf
