// Configuration, command line, HTTP, speech engines, channels, formats, silence detection, strings, and the module.
#include "state.h"

#include <list>

#undef localtime_r

// What the host keeps behind its opaque names.
struct ast_config {
  struct Section {
    std::string name;
    std::vector<ast_variable> lines;
  };
  std::list<Section> sections;
  std::list<std::string> texts;  // that the lines point at
};
struct ast_channel : stand_in::Object {
  std::string uniqueid, name;
  bool hung_up = false;
};
struct ast_format_cap : stand_in::Object {
  ast_format_cap() { ++existing; }
  ~ast_format_cap() override { --existing; }
  static inline std::atomic<int> existing{0};
};
struct ast_format {};
struct ast_dsp {
  int threshold = 256;
  int silence = 0;
};
struct ast_module {
  std::atomic<int> references{0};
};

namespace {

using namespace stand_in;

struct Exchange {
  ast_tcptls_session_instance connection{};
  Response response;
  const Variables *body = nullptr;
};
struct Answer {
  std::string text;
  int result;
};
struct Services {
  std::vector<ast_channel *> channels;
  std::vector<std::string> manager_events;
  std::map<std::string, Answer> answers;
  std::vector<ast_cli_entry *> commands;
  std::vector<ast_http_uri *> uris;
  std::vector<ast_speech_engine *> engines;
  const ast_module_info *info = nullptr;
  ast_module module;
};
Services &state() {
  static Services services;
  return services;
}

std::string trimmed(const std::string &text) {
  size_t begin = text.find_first_not_of(" \t\r");
  return begin == std::string::npos ? "" : text.substr(begin, text.find_last_not_of(" \t\r") - begin + 1);
}

ast_variable *variable_list(const Variables &variables) {
  ast_variable *list = nullptr;
  for (auto entry = variables.rbegin(); entry != variables.rend(); ++entry) {
    auto *variable = static_cast<ast_variable *>(calloc(1, sizeof(ast_variable)));
    variable->name = strdup(entry->first.c_str());
    variable->value = strdup(entry->second.c_str());
    variable->next = list;
    list = variable;
  }
  return list;
}

Exchange &exchange_of(ast_tcptls_session_instance *connection) { return *reinterpret_cast<Exchange *>(connection); }

std::vector<std::string> words_of(const std::string &line) {
  std::istringstream in(line);
  return {std::istream_iterator<std::string>(in), {}};
}

// The names of what is registered or linked.
template <typename Records, typename Name>
std::vector<std::string> names_of(const Records &records, Name name) {
  Guard guard(state_lock());
  std::vector<std::string> names;
  for (auto *record : records) names.emplace_back(name(record));
  return names;
}

}  // namespace

namespace stand_in {

void reset_services() {
  Guard guard(state_lock());
  state().manager_events.clear();
  for (ast_channel *channel : state().channels) ao2_ref(channel, -1);
  state().channels.clear();
  state().answers.clear();
}

std::string config_path(const std::string &filename) { return "/etc/asterisk/" + filename; }
void write_config(const std::string &filename, const std::string &content) {
  write_file(config_path(filename), content);
}

void add_channel(const std::string &uniqueid, bool hung_up) {
  auto *channel = new ast_channel;
  channel->uniqueid = uniqueid;
  channel->name = "Local/" + uniqueid;
  channel->hung_up = hung_up;
  Guard guard(state_lock());
  state().channels.push_back(channel);
}
std::vector<std::string> manager_events() {
  Guard guard(state_lock());
  return state().manager_events;
}

int channel_references() {
  Guard guard(state_lock());
  int references = 0;
  for (ast_channel *channel : state().channels) references += channel->references - 1;
  return references;
}

void answer_command(const std::string &command, const std::string &text, int result) {
  Guard guard(state_lock());
  state().answers[command] = {text, result};
}
std::string run_command(const std::string &line) {
  FILE *output = tmpfile();
  ast_cli_command_full(-1, -1, fileno(output), line.c_str());
  std::string text(lseek(fileno(output), 0, SEEK_END), '\0');
  text.resize(pread(fileno(output), text.data(), text.size(), 0));
  fclose(output);
  return text;
}
std::vector<std::string> command_names() {
  return names_of(state().commands, [](auto *entry) { return entry->command; });
}
std::vector<std::string> http_uris() {
  return names_of(state().uris, [](auto *uri) { return uri->uri; });
}
std::vector<std::string> engine_names() {
  return names_of(state().engines, [](auto *engine) { return engine->name; });
}

Response http_request(const std::string &uri, ast_http_method method, const Variables &query, const Variables &body) {
  Exchange exchange;
  exchange.body = &body;
  std::vector<ast_http_uri *> uris;
  {
    Guard guard(state_lock());
    uris = state().uris;
  }
  for (ast_http_uri *handler : uris) {
    if (uri != handler->uri) continue;
    ast_variable *parameters = variable_list(query);
    {
      const Inside inside;
      handler->callback(&exchange.connection, handler, "", method, parameters, nullptr);
    }
    ast_variables_destroy(parameters);
  }
  return exchange.response;
}

int load_module() {
  const Inside inside;
  return state().info->load();
}
int unload_module() {
  const Inside inside;
  return state().info->unload();
}
int reload_module() { return state().info->reload(); }
int module_references() { return state().module.references; }
ast_speech_engine *find_engine(const std::string &name) {
  Guard guard(state_lock());
  for (ast_speech_engine *engine : state().engines) {
    if (strcasecmp(name.c_str(), engine->name) == 0) return engine;
  }
  return nullptr;
}
int create_speech(ast_speech &speech, ast_speech_engine *engine) {
  speech.engine = engine;
  ao2_ref(engine->formats, 1);
  ao2_ref(engine->formats, -1);
  return engine->create(&speech, ast_format_slin);
}
ast_speech_engine foreign_engine(const char *name) {
  ast_speech_engine engine = {};
  engine.name = const_cast<char *>(name);
  engine.create = [](ast_speech *, ast_format *) { return -1; };
  engine.write = [](ast_speech *, void *, int) { return -1; };
  engine.destroy = [](ast_speech *) { return -1; };
  return engine;
}
int format_caps() { return ast_format_cap::existing; }

}  // namespace stand_in

extern "C" {

// Configuration

const char *ast_config_AST_SYSTEM_NAME = "stand-in";
const char *ast_config_AST_CONFIG_DIR = "/etc/asterisk";

// A section without its bracket makes the file malformed, and so does a key in front of the first section.
struct ast_config *ast_config_load2(const char *filename, const char *, struct ast_flags) {
  const Outside outside;
  std::ifstream file(real_path(config_path(filename)));
  if (!file) return nullptr;
  auto config = std::make_unique<ast_config>();
  const auto keep = [&config](const std::string &text) { return config->texts.emplace_back(text).c_str(); };
  int number = 0;
  for (std::string line; std::getline(file, line);) {
    ++number;
    line = trimmed(line.substr(0, line.find(';')));
    const size_t equals = line.find('='), bracket = line.find(']');
    if (line[0] == '[') {
      if (bracket == std::string::npos) return static_cast<ast_config *>(CONFIG_STATUS_FILEINVALID);
      config->sections.push_back({line.substr(1, bracket - 1), {}});
    } else if (equals != std::string::npos) {
      if (config->sections.empty()) return static_cast<ast_config *>(CONFIG_STATUS_FILEINVALID);
      ast_variable variable{};
      variable.name = keep(trimmed(line.substr(0, equals)));
      variable.value = keep(trimmed(line.substr(equals + 1)));
      variable.file = keep("");
      variable.lineno = number;
      config->sections.back().lines.push_back(variable);
    }
  }
  for (ast_config::Section &section : config->sections) {
    for (size_t next = 1; next < section.lines.size(); ++next) section.lines[next - 1].next = &section.lines[next];
  }
  return config.release();
}
void ast_config_destroy(struct ast_config *config) { delete config; }
// Sections are told apart by the address of the name that was given out.
char *ast_category_browse(struct ast_config *config, const char *previous) {
  bool found = !previous;
  for (ast_config::Section &section : config->sections) {
    if (found) return section.name.data();
    found = section.name.data() == previous;
  }
  return nullptr;
}
struct ast_variable *ast_variable_browse(const struct ast_config *config, const char *name) {
  for (const ast_config::Section &section : config->sections) {
    if (section.name.data() == name) return const_cast<ast_variable *>(section.lines.data());
  }
  return nullptr;
}
int ast_true(const char *value) {
  for (const char *word : {"yes", "true", "y", "t", "1", "on"})
    if (value && strcasecmp(value, word) == 0) return -1;
  return 0;
}
int ast_false(const char *value) {
  for (const char *word : {"no", "false", "n", "f", "0", "off"})
    if (value && strcasecmp(value, word) == 0) return -1;
  return 0;
}

// Command line

void ast_cli(int fd, const char *format, ...) {
  va_list arguments;
  va_start(arguments, format);
  vdprintf(fd, format, arguments);
  va_end(arguments);
}

int __ast_cli_register_multiple(struct ast_cli_entry *entries, int count, struct ast_module *) {
  const Outside outside;
  if (fails(Fault::kCliRegister)) return -1;
  Guard guard(state_lock());
  for (int index = 0; index < count; ++index) {
    struct ast_cli_args arguments = {-1, 0, nullptr, nullptr, nullptr, 0, 0};
    entries[index].handler(&entries[index], CLI_INIT, &arguments);
    state().commands.push_back(&entries[index]);
  }
  return 0;
}
int ast_cli_unregister_multiple(struct ast_cli_entry *entries, int count) {
  Guard guard(state_lock());
  auto &commands = state().commands;
  commands.erase(std::remove_if(commands.begin(), commands.end(),
                                [&](ast_cli_entry *entry) { return entry >= entries && entry < entries + count; }),
                 commands.end());
  return 0;
}

int ast_cli_command_full(int, int, int fd, const char *line) {
  const Outside outside;
  note(std::string("cli ") + line);
  ast_cli_entry *entry = nullptr;
  {
    Guard guard(state_lock());
    auto answer = state().answers.find(line);
    if (answer != state().answers.end()) {
      ast_cli(fd, "%s", answer->second.text.c_str());
      return answer->second.result;
    }
    for (ast_cli_entry *registered : state().commands) {
      const std::string command = std::string(registered->command) + " ";
      if ((line + std::string(" ")).rfind(command, 0) == 0) entry = registered;
    }
  }
  if (!entry) {
    ast_cli(fd, "No such command '%s' (type 'core show help %s' for other possible commands)\n", line, line);
    return 2;
  }
  const std::vector<std::string> words = words_of(line);
  std::vector<const char *> argv;
  for (const std::string &word : words) argv.push_back(word.c_str());
  argv.push_back(nullptr);
  entry->args = static_cast<int>(words_of(entry->command).size());
  struct ast_cli_args arguments = {fd, static_cast<int>(words.size()), argv.data(), nullptr, nullptr, 0, 0};
  const char *result = [&] {
    const Inside inside;
    return entry->handler(entry, CLI_HANDLER, &arguments);
  }();
  if (result == CLI_SHOWUSAGE) ast_cli(fd, "%s", entry->usage);
  return result == CLI_SUCCESS ? 0 : 2;
}

char *term_strip(char *out, const char *in, int room) {
  for (char *next = out; next < out + room; ++in) {
    if (*in == '\033') {
      in += strcspn(in, "m");
    } else {
      *next++ = *in;
    }
    if (!*in) break;
  }
  return out;
}

// HTTP

int ast_http_uri_link(struct ast_http_uri *uri) {
  const Outside outside;
  if (fails(Fault::kHttpLink)) return -1;
  Guard guard(state_lock());
  // The host's list would close into a loop.
  if (std::count(state().uris.begin(), state().uris.end(), uri)) abort();
  state().uris.push_back(uri);
  return 0;
}
void ast_http_uri_unlink(struct ast_http_uri *uri) {
  Guard guard(state_lock());
  auto &uris = state().uris;
  uris.erase(std::remove(uris.begin(), uris.end(), uri), uris.end());
}
void ast_http_send(struct ast_tcptls_session_instance *connection, enum ast_http_method, int status, const char *title,
                   struct ast_str *header, struct ast_str *body, int, unsigned int) {
  const Outside outside;
  Response &response = exchange_of(connection).response;
  response.status = status;
  response.title = title ? title : "";
  response.header = header ? ast_str_buffer(header) : "";
  response.body = body ? ast_str_buffer(body) : "";
  ast_free(header);
  ast_free(body);
}
void ast_http_error(struct ast_tcptls_session_instance *connection, int status, const char *title, const char *text) {
  const Outside outside;
  Response &response = exchange_of(connection).response;
  response.status = status;
  response.title = title;
  response.body = text;
}
void ast_http_request_close_on_completion(struct ast_tcptls_session_instance *) {}
struct ast_variable *ast_http_get_post_vars(struct ast_tcptls_session_instance *connection, struct ast_variable *) {
  errno = 0;
  return variable_list(*exchange_of(connection).body);
}
const char *ast_variable_find_in_list(const struct ast_variable *list, const char *name) {
  for (; list; list = list->next) {
    if (strcasecmp(list->name, name) == 0) return list->value;
  }
  return nullptr;
}
void ast_variables_destroy(struct ast_variable *list) {
  while (list) {
    ast_variable *next = list->next;
    free(const_cast<char *>(list->name));
    free(const_cast<char *>(list->value));
    free(list);
    list = next;
  }
}

// The manager interface

int __ast_manager_event_multichan(int, const char *event, int, struct ast_channel **, const char *, int, const char *,
                                  const char *contents, ...) {
  const Outside outside;
  char fields[8192];
  va_list arguments;
  va_start(arguments, contents);
  vsnprintf(fields, sizeof(fields), contents, arguments);
  va_end(arguments);
  Guard guard(state_lock());
  state().manager_events.push_back(std::string(event) + "\n" + fields);
  return 0;
}

// Speech

int ast_speech_register(struct ast_speech_engine *engine) {
  const Outside outside;
  note(std::string("register ") + engine->name);
  if (fails(Fault::kEngineRegister) || !engine->create || !engine->write || !engine->destroy ||
      find_engine(engine->name)) {
    return -1;
  }
  Guard guard(state_lock());
  state().engines.push_back(engine);
  return 0;
}
int ast_speech_unregister(const char *name) {
  const Outside outside;
  Guard guard(state_lock());
  auto &engines = state().engines;
  auto found = std::find(engines.begin(), engines.end(), find_engine(name));
  if (found == engines.end()) return -1;
  engines.erase(found);
  return 0;
}
int ast_speech_change_state(struct ast_speech *speech, int state_now) {
  const Outside outside;
  note("state " + std::to_string(state_now));
  __atomic_store_n(&speech->state, state_now, __ATOMIC_RELEASE);
  return 0;
}

// Formats, channels, detectors

static struct ast_format slin;
struct ast_format *ast_format_slin = &slin;

struct ast_format_cap *__ast_format_cap_alloc(enum ast_format_cap_flags, const char *, const char *, int,
                                              const char *) {
  const Outside outside;
  return fails(Fault::kFormatCap) ? nullptr : new ast_format_cap;
}
int __ast_format_cap_append(struct ast_format_cap *, struct ast_format *, unsigned int, const char *, const char *, int,
                            const char *) {
  return 0;
}

struct ast_channel *ast_channel_callback(ao2_callback_data_fn *match, void *arg, void *data, int flags) {
  Guard guard(state_lock());
  for (ast_channel *channel : state().channels) {
    if (match(channel, arg, data, flags) & CMP_MATCH) {
      ao2_ref(channel, 1);
      return channel;
    }
  }
  return nullptr;
}
// All threads and channels belong to one call.
ast_callid ast_read_threadstorage_callid(void) { return 1; }
int ast_callid_threadassoc_add(ast_callid id) {
  note("call " + std::to_string(id));
  return 0;
}
ast_callid ast_channel_callid(const struct ast_channel *) { return 1; }
struct ast_pbx *ast_channel_pbx(const struct ast_channel *) {
  static char pbx;
  return reinterpret_cast<struct ast_pbx *>(&pbx);
}
const char *ast_channel_name(const struct ast_channel *channel) { return channel->name.c_str(); }
int __ao2_lock(void *, enum ao2_lock_req, const char *, const char *, int, const char *) { return 0; }
int __ao2_unlock(void *, const char *, const char *, int, const char *) { return 0; }
const char *ast_channel_uniqueid(const struct ast_channel *channel) { return channel->uniqueid.c_str(); }
int ast_check_hangup(struct ast_channel *channel) { return channel->hung_up; }

struct ast_dsp *ast_dsp_new(void) {
  const Outside outside;
  note("ast_dsp_new");
  return fails(Fault::kDetector) ? nullptr : new ast_dsp;
}
void ast_dsp_free(struct ast_dsp *dsp) {
  const Outside outside;
  note("ast_dsp_free");
  delete dsp;
}
void ast_dsp_set_threshold(struct ast_dsp *dsp, int threshold) { dsp->threshold = threshold; }
int ast_dsp_get_threshold_from_settings(enum threshold) { return 256; }
// Silence is a frame that begins below the threshold: the frames of a test are all of one value.
int ast_dsp_silence(struct ast_dsp *dsp, struct ast_frame *frame, int *total) {
  const Outside outside;
  note("ast_dsp_silence");
  if (frame->datalen < 2) return 0;
  const bool silent = abs(*static_cast<const int16_t *>(frame->data.ptr)) < dsp->threshold;
  dsp->silence = silent ? dsp->silence + frame->samples / 8 : 0;
  __atomic_store_n(total, dsp->silence, __ATOMIC_RELEASE);
  return silent;
}

// Strings and the host's identity

// Appends without a limit, which is all that the module asks for.
int __ast_str_helper(struct ast_str **buffer, ssize_t, int, const char *format, va_list arguments, const char *, int,
                     const char *) {
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, again);
  va_end(again);
  const size_t used = (*buffer)->__AST_STR_USED, needed = used + length + 1;
  if (needed > (*buffer)->__AST_STR_LEN) {
    auto *grown = static_cast<ast_str *>(ast_realloc(*buffer, needed + sizeof(ast_str)));
    if (!grown) return AST_DYNSTR_BUILD_FAILED;
    *buffer = grown;
    grown->__AST_STR_LEN = needed;
  }
  vsnprintf((*buffer)->__AST_STR_STR + used, needed - used, format, arguments);
  (*buffer)->__AST_STR_USED = needed - 1;
  return length;
}

const char *ast_build_hostname = "builder";
const char *ast_build_machine = "x86_64";
const char *ast_build_os = "Linux";
const char *ast_build_date = "unknown";
const char *ast_build_user = "nobody";
struct ast_eid ast_eid_default = {{0x02, 0x00, 0x00, 0x00, 0x00, 0x01}};

const char *ast_get_version(void) { return "16.28.0"; }
char *ast_eid_to_str(char *text, int size, struct ast_eid *id) {
  snprintf(text, size, "%02x:%02x:%02x:%02x:%02x:%02x", id->eid[0], id->eid[1], id->eid[2], id->eid[3], id->eid[4],
           id->eid[5]);
  return text;
}
int ast_pbx_uuid_get(char *uuid, int length) {
  snprintf(uuid, length, "12345678-9abc-def0-1234-56789abcdef0");
  return 0;
}

struct ast_tm *ast_localtime(const struct timeval *when, struct ast_tm *local, const char *) {
  struct tm broken_down;
  localtime_r(&when->tv_sec, &broken_down);
  *local = {};
  memcpy(local, &broken_down, offsetof(struct ast_tm, tm_gmtoff));
  return local;
}

// The module

void ast_module_register(const struct ast_module_info *info) {
  state().info = info;
  const_cast<ast_module_info *>(info)->self = &state().module;
}
void ast_module_unregister(const struct ast_module_info *) {}
struct ast_module *__ast_module_ref(struct ast_module *module, const char *, int, const char *) {
  ++module->references;
  return module;
}
void __ast_module_unref(struct ast_module *module, const char *, int, const char *) { --module->references; }

}  // extern "C"
