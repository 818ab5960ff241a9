// A first-in, first-out queue of strings with a lock of its own, for results that wait until the host collects them.
// With each string travels a record of what else is known about it, which the queue does not look into.
#pragma once

#include "../host.h"

struct quillbrook_result_t;

// One queued string; `value` is a heap copy that the item owns.
struct str_item {
  char *value;
  AST_RWLIST_ENTRY(str_item) entry;
  std::shared_ptr<const quillbrook_result_t> details;  // may be empty
};

// Lives inside its owner's record. The lock of `items` guards the list and `count`; it is a leaf lock.
struct str_fifo {
  AST_RWLIST_HEAD(str_fifo_items, str_item) items;
  size_t count;
};

// Makes the queue empty and usable. 0, or -1 for a null queue.
int str_fifo_init(str_fifo *fifo);

// Releases all that is queued, and the lock: str_fifo_init comes before any further use. No other thread may be in the
// queue.
void str_fifo_destroy(str_fifo *fifo);

// Appends a copy of `s`. 0, or -1 for a null argument or when there is no memory; the queue is then unchanged.
int str_fifo_push(str_fifo *fifo, const char *s);
int str_fifo_push(str_fifo *fifo, const char *s, std::shared_ptr<const quillbrook_result_t> details);

// Takes the oldest string off; the caller owns it and releases it with ast_free. Null when there is none.
char *str_fifo_pop(str_fifo *fifo);
char *str_fifo_pop(str_fifo *fifo, std::shared_ptr<const quillbrook_result_t> &details);

size_t str_fifo_count(str_fifo *fifo);

// 1 when nothing is queued (or the queue is null), else 0.
int str_fifo_empty(str_fifo *fifo);
