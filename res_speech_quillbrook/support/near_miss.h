// What somebody may have meant who wrote a word that does not exist.
#pragma once

#include "../host.h"

// The candidate that `word` may be a slip of the pen for, or empty. Capital and small letters are the same.
std::string near_miss(std::string_view word, const std::vector<std::string> &candidates);
