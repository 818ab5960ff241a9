// The few functions of the PBX that reading a configuration needs, for a program without one.
#include "../host.h"

extern "C" {

void ast_log(int, const char *, int, const char *, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vfprintf(stderr, format, arguments);
  va_end(arguments);
}

int ast_true(const char *value) {
  for (const char *word : {"yes", "true", "y", "t", "1", "on"}) {
    if (strcasecmp(value, word) == 0) {
      return -1;
    }
  }
  return 0;
}

// dsp.conf is not looked at: the value of a PBX without one.
int ast_dsp_get_threshold_from_settings(enum threshold) {
  return 256;
}

#undef strdup
#undef free
char *__ast_strdup(const char *text, const char *, int, const char *) {
  return strdup(text);
}
void __ast_free(void *memory, const char *, int, const char *) {
  free(memory);
}

}  // extern "C"
