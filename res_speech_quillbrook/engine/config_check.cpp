#include "config_check.h"

#include "../support/bounded_text.h"
#include "../support/near_miss.h"
#include "config_conflicts.h"
#include "config_table.h"
#include "config_unread.h"
#include "config_values.h"
#include "plugin_library.h"

namespace {

std::string stripped(const std::string &text) {
  const size_t begin = text.find_first_not_of(" \t");
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t") - begin + 1);
}

// The record as the plugin would get it from a session that sets nothing itself.
void fill_record(quillbrook_context &context, const quillbrook_engine_t &engine) {
  copy_text(context.configuration, engine.ws_configuration);
  copy_text(context.model, engine.ws_model);
  copy_text(context.language, engine.ws_language);
  copy_text(context.voice, engine.ws_voice);
  copy_text(context.profile, engine.ws_url);
  copy_text(context.context, engine.ws_context);
  copy_text(context.extra, engine.ws_extra);
  copy_text(context.phrases, engine.ws_phrases);
  context.format = engine.ws_format;
  context.buffer_size = engine.ws_buffer_size;
  context.speedvsaccuracy = engine.speedvsaccuracy;
  context.completetimeout = engine.completetimeout;
  context.incompletetimeout = engine.incompletetimeout;
  context.maxspeechtimeout = engine.maxspeechtimeout;
  context.thread = static_cast<pthread_t>(-1);
}

// The key that a plugin's sentence is about: it may stand in front of a colon.
const char *key_of(const std::string &sentence) {
  for (const char *key : {"phrases", "model", "language", "url", "context", "extra", "format"}) {
    if (sentence.compare(0, strlen(key), key) == 0 && sentence[strlen(key)] == ':') {
      return key;
    }
  }
  return "configuration";
}

class Check {
public:
  explicit Check(const std::string &path) : file_(read_config_file(path, findings_)) {
    whole_.file = path.substr(path.rfind('/') + 1);
  }

  std::vector<ConfigFinding> run() {
    if (findings_.empty() || !is_refused()) {
      look_at_values();
      fill_config_table(file_, table_, ConfigReading::kTry);
      names_ = profile_names(table_.profiles);
      look_at_names();
      for (ConfigFinding &finding : find_unread(file_, names_)) {
        findings_.push_back(std::move(finding));
      }
      look_at_engines();
    }
    const auto key = [](const ConfigFinding &finding) { return std::tie(finding.place.file, finding.place.line); };
    std::stable_sort(findings_.begin(), findings_.end(),
                     [key](const ConfigFinding &one, const ConfigFinding &other) { return key(one) < key(other); });
    return std::move(findings_);
  }

private:
  bool is_refused() const { return status_of(findings_) == 2; }

  void say(const ConfigPlace &place, bool fatal, const std::string &text) {
    const bool said = std::any_of(findings_.begin(), findings_.end(), [&](const ConfigFinding &other) {
      return other.place.file == place.file && other.place.line == place.line && other.text == text;
    });
    if (!said) {
      findings_.push_back({place, fatal, text});
    }
  }

  void look_at_values() {
    for (const ConfigBlock &block : file_.blocks) {
      const bool general = equal_names(block.name, kGeneralSection);
      for (const ConfigKey &key : config_keys()) {
        if (general ? !key.rules.in_general : !key.profile_place) {
          continue;
        }
        if (const ConfigEntry *entry = entry_of(block, key)) {
          const auto kind = general ? ConfigSection::kGeneral : ConfigSection::kProfile;
          const ConfigComplaint complaint = complaint_about(key, kind, entry->value);
          if (!complaint.text.empty()) {
            say(entry->place, complaint.fatal, entry->key + ": " + complaint.text);
          }
        }
      }
    }
  }

  static const ConfigEntry *entry_of(const ConfigBlock &block, const ConfigKey &key) {
    for (const char *name : key.names) {
      if (const ConfigEntry *entry = name ? find_entry(block, name) : nullptr) {
        return entry;
      }
    }
    return nullptr;
  }

  // The line of a key in the section of an engine, else in [general], else the section.
  ConfigPlace place_of(const std::string &section, const char *key) const {
    for (const std::string &name : {section, std::string(kGeneralSection)}) {
      const ConfigBlock *block = find_block(file_, name);
      if (const ConfigEntry *entry = block ? find_entry(*block, key) : nullptr) {
        return entry->place;
      }
    }
    const ConfigBlock *block = find_block(file_, section);
    return block ? block->place : whole_;
  }

  void look_at_names() {
    const ConfigPlace place = place_of_list();
    std::vector<std::string> seen;
    for (size_t index = 0; index < names_.size() && index + 1 < kEngines; ++index) {
      const std::string &name = names_[index];
      const bool taken =
          std::any_of(seen.begin(), seen.end(), [&name](const std::string &other) { return equal_names(name, other); });
      if (const std::string fault = fault_of(name); !fault.empty()) {
        const bool last = index + 1 == names_.size();
        say(place, false, fault + (last ? "" : ", and no profile behind it is offered"));
        break;
      }
      if (taken) {
        say(place, true, quoted(name) + " stands in the list twice: the PBX refuses a second engine of one name");
      }
      seen.push_back(name);
    }
    if (names_.size() >= kEngines) {
      say(place, false, "only the first " + std::to_string(kEngines - 1) + " profiles are read");
    }
  }

  ConfigPlace place_of_list() const {
    for (const char *name : {"profiles", "modules", "plugins"}) {
      const ConfigBlock *general = find_block(file_, kGeneralSection);
      if (const ConfigEntry *entry = general ? find_entry(*general, name) : nullptr) {
        return entry->place;
      }
    }
    return whole_;
  }

  // Why a name of the list gives no engine. Empty when it does.
  std::string fault_of(const std::string &name) const {
    if (equal_names(name, kGeneralSection)) {
      return "the list names " + quoted(name) + ", which is no profile";
    }
    if (name.size() > kProfileNameMax) {
      return "the name " + quoted(name) + " is longer than " + std::to_string(kProfileNameMax) + " bytes";
    }
    if (has_profile_section(file_, name)) {
      return "";
    }
    std::string fault = "the profile " + quoted(name) + " has no section";
    if (has_profile_section(file_, stripped(name))) {
      return fault + " (the blank belongs to the name)";
    }
    std::vector<std::string> unnamed;
    for (const ConfigBlock &block : file_.blocks) {
      if (!block.is_template && std::find(names_.begin(), names_.end(), block.name) == names_.end()) {
        unnamed.push_back(block.name);
      }
    }
    const std::string meant = near_miss(name, unnamed);
    if (!meant.empty()) {
      fault += " (did you mean " + quoted(meant) + "?)";
    }
    return fault;
  }

  void look_at_engines() {
    const char *default_plugin = table_.engines[0].plugin_name;
    if (!default_plugin || default_plugin[0]) {
      look_at_engine(table_.engines[0], kGeneralSection);
    }
    for (int index = 1; index < kEngines && table_.engines[index].name[0]; ++index) {
      look_at_engine(table_.engines[index], table_.engines[index].name);
    }
  }

  void look_at_engine(quillbrook_engine_t &engine, const std::string &section) {
    for (const ConfigConflict &conflict : conflicts_of(engine)) {
      say(place_of(section, conflict.key), false, "[" + section + "] " + conflict.text);
    }
    look_at_plugin(engine, section);
  }

  void look_at_plugin(quillbrook_engine_t &engine, const std::string &section) {
    const std::string failure = quillbrook_plugin_try(engine);
    if (!failure.empty()) {
      say(place_of(section, "plugin"), true, failure.substr(0, failure.find_last_not_of(".\n") + 1));
      return;
    }
    if (engine.ws_extra && strncmp(engine.ws_extra, "ERROR:", 6) == 0) {
      say(place_of(section, "extra"), false, "extra: a text that begins with \"ERROR:\" makes every recognition fail");
    }
    if (void *function = dlsym(engine.plugin_handle, "quillbrook_check")) {
      ask(reinterpret_cast<quillbrook_function_check *>(function), engine, section);
    }
    quillbrook_plugin_close(engine);
  }

  // What the plugin says stands in `errors`, a sentence on each line.
  void ask(quillbrook_function_check *check, const quillbrook_engine_t &engine, const std::string &section) {
    const auto context = std::make_unique<quillbrook_context>();
    fill_record(*context, engine);
    if (check(context.get()) == 0) {
      return;
    }
    context->errors[sizeof(context->errors) - 1] = '\0';
    std::istringstream sentences(context->errors);
    for (std::string sentence; std::getline(sentences, sentence);) {
      say(place_of(section, key_of(sentence)), false,
          std::string("the plugin of [").append(section).append("]: ").append(sentence));
    }
  }

  std::vector<ConfigFinding> findings_;
  ConfigFile file_;
  ConfigPlace whole_;
  ConfigTable table_;
  std::vector<std::string> names_;
};

}  // namespace

std::vector<ConfigFinding> check_configuration(const std::string &path) {
  return Check(path).run();
}

std::string configuration_in(const std::string &folder) {
  const std::string usual = folder + "/quillbrook.conf";
  const std::string other = folder + "/res-speech-quillbrook.conf";
  struct stat status;
  return stat(usual.c_str(), &status) != 0 && stat(other.c_str(), &status) == 0 ? other : usual;
}

int status_of(const std::vector<ConfigFinding> &findings) {
  int status = 0;
  for (const ConfigFinding &finding : findings) {
    status = std::max(status, finding.fatal ? 2 : 1);
  }
  return status;
}

std::string report_of(const std::string &path, const std::vector<ConfigFinding> &findings) {
  std::string report;
  for (const ConfigFinding &finding : findings) {
    report += (finding.fatal ? "error   " : "warning ") + sentence_of(finding) + "\n";
  }
  const int status = status_of(findings);
  return report + path + ": " +
         (status == 0   ? "nothing to say"
          : status == 1 ? "the module loads, and does not do all that the file says"
                        : "the module does not load with this file") +
         "\n";
}
