// What operators write into `configuration`: parameters "key=value", separated by commas, semicolons or blanks. A value
// in double quotes may hold those too.
#pragma once

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace quillbrook::common {

struct Parameter {
  std::string text;  // as it stands there
  std::string key;
  std::string value;  // without its quotes; empty when there is no "="
};

// Hands each parameter to `set`, and gives a sentence for each that it does not take.
std::vector<std::string> refused_parameters(const std::string &configuration,
                                            const std::function<bool(const Parameter &)> &set);

// The same; throws Failure with the first sentence.
void read_parameters(const std::string &configuration, const std::function<bool(const Parameter &)> &set);

// Takes the next parameter off the front of the text. False when there is none left.
bool take_parameter(std::string_view &text, Parameter &parameter);

// Each gives whether the value is one; the result is left alone when it is not.
bool number(std::string_view value, int least, int most, int &result);
bool number(std::string_view value, double least, double most, double &result);
bool nonempty(const std::string &value, std::string &result);
bool truth(const std::string &value, bool &result);                            // yes, true, on, 1; no, false, off, 0
bool milliseconds(std::string_view value, std::chrono::milliseconds &result);  // a limit: 10 to 60000

}  // namespace quillbrook::common
