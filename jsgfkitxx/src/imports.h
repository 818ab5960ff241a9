#pragma once

#include <deque>
#include <string>
#include <vector>

#include "jsgfkitxx.h"
#include "parser.h"

namespace quillbrook::jsgf {

// Reads the grammars that the parser's first file imports, and those that they import, each once, into the parser's
// syntax. Fills `sources`, which the syntax points into, with their texts. Gives the paths of the files. Throws
// std::runtime_error for a grammar that can't be found or read, is another one than its file's name says, or imports
// one that imports it.
std::vector<std::string> follow_imports(Parser &parser, const ImportFolders &folders, std::deque<std::string> &sources);

}  // namespace quillbrook::jsgf
