// Log lines, verbose output and notes.
#include "state.h"

namespace {

struct Log {
  std::vector<stand_in::Line> lines;
  std::vector<stand_in::Line> verbose;
  std::vector<std::string> notes;
  std::multimap<std::string, std::function<void()>> planned;
};
Log &state() {
  static Log log;
  return log;
}

std::string formatted(const char *format, va_list arguments) {
  char *text = nullptr;
  std::string copy(vasprintf(&text, format, arguments) < 0 ? "(no memory)" : text);
  free(text);
  return copy;
}

void write_line(std::vector<stand_in::Line> Log::*list, int level, const char *format, va_list arguments) {
  const stand_in::Outside outside;
  {
    stand_in::Guard guard(stand_in::state_lock());
    (state().*list).push_back({level, formatted(format, arguments)});
  }
  stand_in::reached(format);
}

template <typename Value>
std::vector<Value> copy_of(std::vector<Value> Log::*list) {
  stand_in::Guard guard(stand_in::state_lock());
  return state().*list;
}

}  // namespace

namespace stand_in {

void reset_log() {
  Guard guard(state_lock());
  state() = {};
}

std::vector<Line> log_lines() { return copy_of(&Log::lines); }
std::vector<Line> verbose_lines() { return copy_of(&Log::verbose); }
std::vector<std::string> notes() { return copy_of(&Log::notes); }

int logged(int level, const std::string &text) {
  int count = 0;
  for (const Line &line : log_lines()) count += line.level == level && line.text == text;
  return count;
}
int mentioned(const std::string &part) {
  int count = 0;
  for (const auto list : {&Log::lines, &Log::verbose}) {
    for (const Line &line : copy_of(list)) count += line.text.find(part) != std::string::npos;
  }
  return count;
}

void note(const std::string &call) {
  const Outside outside;
  {
    Guard guard(state_lock());
    state().notes.push_back(call);
  }
  reached(call);
}
int noted(const std::string &call) {
  const std::vector<std::string> all = notes();
  return std::count(all.begin(), all.end(), call);
}

void during(const std::string &call, std::function<void()> action) {
  Guard guard(state_lock());
  state().planned.emplace(call, std::move(action));
}
void reached(const std::string &call) {
  std::function<void()> action;
  {
    Guard guard(state_lock());
    const auto found = state().planned.find(call);
    if (found == state().planned.end()) return;
    action = std::move(found->second);
    state().planned.erase(found);
  }
  action();
}

}  // namespace stand_in

extern "C" {

int ast_verb_sys_level = 0;
int option_debug = 0;
struct ast_flags ast_options = {0};

// Built apart, outside the header's format attribute: the format comes from the module.
void ast_log(int level, const char *, int, const char *, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  write_line(&Log::lines, level, format, arguments);
  va_end(arguments);
}
void __ast_verbose(const char *, int, const char *, int level, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  write_line(&Log::verbose, level, format, arguments);
  va_end(arguments);
}
unsigned int ast_debug_get_by_module(const char *) { return 0; }

}  // extern "C"
