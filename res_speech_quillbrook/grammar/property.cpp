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

void store_speed(quillbrook_speech_t &session, const PropertyValue &value) {
  session.speedvsaccuracy = static_cast<float>(atof(value.text));
}

// A running recognition reads some of the timeouts.
template <int quillbrook_speech_t::*Field>
void store_timeout(quillbrook_speech_t &session, const PropertyValue &value) {
  shared_store(session.*Field, value.timeout);
}

void store_tag(quillbrook_speech_t &session, const PropertyValue &value) {
  copy_text(session.loggingtag, value.text);
}

// A model that begins with a question mark is a template, which the dialplan completes.
bool model_is_open(const quillbrook_speech_t &session) {
  return session.model[0] == '?';
}

void store_language(quillbrook_speech_t &session, const PropertyValue &value) {
  if (model_is_open(session)) {
    copy_text(session.model, value.text);
  }
  debug_log("Model set :%s\n", Printable(session.model).text());
}

void store_voice(quillbrook_speech_t &session, const PropertyValue &value) {
  if (model_is_open(session)) {
    copy_text(session.voice, value.text);
  }
  debug_log("Use voice :%s\n", Printable(session.voice).text());
}

struct Property {
  const char *name;
  void (*store)(quillbrook_speech_t &session, const PropertyValue &value);
};

constexpr Property kProperties[] = {
    {"Speed-vs-Accuracy", store_speed},
    {"Max-Speech-Timeout", store_timeout<&quillbrook_speech_t::maxspeechtimeout>},
    {"Recognition-Timeout", store_timeout<&quillbrook_speech_t::maxspeechtimeout>},
    {"Min-Speech-Timeout", store_timeout<&quillbrook_speech_t::minspeechtimeout>},
    {"Speech-Complete-Timeout", store_timeout<&quillbrook_speech_t::completetimeout>},
    {"Speech-Incomplete-Timeout", store_timeout<&quillbrook_speech_t::incompletetimeout>},
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

bool quillbrook_set_property(quillbrook_speech_t &session, const char *text, const char *value) {
  for (const Property &row : kProperties) {
    if (quillbrook_begins_with(text, row.name)) {
      debug_log("Property set :%s.\n", Printable(value).text());
      row.store(session, {value, read_timeout(value)});
      return true;
    }
  }
  return false;
}

void quillbrook_set_builtin(quillbrook_speech_t &session, const char *path) {
  for (const BuiltinForm &form : kBuiltinForms) {
    if (quillbrook_begins_with(path, form.prefix)) {
      copy_text(session.*form.field, form.whole_path ? path : path + strlen(form.prefix));
      debug_log(form.log_line, Printable(session.*form.field).text());
    }
  }
}
