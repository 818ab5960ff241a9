#include "property.h"
#include "../support/printable.h"

namespace {

// A value as it was given, and as a timeout.
struct PropertyValue {
  const char *text;
  int timeout;  // milliseconds, or -1
};

// Single precision decides what "1.001s" is, because the fraction is cut off.
int milliseconds(double number, float factor) {
  const float product = static_cast<float>(number) * factor;
  constexpr float kTooLarge = 2147483648.0F;
  return product < kTooLarge ? static_cast<int>(product) : INT_MAX;
}

// The unit is the first small s with the m in front of it, if there is one.
int read_timeout(const char *text) {
  char value[1000];
  copy_text(value, text);
  const char *unit = strchr(value, 's');
  if (value[0] < '0' || value[0] > '9' || !unit) {
    return -1;
  }
  return milliseconds(atof(value), unit[-1] == 'm' ? 1.0F : 1000.0F);
}

PropertyOutcome store_speed(quillbrook_speech_t &session, const PropertyValue &value) {
  char *end = nullptr;
  session.speedvsaccuracy = static_cast<float>(strtod(value.text, &end));
  return end == value.text ? PropertyOutcome::kNoNumber : PropertyOutcome::kSet;
}

// A running recognition reads some of the timeouts.
template <int quillbrook_speech_t::*Field>
PropertyOutcome store_timeout(quillbrook_speech_t &session, const PropertyValue &value) {
  shared_store(session.*Field, value.timeout);
  return value.timeout < 0 ? PropertyOutcome::kNoTime : PropertyOutcome::kSet;
}

PropertyOutcome store_grammar_timeouts(quillbrook_speech_t &session, const PropertyValue &value) {
  if (!ast_true(value.text) && !ast_false(value.text)) {
    return PropertyOutcome::kNoSwitch;
  }
  shared_store(session.grammartimeouts, ast_true(value.text) ? 1 : 0);
  return PropertyOutcome::kSet;
}

PropertyOutcome store_tag(quillbrook_speech_t &session, const PropertyValue &value) {
  copy_text(session.loggingtag, value.text);
  return PropertyOutcome::kSet;
}

// A model that begins with a question mark is a template, which the dialplan completes.
template <size_t Size>
PropertyOutcome store_for_open_model(quillbrook_speech_t &session, char (&field)[Size], const PropertyValue &value) {
  if (session.model[0] != '?') {
    return PropertyOutcome::kModelFixed;
  }
  copy_text(field, value.text);
  return PropertyOutcome::kSet;
}

PropertyOutcome store_language(quillbrook_speech_t &session, const PropertyValue &value) {
  const PropertyOutcome outcome = store_for_open_model(session, session.model, value);
  debug_log("Model set :%s\n", Printable(session.model).text());
  return outcome;
}

PropertyOutcome store_voice(quillbrook_speech_t &session, const PropertyValue &value) {
  const PropertyOutcome outcome = store_for_open_model(session, session.voice, value);
  debug_log("Use voice :%s\n", Printable(session.voice).text());
  return outcome;
}

struct Property {
  const char *name;
  PropertyOutcome (*store)(quillbrook_speech_t &session, const PropertyValue &value);
};

constexpr Property kProperties[] = {
    {"Speed-vs-Accuracy", store_speed},
    {"Max-Speech-Timeout", store_timeout<&quillbrook_speech_t::maxspeechtimeout>},
    {"Recognition-Timeout", store_timeout<&quillbrook_speech_t::maxspeechtimeout>},
    {"Min-Speech-Timeout", store_timeout<&quillbrook_speech_t::minspeechtimeout>},
    {"Speech-Complete-Timeout", store_timeout<&quillbrook_speech_t::completetimeout>},
    {"Speech-Incomplete-Timeout", store_timeout<&quillbrook_speech_t::incompletetimeout>},
    {"Match-Timeout", store_timeout<&quillbrook_speech_t::matchtimeout>},
    {"Grammar-Timeouts", store_grammar_timeouts},
    {"Speech-Timeout", store_timeout<&quillbrook_speech_t::speechtimeout>},
    {"Extended-Timeout", store_timeout<&quillbrook_speech_t::extendedtimeout>},
    {"Early-Timeout", store_timeout<&quillbrook_speech_t::earlyspeechtimeout>},
    {"Logging-Tag", store_tag},
    {"Speech-Language", store_language},
    {"Speech-Voice", store_voice},
};

struct BuiltinForm {
  const char *prefix;
  bool whole_path;  // the value is the path itself, not what is behind the prefix
  char (quillbrook_speech_t::*field)[QUILLBROOK_TEXT_SIZE];
  const char *log_line;
};

constexpr BuiltinForm kBuiltinForms[] = {
    {"builtin:grammar/model=", false, &quillbrook_speech_t::model, "Model set :%s\n"},
    {"builtin:grammar/configuration=", false, &quillbrook_speech_t::configuration, "Configuration set :%s\n"},
    {"builtin:grammar/text=", false, &quillbrook_speech_t::model, "Model set :%s\n"},
    {"builtin:grammar/transcribe?lang=", false, &quillbrook_speech_t::model, "Model set :  %s\n"},
    {"builtin:speec", true, &quillbrook_speech_t::model, "Model set : %s\n"},
};

}  // namespace

bool quillbrook_begins_with(const char *text, const char *prefix) {
  return strncmp(text, prefix, strlen(prefix)) == 0;
}

PropertyOutcome quillbrook_set_property(quillbrook_speech_t &session, const char *text, const char *value) {
  for (const Property &row : kProperties) {
    if (quillbrook_begins_with(text, row.name)) {
      debug_log("Property set :%s.\n", Printable(value).text());
      return row.store(session, {value, read_timeout(value)});
    }
  }
  return PropertyOutcome::kUnknown;
}

std::vector<std::string> quillbrook_property_names() {
  std::vector<std::string> names;
  for (const Property &row : kProperties) {
    names.emplace_back(row.name);
  }
  return names;
}

bool quillbrook_set_builtin(quillbrook_speech_t &session, const char *path) {
  for (const BuiltinForm &form : kBuiltinForms) {
    if (quillbrook_begins_with(path, form.prefix)) {
      copy_text(session.*form.field, form.whole_path ? path : path + strlen(form.prefix));
      debug_log(form.log_line, Printable(session.*form.field).text());
      return true;
    }
  }
  return false;
}
