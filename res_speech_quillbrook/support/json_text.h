// A text as a JSON value.
#pragma once

#include "../host.h"

// The text as a JSON string with its quotes, in ASCII; "null" for one that is not UTF-8.
std::string json_text(const char *text);

// Whether the text is a JSON value, of any kind, which may stand within another one.
bool is_json(const char *text);
