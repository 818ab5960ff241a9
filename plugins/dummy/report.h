// What a script makes visible of the record that the module handed over: for tests of a dialplan and of the module.
#pragma once

#include <string>
#include <string_view>

#include "quillbrook.h"

namespace quillbrook::dummy {

// One line "name=value" for each field named in names (separated by blanks), or for all of them when names is empty.
// Line feeds and backslashes of a value are written as "\n" and "\\". A name that is no field gives "name?".
// answer is what the callback returned last.
std::string describe(const quillbrook_context &context, std::string_view names, int answer);

// Appends text to the file in one write, creating it. A symbolic link at path is not followed.
void append(const std::string &path, std::string_view text);

}  // namespace quillbrook::dummy
