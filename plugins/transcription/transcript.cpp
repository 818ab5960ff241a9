#include "transcript.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "failure.h"
#include "json_text.h"

namespace quillbrook::transcription {

using common::cleaned;
using common::Failure;
using nlohmann::json;

namespace {

constexpr char kNoJson[] = "the server sent text that is no JSON object";

json parse_object(const std::string &text) {
  constexpr int kDeepest = 32;
  const auto bounded = [](int depth, json::parse_event_t, json &) {
    if (depth > kDeepest) throw Failure(kNoJson);
    return true;
  };
  json parsed = json::parse(text, bounded, false);
  if (!parsed.is_object()) throw Failure(kNoJson);
  return parsed;
}

// The member's value, or an empty one of the kind asked for.
std::string text_of(const json &object, const char *name) {
  const auto found = object.find(name);
  return found != object.end() && found->is_string() ? found->get<std::string>() : "";
}

const json &list_of(const json &object, const char *name) {
  static const json kNone = json::array();
  const auto found = object.find(name);
  return found != object.end() && found->is_array() ? *found : kNone;
}

double number_of(const json &object, const char *name) {
  const auto found = object.is_object() ? object.find(name) : object.end();
  return found != object.end() && found->is_number() ? found->get<double>() : std::nan("");
}

// The mean of figures, each with its weight.
class Mean {
public:
  void add(double value, double weight = 1) {
    sum_ += value * weight;
    weight_ += weight;
  }
  bool has_any() const { return weight_ > 0; }
  double value() const { return sum_ / weight_; }

private:
  double sum_ = 0;
  double weight_ = 0;
};

// Figures that are no logarithm of a probability, or no probability, count for nothing.
void add_logarithm(Mean &mean, double value, double weight = 1) {
  if (value <= 0) mean.add(value, weight);
}

bool is_silence(const json &segment, const SilenceLimits &limits) {
  return number_of(segment, "no_speech_prob") > limits.no_speech && number_of(segment, "avg_logprob") < limits.logprob;
}

double length_of(const json &segment) {
  constexpr double kShortest = 0.01;
  constexpr double kLongest = 3600;
  const double length = number_of(segment, "end") - number_of(segment, "start");
  return length >= kShortest ? std::min(length, kLongest) : kShortest;
}

int percent(double probability) {
  return std::clamp(static_cast<int>(std::lround(probability * 100)), 1, 100);
}

int confidence_of(const json &answer, const Mean &segments) {
  if (segments.has_any()) return percent(std::exp(segments.value()));
  Mean words;
  for (const json &word : list_of(answer, "words")) {
    const double probability = number_of(word, "probability");
    if (probability >= 0 && probability <= 1) words.add(probability);
  }
  if (words.has_any()) return percent(words.value());
  Mean tokens;
  for (const json &token : list_of(answer, "logprobs")) add_logarithm(tokens, number_of(token, "logprob"));
  return tokens.has_any() ? percent(std::exp(tokens.value())) : kConfidenceWithoutFigures;
}

}  // namespace

Transcript parse_transcript(const std::string &text, const SilenceLimits &limits) {
  const json answer = parse_object(text);
  const auto whole = answer.find("text");
  if (whole == answer.end() || !whole->is_string()) throw Failure("the server's answer has no text in it");
  Transcript transcript;
  Mean segments;
  std::string spoken;
  for (const json &segment : list_of(answer, "segments")) {
    if (!segment.is_object()) continue;
    if (is_silence(segment, limits)) {
      transcript.silent = true;
      continue;
    }
    spoken += text_of(segment, "text");
    add_logarithm(segments, number_of(segment, "avg_logprob"), length_of(segment));
  }
  transcript.text = cleaned(transcript.silent ? spoken : whole->get<std::string>());
  transcript.confidence = confidence_of(answer, segments);
  return transcript;
}

std::string error_message(const std::string &text) {
  json answer;
  try {
    answer = parse_object(text);
  } catch (const Failure &) {
    return "";
  }
  const auto error = answer.find("error");
  std::string message = error != answer.end() && error->is_object() ? text_of(*error, "message") : "";
  for (const char *name : {"error", "detail", "message"}) {
    if (message.empty()) message = text_of(answer, name);
  }
  return cleaned(message);
}

StreamEvent parse_event(const std::string &text) {
  const json event = parse_object(text);
  const std::string type = text_of(event, "type");
  StreamEvent read;
  if (type == "transcript.text.done") {
    read = {false, true, text_of(event, "text")};
  } else if (type == "transcript.text.delta") {
    read = {true, false, text_of(event, "delta")};
  } else if (type.empty()) {
    read = {true, false, text_of(event, "text")};  // some servers send a segment at a time, in the form of an answer
  }
  return read;
}

}  // namespace quillbrook::transcription
