// The first line of the input is a transcript, the rest a grammar without its first two declarations.

#include "jsgf_agreement.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string input(reinterpret_cast<const char *>(data), size);
  const size_t lineEnd = input.find('\n');
  if (lineEnd != std::string::npos && lineEnd > 0) {
    jsgf_fuzz::check("#JSGF V1.0;grammar g;" + input.substr(lineEnd), input.substr(0, lineEnd));
  }
  return 0;
}
