#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace quillbrook::jsgf {

// Where a grammar's file is below its folder: com.acme.sizes in "com/acme/sizes.jsgf". "" for a name that no file can
// have.
std::string path_of_grammar(std::string_view name);

// The folder in which the package of a grammar begins whose file is in `folder`: for com.acme.sizes in "x/com/acme" it
// is "x". The folder itself when it isn't named after the package.
std::string package_root(const std::string &folder, std::string_view grammar_name);

// The content of a regular file below a folder. No symbolic link below the folder is followed, so nothing outside is
// ever read. Nothing when there is no such file; throws std::runtime_error for one that can't be read or has more than
// `most` bytes.
std::optional<std::string> read_below(const std::string &folder, const std::string &path, size_t most);

}  // namespace quillbrook::jsgf
