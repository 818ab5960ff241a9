#pragma once

#include <cstddef>

// Bytes that operator new has given out in this process and not got back, now and at most.
extern size_t heapBytes;
extern size_t heapBytesAtMost;
