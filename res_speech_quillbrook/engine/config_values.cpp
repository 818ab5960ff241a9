#include "config_values.h"

#include "config_file.h"

#include <cmath>

namespace {

constexpr size_t kLongestLabel = sizeof(quillbrook_engine_t::name) - 1;
constexpr size_t kLongestText = QUILLBROOK_TEXT_SIZE - 1;
constexpr int kLoudest = 32767;

bool is_one_of(const std::string &value, std::initializer_list<const char *> words) {
  return std::any_of(words.begin(), words.end(),
                     [&value](const char *word) { return strcasecmp(value.c_str(), word) == 0; });
}

bool is_no(const std::string &value) {
  return is_one_of(value, {"no", "false", "n", "f", "0", "off"});
}

std::string about_switch(const std::string &value) {
  return ast_true(value.c_str()) || is_no(value) ? "" : quoted(value) + " is neither yes nor no, and counts as no";
}

std::string about_length(const std::string &value, size_t longest) {
  return value.size() <= longest ? "" : "the text is cut behind " + std::to_string(longest) + " bytes";
}

std::string about_number(const ConfigKey &key, const std::string &value) {
  const bool time = key.kind == ConfigKind::kMilliseconds;
  char *end = nullptr;
  errno = 0;
  const long number = strtol(value.c_str(), &end, 10);
  const long read = std::clamp<long>(number, INT_MIN, INT_MAX);
  if (end == value.c_str() || *end || errno || read != number) {
    return quoted(value) + " is no whole number" + (time ? " of milliseconds" : "") + ", and is read as " +
           std::to_string(read);
  }
  if (read < key.rules.least) {
    return std::to_string(read) + " is below " + std::to_string(key.rules.least) + ", and counts as no value";
  }
  return time && read < 0 ? "a time cannot be below 0" : "";
}

std::string about_decimal(const std::string &value) {
  char *end = nullptr;
  const double number = strtod(value.c_str(), &end);
  if (end == value.c_str() || *end || !std::isfinite(number)) {
    return quoted(value) + " is no decimal number";
  }
  return (number >= 0 && number <= 1) || number == -1 ? "" : quoted(value) + " is neither from 0.0 to 1.0 nor -1.0";
}

std::string about_threshold(const ConfigKey &key, ConfigSection section, const std::string &value) {
  if (value == "dsp" || value == "default") {
    return section == ConfigSection::kGeneral ? ""
                                              : quoted(value) + " has a meaning in [general] only, and is read as 0";
  }
  const std::string complaint = about_number(key, value);
  const long number = strtol(value.c_str(), nullptr, 10);
  return complaint.empty() && (number < 0 || number > kLoudest)
             ? value + " is not from 0 to " + std::to_string(kLoudest)
             : complaint;
}

std::string about_normalization(const std::string &value) {
  if (value == "yes" || value == "both" || value == "phrases" || is_no(value)) {
    return "";
  }
  return quoted(value) + " is none of no, phrases, yes and both, and counts as no";
}

std::string about_word(const ConfigKey &key, const std::string &value) {
  const char *second = key.rules.second_word;
  if (value == key.rules.word || value == key.absent.value || (second && value == second)) {
    return "";
  }
  const std::string words = second ? std::string("none of ") + key.rules.word + ", " + second + " and "
                                   : std::string("neither ") + key.rules.word + " nor ";
  return quoted(value) + " is " + words + key.absent.value + ", and counts as " + key.absent.value;
}

std::string about_folder(const std::string &value) {
  struct stat status;
  if (value.empty() ||
      (stat(value.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && access(value.c_str(), W_OK | X_OK) == 0)) {
    return "";
  }
  return quoted(value) + " is no folder that can be written to: nothing will be there";
}

// The folder is looked at, because the loader creates the file.
ConfigComplaint about_log_file(const std::string &value) {
  if (value == "no") {
    return {};
  }
  if (is_one_of(value, {"yes", "no"}) && value != "yes") {
    return {quoted(value) + " is the path of a file: yes and no are written in small letters"};
  }
  const std::string path = value == "yes" ? kLogPath : value;
  const size_t slash = path.rfind('/');
  const std::string folder = slash == std::string::npos ? "." : path.substr(0, slash + 1);
  struct stat status;
  const bool exists = stat(path.c_str(), &status) == 0;
  const bool writable =
      exists ? !S_ISDIR(status.st_mode) && access(path.c_str(), W_OK) == 0 : access(folder.c_str(), W_OK | X_OK) == 0;
  if (writable) {
    return {};
  }
  return {"the log file " + path + " cannot be opened: " + (exists ? "it" : folder) + " is not writable", true};
}

}  // namespace

ConfigComplaint complaint_about(const ConfigKey &key, ConfigSection section, const std::string &value) {
  switch (key.kind) {
    case ConfigKind::kBoolean:
      return {about_switch(value)};
    case ConfigKind::kDebugLevel:
      return {value.rfind("plugin", 0) == 0 ? "" : about_switch(value)};
    case ConfigKind::kNormalization:
      return {about_normalization(value)};
    case ConfigKind::kFolder:
      return {about_folder(value)};
    case ConfigKind::kWord:
      return {about_word(key, value)};
    case ConfigKind::kSilenceThreshold:
      return {about_threshold(key, section, value)};
    case ConfigKind::kNumber:
    case ConfigKind::kMilliseconds:
      return {about_number(key, value)};
    case ConfigKind::kDecimal:
      return {about_decimal(value)};
    case ConfigKind::kLogFile:
      return about_log_file(value);
    case ConfigKind::kLabel:
      return {about_length(value, kLongestLabel)};
    case ConfigKind::kText:
      // The list of profiles goes to no plugin.
      return {std::holds_alternative<ModuleText>(key.field) ? "" : about_length(value, kLongestText)};
  }
  return {};
}
