// Recorded speech at 8 kHz, and quiet around it.
#pragma once

#include <cstdint>
#include <cstring>
#include <fstream>
#include <iterator>
#include <stdexcept>
#include <string>
#include <vector>

using Samples = std::vector<int16_t>;

// Of a wav file with 16 bits at 8 kHz and a header of 44 bytes.
inline Samples read_wav(const std::string &path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  if (bytes.size() < 44) throw std::runtime_error(path + " cannot be read");
  Samples samples((bytes.size() - 44) / 2);
  memcpy(samples.data(), bytes.data() + 44, samples.size() * 2);
  return samples;
}

// Faint noise, as a telephone line has it.
inline Samples quiet(int milliseconds) {
  Samples samples(static_cast<size_t>(milliseconds) * 8);
  unsigned state = 1;
  for (int16_t &sample : samples) {
    state = state * 1103515245U + 12345U;
    sample = static_cast<int16_t>(static_cast<int>(state >> 16) % 9 - 4);
  }
  return samples;
}

// All of them, with so much quiet ahead of each and behind the last.
inline Samples in_a_row(const std::vector<Samples> &parts, int pause_ms) {
  const Samples pause = quiet(pause_ms);
  Samples all = pause;
  for (const Samples &part : parts) {
    all.insert(all.end(), part.begin(), part.end());
    all.insert(all.end(), pause.begin(), pause.end());
  }
  return all;
}
