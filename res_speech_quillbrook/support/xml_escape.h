// Text and attribute values of XML documents.
#pragma once

#include "../host.h"

// Writes `s` to `out` with the five characters that XML reserves as entities, and control characters other than tab,
// line feed and carriage return as blanks. Bytes of 0x80 and above pass unchanged. Nothing for a null argument. Write
// errors show in ferror(out).
void xml_fputs_escaped(FILE *out, const char *s);
