#include "config_unread.h"

#include "../support/near_miss.h"
#include "config_keys.h"
#include "config_table.h"

namespace {

std::string did_you_mean(const std::string &word) {
  return word.empty() ? "" : ": did you mean " + quoted(word) + "?";
}

class Search {
public:
  Search(const ConfigFile &file, const std::vector<std::string> &profiles) : file_(file), profiles_(profiles) {}

  std::vector<ConfigFinding> run() {
    for (const ConfigBlock &block : file_.blocks) {
      if (block.is_template) {
        continue;
      }
      const bool general = equal_names(block.name, kGeneralSection);
      if (!general && !is_profile(block.name)) {
        say(block.place, "the section [" + block.name + "] is not named in profiles, and is not read" +
                             did_you_mean(near_miss(block.name, names_without_section())));
      } else if (find_block(file_, block.name) != &block) {
        say(block.place, "a section [" + block.name + "] stands above, and this one is not read");
      } else {
        look_at_keys(block, general ? ConfigSection::kGeneral : ConfigSection::kProfile);
      }
    }
    return std::move(findings_);
  }

private:
  void say(const ConfigPlace &place, const std::string &text) { findings_.push_back({place, false, text}); }

  bool is_profile(const std::string &name) const {
    return std::any_of(profiles_.begin(), profiles_.end(),
                       [&name](const std::string &profile) { return equal_names(profile, name); });
  }

  std::vector<std::string> names_without_section() const {
    std::vector<std::string> names;
    for (const std::string &name : profiles_) {
      if (!find_block(file_, name)) {
        names.push_back(name);
      }
    }
    return names;
  }

  void look_at_keys(const ConfigBlock &block, ConfigSection kind) {
    std::set<const ConfigKey *> seen;
    std::vector<std::string> here;
    for (const ConfigKey &key : config_keys()) {
      for (const char *name : key.names) {
        if (name && stands_in(key, kind)) {
          here.emplace_back(name);
        }
      }
    }
    for (const ConfigEntry &entry : block.entries) {
      const ConfigKey *key = find_key(entry.key);
      // What a template says wrongly, it says wrongly once.
      if ((!key || !stands_in(*key, kind)) && !places_.insert({entry.place.file, entry.place.line}).second) {
        continue;
      }
      if (!key) {
        say(entry.place,
            "[" + block.name + "] has no key " + quoted(entry.key) + did_you_mean(near_miss(entry.key, here)));
      } else if (!stands_in(*key, kind)) {
        say(entry.place, quoted(entry.key) + " is a key of " + (key->rules.in_general ? "[general]" : "profiles") +
                             " only, and is not read in [" + block.name + "]");
      } else if (!seen.insert(key).second) {
        say(entry.place, read_instead(block, *key, entry));
      }
    }
  }

  static bool stands_in(const ConfigKey &key, ConfigSection kind) {
    return kind == ConfigSection::kGeneral ? key.rules.in_general : key.profile_place > 0;
  }

  static const ConfigKey *find_key(const std::string &name) {
    for (const ConfigKey &key : config_keys()) {
      for (const char *other : key.names) {
        if (other && equal_names(name, other)) {
          return &key;
        }
      }
    }
    return nullptr;
  }

  static std::string read_instead(const ConfigBlock &block, const ConfigKey &key, const ConfigEntry &entry) {
    for (const char *name : key.names) {
      if (const ConfigEntry *read = name ? find_entry(block, name) : nullptr) {
        return quoted(entry.key) + " is said more than once in [" + block.name + "]: " + quoted(read->key) +
               " of line " + std::to_string(read->place.line) + " counts";
      }
    }
    return {};
  }

  const ConfigFile &file_;
  const std::vector<std::string> &profiles_;
  std::vector<ConfigFinding> findings_;
  std::set<std::pair<std::string, int>> places_;
};

}  // namespace

std::vector<ConfigFinding> find_unread(const ConfigFile &file, const std::vector<std::string> &profiles) {
  return Search(file, profiles).run();
}

std::string sentence_of(const ConfigFinding &finding) {
  const std::string line = finding.place.line > 0 ? ":" + std::to_string(finding.place.line) : "";
  return finding.place.file + line + ": " + finding.text;
}
