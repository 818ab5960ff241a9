#include "vocabulary.h"

#include <functional>

namespace quillbrook::jsgf {

namespace {

uint32_t hash_of(std::string_view text) {
  const size_t hash = std::hash<std::string_view>()(text);
  return static_cast<uint32_t>(hash ^ hash >> 32U);
}

}  // namespace

size_t Vocabulary::slot_of(std::string_view text, uint32_t hash) const {
  const size_t mask = slots_.size() - 1;
  for (size_t slot = hash & mask;; slot = (slot + 1) & mask) {
    if (slots_[slot] == 0) {
      return slot;
    }
    const uint32_t number = slots_[slot] - 1;
    if (entries_[number].hash == hash && (*this)[number] == text) {
      return slot;
    }
  }
}

void Vocabulary::grow() {
  slots_.assign(slots_.empty() ? 64 : slots_.size() * 2, 0);
  const size_t mask = slots_.size() - 1;
  for (uint32_t number = 0; number < entries_.size(); ++number) {
    size_t slot = entries_[number].hash & mask;
    while (slots_[slot] != 0) {
      slot = (slot + 1) & mask;
    }
    slots_[slot] = number + 1;
  }
}

uint32_t Vocabulary::add(std::string_view text) {
  if (entries_.size() * 2 >= slots_.size()) {
    grow();
  }
  const uint32_t hash = hash_of(text);
  const size_t slot = slot_of(text, hash);
  if (slots_[slot] == 0) {
    text_.append(text);
    entries_.push_back({hash, static_cast<uint32_t>(text_.size())});
    slots_[slot] = static_cast<uint32_t>(entries_.size());
  }
  return slots_[slot] - 1;
}

uint32_t Vocabulary::find(std::string_view text) const {
  return slots_.empty() ? kUnknown : slots_[slot_of(text, hash_of(text))] - 1;
}

}  // namespace quillbrook::jsgf
