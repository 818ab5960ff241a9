// The NLSML result document (Natural Language Semantics Markup Language for the Speech Interface Framework, W3C Working
// Draft of November 2000, as far as speech resources use it): what was heard stands in `input`, what it means in
// `instance`. docs/results.md tells the forms byte by byte.
#pragma once

#include "../host.h"

// Texts are written as XML text, in whatever encoding they are. `interpretation` and `json` may be null.
struct quillbrook_nlsml {
  const char *grammar_id;
  int score;  // percent; 0 selects the form for "no match"
  const char *text;
  const char *interpretation;
  const char *json;
};

// Writes the document. Write errors show in ferror(file).
void quillbrook_write_nlsml(FILE *file, const quillbrook_nlsml &document);
