#include "str_fifo.h"

namespace {

void release(str_item *item) {
  item->~str_item();
  ast_free(item);
}

}  // namespace

int str_fifo_init(str_fifo *fifo) {
  if (!fifo) {
    return -1;
  }
  AST_RWLIST_HEAD_INIT(&fifo->items);
  fifo->count = 0;
  return 0;
}

void str_fifo_destroy(str_fifo *fifo) {
  if (!fifo) {
    return;
  }
  AST_RWLIST_WRLOCK(&fifo->items);
  while (str_item *item = AST_RWLIST_REMOVE_HEAD(&fifo->items, entry)) {
    ast_free(item->value);
    release(item);
  }
  fifo->count = 0;
  AST_RWLIST_UNLOCK(&fifo->items);
  AST_RWLIST_HEAD_DESTROY(&fifo->items);
}

int str_fifo_push(str_fifo *fifo, const char *s) {
  return str_fifo_push(fifo, s, nullptr);
}

int str_fifo_push(str_fifo *fifo, const char *s, std::shared_ptr<const quillbrook_result_t> details) {
  if (!fifo || !s) {
    return -1;
  }
  void *memory = ast_calloc(1, sizeof(str_item));
  if (!memory) {
    return -1;
  }
  auto *item = new (memory) str_item();
  item->details = std::move(details);
  item->value = ast_strdup(s);
  if (!item->value) {
    release(item);
    return -1;
  }
  AST_RWLIST_WRLOCK(&fifo->items);
  AST_RWLIST_INSERT_TAIL(&fifo->items, item, entry);
  ++fifo->count;
  AST_RWLIST_UNLOCK(&fifo->items);
  return 0;
}

char *str_fifo_pop(str_fifo *fifo) {
  std::shared_ptr<const quillbrook_result_t> details;
  return str_fifo_pop(fifo, details);
}

char *str_fifo_pop(str_fifo *fifo, std::shared_ptr<const quillbrook_result_t> &details) {
  if (!fifo) {
    return nullptr;
  }
  AST_RWLIST_WRLOCK(&fifo->items);
  str_item *item = AST_RWLIST_REMOVE_HEAD(&fifo->items, entry);
  if (item && fifo->count) {
    --fifo->count;
  }
  AST_RWLIST_UNLOCK(&fifo->items);
  if (!item) {
    return nullptr;
  }
  char *value = item->value;
  details = std::move(item->details);
  release(item);
  return value;
}

size_t str_fifo_count(str_fifo *fifo) {
  if (!fifo) {
    return 0;
  }
  AST_RWLIST_RDLOCK(&fifo->items);
  size_t count = fifo->count;
  AST_RWLIST_UNLOCK(&fifo->items);
  return count;
}

int str_fifo_empty(str_fifo *fifo) {
  return str_fifo_count(fifo) == 0;
}
