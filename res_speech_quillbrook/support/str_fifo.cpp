#include "str_fifo.h"

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
    ast_free(item);
  }
  fifo->count = 0;
  AST_RWLIST_UNLOCK(&fifo->items);
  AST_RWLIST_HEAD_DESTROY(&fifo->items);
}

int str_fifo_push(str_fifo *fifo, const char *s) {
  if (!fifo || !s) {
    return -1;
  }
  str_item *item = host_calloc<str_item>();
  if (!item) {
    return -1;
  }
  item->value = ast_strdup(s);
  if (!item->value) {
    ast_free(item);
    return -1;
  }
  AST_RWLIST_WRLOCK(&fifo->items);
  AST_RWLIST_INSERT_TAIL(&fifo->items, item, entry);
  ++fifo->count;
  AST_RWLIST_UNLOCK(&fifo->items);
  return 0;
}

char *str_fifo_pop(str_fifo *fifo) {
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
  ast_free(item);
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
