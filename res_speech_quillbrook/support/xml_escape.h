// Text and attribute values of XML documents.
#pragma once

#include "../host.h"

// Writes `s` to `out` so that any XML parser takes it, whatever bytes it has: the five characters that XML reserves as
// entities, code points that XML forbids (control characters other than tab, line feed and carriage return, U+FFFE and
// U+FFFF) as blanks, and each byte that is no UTF-8 as U+FFFD. Nothing for a null argument. Write errors show in
// ferror(out).
void xml_fputs_escaped(FILE *out, const char *s);
