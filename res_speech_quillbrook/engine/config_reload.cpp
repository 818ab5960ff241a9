#include "config_reload.h"

#include "../ops/http_metrics.h"
#include "../record/session_list.h"
#include "../support/module_use.h"
#include "config.h"
#include "config_check.h"
#include "engine_plugin.h"
#include "engine_tables.h"
#include "speech_engines.h"

namespace {

using Print = std::function<void(const std::string &)>;

std::mutex turn;

// The unload gives way to who is inside.
class Inside {
public:
  Inside() { quillbrook_module_enter(); }
  ~Inside() { quillbrook_module_leave(); }
  Inside(const Inside &) = delete;
  Inside &operator=(const Inside &) = delete;
};

constexpr char kUnchanged[] = "Nothing was changed";

// Calls `visit(engine)` for the engines that a table offers.
template <typename Visit>
void for_each_offered(const EngineTable &engines, Visit &&visit) {
  if (quillbrook_engine_wanted(engines[0])) {
    visit(engines[0]);
  }
  quillbrook_for_each_profile(engines, visit);
}

std::set<std::string> names_of(const EngineTable &engines) {
  std::set<std::string> names;
  for_each_offered(engines, [&names](const quillbrook_engine_t &engine) {
    char name[kEngineNameSize];
    quillbrook_engine_host_name(engine, name, sizeof(name));
    names.insert(name);
  });
  return names;
}

std::string listed(const std::set<std::string> &names, const std::set<std::string> &without) {
  std::string list;
  for (const std::string &name : names) {
    if (!without.count(name)) {
      list += " " + name;
    }
  }
  return list;
}

// Whether the file may be used, after saying what is wrong with it.
bool passes_check(bool anyway, const Print &print) {
  const std::string path = configuration_in(ast_config_AST_CONFIG_DIR);
  const std::vector<ConfigFinding> findings = check_configuration(path);
  const int status = status_of(findings);
  if (status == 0) {
    return true;
  }
  std::istringstream report(report_of(path, findings));
  for (std::string line; std::getline(report, line);) {
    print(line);
  }
  if (status == 1 && !anyway) {
    print(std::string(kUnchanged) + ". 'quillbrook reload anyway' takes the file as it is.");
  } else if (status > 1) {
    print(std::string(kUnchanged) + ".");
  }
  return status == 1 && anyway;
}

bool open_plugins(const EngineTable &engines) {
  bool opened = true;
  for_each_offered(engines,
                   [&opened](quillbrook_engine_t &engine) { opened = opened && quillbrook_plugin_open(engine); });
  return opened;
}

bool offers(const EngineTable &engines, const char *name) {
  bool found = false;
  for_each_offered(engines, [&](const quillbrook_engine_t &engine) {
    char other[kEngineNameSize];
    quillbrook_engine_host_name(engine, other, sizeof(other));
    found = found || strcmp(name, other) == 0;
  });
  return found;
}

// The host has the engines of a table, and no others of ours, unless it refuses one. Engines that are gone leave first:
// a name may come back in other letters. Who has found one of those by then meets the former table, or no engine of
// that name any more.
bool give_to_host(const EngineTable &engines) {
  quillbrook_withdraw_engines([&engines](const char *name) { return !offers(engines, name); });
  bool registered = true;
  for_each_offered(engines, [&registered](const quillbrook_engine_t &engine) {
    registered = registered && (quillbrook_engine_is_registered(engine) || quillbrook_register_engine(engine));
  });
  return registered;
}

// The host gets back what it had when its new engines come to nothing, for want of memory too.
class HostExchange {
public:
  HostExchange() : former_(quillbrook_engines()) {}
  ~HostExchange() {
    if (!final_) {
      give_to_host(former_);
    }
  }
  HostExchange(const HostExchange &) = delete;
  HostExchange &operator=(const HostExchange &) = delete;

  bool give(const EngineTable &engines) { return final_ = give_to_host(engines); }

private:
  EngineTable former_;
  bool final_ = false;
};

int sessions_of(const EngineTable &engines) {
  int count = 0;
  quillbrook_sessions_look([&](const quillbrook_speech_t &session) { count += session.engines == engines ? 1 : 0; });
  return count;
}

void tell(const EngineTable &former, const EngineTable &engines, const Print &print) {
  const std::set<std::string> before = names_of(former);
  const std::set<std::string> names = names_of(engines);
  const std::string added = listed(names, before);
  const std::string removed = listed(before, names);
  const int sessions = sessions_of(former);
  print("The configuration was read: " + std::to_string(names.size()) + (names.size() == 1 ? " engine" : " engines"));
  if (!added.empty()) {
    print("Added:" + added);
  }
  if (!removed.empty()) {
    print("Removed:" + removed);
  }
  if (sessions > 0) {
    print(std::to_string(sessions) + (sessions == 1 ? " session keeps" : " sessions keep") +
          " the settings that it began with");
  }
}

void reload(bool anyway, const Print &print) {
  if (!passes_check(anyway, print)) {
    ast_log(
        LOG_WARNING,
        "The configuration was not read again: 'quillbrook check configuration' says what is wrong with the file\n");
    return;
  }
  const auto give_up = [&print] { print(std::string(kUnchanged) + ": see the log."); };
  ConfigTable read;
  if (!quillbrook_config_read_again(read)) {
    return give_up();
  }
  const EngineTable engines = quillbrook_own_engines(new quillbrook_engine_t[kEngines]());
  quillbrook_config_move_engines(read, engines.get());
  if (!open_plugins(engines)) {
    return give_up();
  }
  if (!HostExchange().give(engines)) {
    return give_up();
  }
  const EngineTable former = quillbrook_engines_exchange(engines);
  quillbrook_config_apply(read);
  quillbrook_config_record_date();
  quillbrook_http_update();
  tell(former, engines, print);
}

}  // namespace

ReloadTurn::ReloadTurn() : taken_(turn.try_lock()) {}

ReloadTurn::~ReloadTurn() {
  if (taken_) {
    turn.unlock();
  }
}

void quillbrook_reload_configuration(bool anyway, const std::function<void(const std::string &)> &print) {
  const Inside inside;
  const ReloadTurn mine;
  if (!mine.taken() || !quillbrook_module_is_open()) {
    print(std::string(kUnchanged) + ": the module is busy with another reload, or with its end.");
    return;
  }
  reload(anyway, print);
}
