#include "parameters.h"

#include <optional>

#include "parameter_list.h"

namespace quillbrook::pocketsphinx {

using namespace common;

namespace {

constexpr size_t kMostComplaints = 8;  // a configuration of noise must not become a log file of noise

// False when the key is known and the value is not acceptable; nullopt when the key is unknown.
std::optional<bool> set(Parameters &parameters, const Parameter &parameter) {
  const auto &[whole, key, value] = parameter;
  if (key == "endpointing") return truth(value, parameters.endpointing);
  if (key == "loop") return truth(value, parameters.loop);
  if (key == "silence") return number(value, 100, 10000, parameters.silence_ms);
  if (key == "threshold") return number(value, 0, 100, parameters.threshold);
  if (key == "longest") return number(value, 1000, 120000, parameters.longest_ms);
  if (key == "model") return nonempty(value, parameters.model);
  if (key == "dict") return nonempty(value, parameters.dictionary);
  if (key == "lm") return nonempty(value, parameters.language_model);
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
