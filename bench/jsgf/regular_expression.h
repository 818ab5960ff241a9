#pragma once

#include <string>

// The regular expression for a grammar's public rule: a blank behind each word, and a capture for each tag. Takes
// grammars of lower-case words, references without recursion, groups, repeats and tags, with nothing nested deeply.
std::string to_regular_expression(const std::string &jsgf);
