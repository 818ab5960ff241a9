// The input is a grammar file.

#include "jsgf_agreement.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  jsgf_fuzz::check(std::string(reinterpret_cast<const char *>(data), size), "");
  return 0;
}
