// Heap strings of the host's allocators.
#pragma once

#include "../host.h"

// Releases a text and clears its pointer.
inline void quillbrook_release_text(char *&text) {
  ast_free(text);
  text = nullptr;
}
