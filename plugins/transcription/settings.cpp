#include "settings.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "failure.h"
#include "network_loop.h"
#include "phrases.h"
#include "url.h"

namespace quillbrook::transcription {

using namespace common;

namespace {

constexpr std::string_view kFieldPrefix = "field.";

bool format(const std::string &value, std::string &result) {
  if (value != "verbose_json" && value != "json") return false;
  result = value;
  return true;
}

// Written out with its port: libcurl's own choice is 1080.
bool proxy_url(const std::string &value, std::string &result) {
  try {
    const Url url = parse_url(value, "http", "https");
    const std::string host = url.host.find(':') == std::string::npos ? url.host : '[' + url.host + ']';
    result = (url.tls ? "https://" : "http://") + host + ':' + url.port;
    return true;
  } catch (const Failure &) {
    return false;
  }
}

std::optional<bool> set_listening(Settings &settings, const std::string &key, const std::string &value) {
  if (key == "vad") return number(value, 0, 3, settings.strictness);
  if (key == "floor") return number(value, 0, 32767, settings.floor);
  if (key == "silence") return number(value, 100, 10000, settings.silence_ms);
  if (key == "longest") return number(value, 1000, 120000, settings.longest_ms);
  if (key == "interim")
    return value == "0" ? number(value, 0, 0, settings.interim_ms) : number(value, 200, 60000, settings.interim_ms);
  return std::nullopt;
}

std::optional<bool> set_question(Settings &settings, const std::string &key, const std::string &value) {
  double temperature = 0;
  if (key == "model") return nonempty(value, settings.model);
  if (key == "language") return nonempty(value, settings.language);
  if (key == "prompt") return nonempty(value, settings.prompt);
  if (key == "format") return format(value, settings.format);
  if (key == "stream") return truth(value, settings.stream);
  if (key == "hints") return truth(value, settings.hints);
  if (key == "hotwords") return truth(value, settings.hotwords);
  if (key == "upsample") return truth(value, settings.upsample);
  if (key == "temperature") return number(value, 0.0, 2.0, temperature) && nonempty(value, settings.temperature);
  if (key.size() > kFieldPrefix.size() && key.compare(0, kFieldPrefix.size(), kFieldPrefix) == 0) {
    settings.fields.emplace_back(key.substr(kFieldPrefix.size()), value);
    return true;
  }
  return std::nullopt;
}

std::optional<bool> set_answer(Settings &settings, const std::string &key, const std::string &value) {
  if (key == "proxy") return proxy_url(value, settings.proxy);
  if (key == "answer_limit") return number(value, 1024, 1 << 26, settings.answer_limit);
  if (key == "no_speech") return number(value, 0.0, 1.0, settings.silence_limits.no_speech);
  if (key == "logprob") return number(value, -100.0, 0.0, settings.silence_limits.logprob);
  return std::nullopt;
}

bool set(Settings &settings, const Parameter &parameter) {
  for (const auto &group : {set_listening, set_question, set_answer}) {
    if (const std::optional<bool> known = group(settings, parameter.key, parameter.value)) return *known;
  }
  return settings.ServerSettings::set(parameter);
}

// The language of a tag such as "en-US", as far as it looks like one.
std::string language_of(const std::string &tag) {
  std::string language = tag.substr(0, tag.find_first_of("-_"));
  std::transform(language.begin(), language.end(), language.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  const bool is_code = (language.size() == 2 || language.size() == 3) &&
                       std::all_of(language.begin(), language.end(), [](char c) { return c >= 'a' && c <= 'z'; });
  return is_code ? language : "";
}

std::string joined(const std::vector<std::string> &parts, const char *separator) {
  std::string text;
  for (const std::string &part : parts) {
    if (!text.empty() && !part.empty()) text += separator;
    text += part;
  }
  return text;
}

}  // namespace

Settings parse_settings(const std::string &configuration) {
  Settings settings;
  read_parameters(configuration, [&](const Parameter &parameter) { return set(settings, parameter); });
  return settings;
}

std::vector<std::string> complaints_about(const quillbrook_context &record) {
  Settings settings;
  return settings.complaints_about(
      record.configuration, [&](const Parameter &parameter) { return set(settings, parameter); },
      split_urls(urls_of(record, kDefaultUrl), "http", "https"));
}

Fields request_fields(const Settings &settings, const quillbrook_context &record) {
  const std::string phrases = joined(phrases_of(record.phrases), ", ");
  const std::string hints = settings.hints ? phrases : "";
  const Fields usual = {
      {"model", settings.model.empty() ? record.model : settings.model},
      {"language", settings.language.empty() ? language_of(record.language) : settings.language},
      {"prompt", joined({settings.prompt, record.context, hints}, " ")},
      {"hotwords", settings.hotwords ? phrases : ""},
      {"temperature", settings.temperature},
      {"response_format", settings.format},
  };
  Fields fields;
  std::copy_if(usual.begin(), usual.end(), std::back_inserter(fields),
               [](const auto &field) { return !field.second.empty(); });
  fields.insert(fields.end(), settings.fields.begin(), settings.fields.end());
  return fields;
}

}  // namespace quillbrook::transcription
