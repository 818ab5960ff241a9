// Log lines, verbose output and notes.
#include "state.h"

namespace {

struct Log {
  std::vector<stand_in::Line> lines;
  std::vector<stand_in::Line> verbose;
  std::vector<std::string> notes;
};
Log &state() {
  static Log log;
  return log;
}

std::string formatted(const char *format, va_list arguments) {
  va_list again;
  va_copy(again, arguments);
  std::string text(vsnprintf(nullptr, 0, format, again), '\0');
  va_end(again);
  vsnprintf(text.data(), text.size() + 1, format, arguments);
  return text;
}

}  // namespace

namespace stand_in {

void reset_log() {
  Guard guard(state_lock());
  state() = {};
}

std::vector<Line> log_lines() {
  Guard guard(state_lock());
  return state().lines;
}
std::vector<Line> verbose_lines() {
  Guard guard(state_lock());
  return state().verbose;
}

int logged(int level, const std::string &text) {
  Guard guard(state_lock());
  return std::count_if(state().lines.begin(), state().lines.end(),
                       [&](const Line &line) { return line.level == level && line.text == text; });
}

int mentioned(const std::string &part) {
  Guard guard(state_lock());
  auto matches = [&](const Line &line) { return line.text.find(part) != std::string::npos; };
  return std::count_if(state().lines.begin(), state().lines.end(), matches) +
         std::count_if(state().verbose.begin(), state().verbose.end(), matches);
}

void note(const std::string &call) {
  Guard guard(state_lock());
  state().notes.push_back(call);
}
std::vector<std::string> notes() {
  Guard guard(state_lock());
  return state().notes;
}
int noted(const std::string &call) {
  Guard guard(state_lock());
  return std::count(state().notes.begin(), state().notes.end(), call);
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
  std::string text = formatted(format, arguments);
  va_end(arguments);
  if (getenv("STAND_IN_LOG")) {
    fprintf(stderr, "[%d] %s", level, text.c_str());
  }
  stand_in::Guard guard(stand_in::state_lock());
  state().lines.push_back({level, std::move(text)});
}

void __ast_verbose(const char *, int, const char *, int level, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::string text = formatted(format, arguments);
  va_end(arguments);
  stand_in::Guard guard(stand_in::state_lock());
  state().verbose.push_back({level, std::move(text)});
}

unsigned int ast_debug_get_by_module(const char *) {
  return 0;
}

}  // extern "C"
