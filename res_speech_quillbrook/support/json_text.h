// A text as a JSON value.
#pragma once

#include "../host.h"

// The text as a JSON string with its quotes, in ASCII; "null" for one that is not UTF-8.
std::string json_text(const char *text);
