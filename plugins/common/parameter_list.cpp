#include "parameter_list.h"

#include <strings.h>

#include <algorithm>
#include <charconv>

#include "failure.h"

namespace quillbrook::common {

std::vector<std::string> refused_parameters(const std::string &configuration,
                                            const std::function<bool(const Parameter &)> &set) {
  std::vector<std::string> sentences;
  std::string_view rest = configuration;
  Parameter parameter;
  while (take_parameter(rest, parameter)) {
    if (!set(parameter)) {
      sentences.push_back("configuration: '" + parameter.text + "' is no known parameter with a value it can take");
    }
  }
  return sentences;
}

void read_parameters(const std::string &configuration, const std::function<bool(const Parameter &)> &set) {
  const std::vector<std::string> sentences = refused_parameters(configuration, set);
  if (!sentences.empty()) throw Failure(sentences.front());
}

bool take_parameter(std::string_view &text, Parameter &parameter) {
  constexpr std::string_view kSeparators = ",; \t\r\n";
  text.remove_prefix(std::min(text.find_first_not_of(kSeparators), text.size()));
  if (text.empty()) return false;
  size_t end = std::min(text.find_first_of(kSeparators), text.size());
  const size_t equals = std::min(text.substr(0, end).find('='), end);
  parameter.key = text.substr(0, equals);
  parameter.value = equals < end ? text.substr(equals + 1, end - equals - 1) : std::string_view();
  if (!parameter.value.empty() && parameter.value.front() == '"') {
    const size_t close = std::min(text.find('"', equals + 2), text.size());
    parameter.value = text.substr(equals + 2, close - equals - 2);
    end = std::min(close + 1, text.size());
  }
  parameter.text = text.substr(0, end);
  text.remove_prefix(end);
  return true;
}

bool number(std::string_view value, int least, int most, int &result) {
  int read = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), read);
  if (error != std::errc() || end != value.data() + value.size() || read < least || read > most) return false;
  result = read;
  return true;
}

bool number(std::string_view value, double least, double most, double &result) {
  double read = 0;
  const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), read);
  if (error != std::errc() || end != value.data() + value.size() || !(read >= least && read <= most)) return false;
  result = read;
  return true;
}

bool nonempty(const std::string &value, std::string &result) {
  if (value.empty()) return false;
  result = value;
  return true;
}

bool truth(const std::string &value, bool &result) {
  for (const char *yes : {"yes", "true", "on", "1"}) {
    if (strcasecmp(value.c_str(), yes) == 0) return result = true;
  }
  for (const char *no : {"no", "false", "off", "0"}) {
    if (strcasecmp(value.c_str(), no) == 0) return !(result = false);
  }
  return false;
}

bool milliseconds(std::string_view value, std::chrono::milliseconds &result) {
  constexpr int kLeast = 10;
  constexpr int kMost = 60000;
  int count = 0;
  if (!number(value, kLeast, kMost, count)) return false;
  result = std::chrono::milliseconds(count);
  return true;
}

}  // namespace quillbrook::common
