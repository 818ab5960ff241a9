#pragma once

#include <cstddef>

// Bytes that operator new was asked for in this process and that have not come back, now and at most.
extern size_t heap_bytes;
extern size_t heap_bytes_at_most;
