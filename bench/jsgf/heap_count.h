#pragma once

#include <cstddef>

// Bytes that operator new has given out in this process and not got back, now and at most.
extern size_t heap_bytes;
extern size_t heap_bytes_at_most;
