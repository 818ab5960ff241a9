#include "settings.h"

#include "network_loop.h"
#include "url.h"

namespace quillbrook::websocket {

using namespace common;

namespace {

bool end(const std::string &value, bool &result) {
  if (value != "piece" && value != "utterance") return false;
  result = value == "utterance";
  return true;
}

bool set(Settings &settings, const Parameter &parameter) {
  const auto &[whole, key, value] = parameter;
  if (key == "words") return truth(value, settings.words);
  if (key == "hints") return truth(value, settings.hints);
  if (key == "final") return end(value, settings.final_ends);
  if (key == "final_timeout") return milliseconds(value, settings.final_timeout);
  if (key == "unknown_word") {
    settings.unknown_word = value;
    return true;
  }
  return settings.ServerSettings::set(parameter);
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
      split_urls(urls_of(record, kDefaultUrl), "ws", "wss"));
}

}  // namespace quillbrook::websocket
