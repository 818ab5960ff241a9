#include "parameters.h"

#include <optional>

#include "parameter_list.h"

namespace quillbrook::pocketsphinx {

using namespace common;

namespace {

constexpr size_t kMostComplaints = 8;  // a configuration of noise must not become a log file of noise

bool assign_path(std::string &field, const std::string &value) {
  if (value.empty()) return false;
  field = value;
  return true;
}

// False when the key is known and the value is not acceptable; nullopt when the key is unknown.
std::optional<bool> set(Parameters &parameters, const Parameter &parameter) {
  const auto &[text, key, value] = parameter;
  if (key == "endpointing") return truth(value, parameters.endpointing);
  if (key == "loop") return truth(value, parameters.loop);
  if (key == "silence") return number(value, 100, 10000, parameters.silence_ms);
  if (key == "threshold") return number(value, 0, 100, parameters.threshold);
  if (key == "longest") return number(value, 1000, 120000, parameters.longest_ms);
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
  Parameter pair;
  while (take_parameter(text, pair)) {
    if (pair.text == pair.key) {
      complain("'" + pair.text + "' is no key=value pair, ignored");
      continue;
    }
    const std::optional<bool> accepted = set(parameters, pair);
    if (!accepted) {
      complain("unknown parameter '" + pair.key + "', ignored");
    } else if (!*accepted) {
      complain("parameter '" + pair.key + "' cannot be '" + pair.value + "', the default stands");
    }
  }
  return parameters;
}

}  // namespace quillbrook::pocketsphinx
