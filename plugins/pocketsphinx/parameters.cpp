#include "parameters.h"

#include <charconv>
#include <optional>

namespace quillbrook::pocketsphinx {
namespace {

constexpr std::string_view kSeparators = ",; \t\r\n";
constexpr size_t kMostComplaints = 8;  // a configuration of noise must not become a log file of noise

std::optional<bool> to_switch(std::string_view value) {
  if (value == "yes" || value == "on" || value == "true" || value == "1") return true;
  if (value == "no" || value == "off" || value == "false" || value == "0") return false;
  return std::nullopt;
}

std::optional<int> to_number(std::string_view value, int lowest, int highest) {
  int number = 0;
  auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
  if (error != std::errc() || end != value.data() + value.size() || number < lowest || number > highest) {
    return std::nullopt;
  }
  return number;
}

template <typename Value>
bool assign(Value &field, const std::optional<Value> &value) {
  if (value) field = *value;
  return value.has_value();
}

bool assign_path(std::string &field, std::string_view value) {
  if (value.empty()) return false;
  field = value;
  return true;
}

// False when the key is known and the value is not acceptable; nullopt when the key is unknown.
std::optional<bool> set(Parameters &parameters, std::string_view key, std::string_view value) {
  if (key == "endpointing") return assign(parameters.endpointing, to_switch(value));
  if (key == "loop") return assign(parameters.loop, to_switch(value));
  if (key == "silence") return assign(parameters.silence_ms, to_number(value, 100, 10000));
  if (key == "threshold") return assign(parameters.threshold, to_number(value, 0, 100));
  if (key == "longest") return assign(parameters.longest_ms, to_number(value, 1000, 120000));
  if (key == "model") return assign_path(parameters.model, value);
  if (key == "dict") return assign_path(parameters.dictionary, value);
  if (key == "lm") return assign_path(parameters.language_model, value);
  return std::nullopt;
}

}  // namespace

Parameters Parameters::parse(std::string_view text) {
  Parameters parameters;
  auto complain = [&parameters](std::string sentence) {
    if (parameters.complaints.size() < kMostComplaints) parameters.complaints.push_back(std::move(sentence));
  };

  while (true) {
    size_t begin = text.find_first_not_of(kSeparators);
    if (begin == std::string_view::npos) return parameters;
    text.remove_prefix(begin);
    std::string_view pair = text.substr(0, text.find_first_of(kSeparators));
    text.remove_prefix(pair.size());

    size_t equals = pair.find('=');
    if (equals == std::string_view::npos) {
      complain("'" + std::string(pair) + "' is no key=value pair, ignored");
      continue;
    }
    std::string_view key = pair.substr(0, equals);
    std::string_view value = pair.substr(equals + 1);
    std::optional<bool> accepted = set(parameters, key, value);
    if (!accepted) {
      complain("unknown parameter '" + std::string(key) + "', ignored");
    } else if (!*accepted) {
      complain("parameter '" + std::string(key) + "' cannot be '" + std::string(value) + "', the default stands");
    }
  }
}

}  // namespace quillbrook::pocketsphinx
