// A stand-in for the companion application: four commands of the host's command line that print one value of the call
// whose dialplan runs on the thread that executes the command.
//
//   tandrel show session threadid uniqueid   the channel's unique id
//   tandrel show session threadid remote     the caller's number
//   tandrel show session threadid tag        the channel variable QUILLBROOK_TAG
//   tandrel show session threadid param      the channel variable QUILLBROOK_PARAM
//
// Each prints the bare value with no line end, and nothing when there is no such value or the thread runs no call, as
// is the case on a console.
#include "../res_speech_quillbrook/host.h"

namespace {

// The host gives each dialplan thread a call id of its own and notes it in the channel that it runs.
class ChannelOfThisThread {
public:
  ChannelOfThisThread() : channel_(host_channel_of_call(HostCallId::of_this_thread())) {
    if (channel_) ast_channel_lock(channel_);
  }
  ~ChannelOfThisThread() {
    if (!channel_) return;
    ast_channel_unlock(channel_);
    host_channel_release(channel_);
  }
  ChannelOfThisThread(const ChannelOfThisThread &) = delete;
  ChannelOfThisThread &operator=(const ChannelOfThisThread &) = delete;

  // Locked, or null.
  [[nodiscard]] struct ast_channel *get() const { return channel_; }

private:
  struct ast_channel *channel_;
};

// The value of one command, or null. It stays valid while the channel is locked.
using ValueOf = const char *(struct ast_channel *channel);

const char *unique_id(struct ast_channel *channel) {
  return ast_channel_uniqueid(channel);
}
const char *caller_number(struct ast_channel *channel) {
  const struct ast_party_number &number = ast_channel_caller(channel)->id.number;
  return number.valid ? number.str : nullptr;
}
const char *tag(struct ast_channel *channel) {
  return pbx_builtin_getvar_helper(channel, "QUILLBROOK_TAG");
}
const char *param(struct ast_channel *channel) {
  return pbx_builtin_getvar_helper(channel, "QUILLBROOK_PARAM");
}

char *handle(struct ast_cli_entry *entry, int command, struct ast_cli_args *args, const char *words,
             ValueOf *value_of) {
  if (command == CLI_INIT) {
    entry->command = const_cast<char *>(words);
    entry->usage = "Prints a value of the call that runs on this thread, with no line end.\n";
    return nullptr;
  }
  if (command == CLI_GENERATE) return nullptr;
  if (args->argc != entry->args) return CLI_SHOWUSAGE;
  const ChannelOfThisThread channel;
  const char *value = channel.get() ? value_of(channel.get()) : nullptr;
  if (value) ast_cli(args->fd, "%s", value);
  return CLI_SUCCESS;
}

char *handle_uniqueid(struct ast_cli_entry *entry, int command, struct ast_cli_args *args) {
  return handle(entry, command, args, "tandrel show session threadid uniqueid", unique_id);
}
char *handle_remote(struct ast_cli_entry *entry, int command, struct ast_cli_args *args) {
  return handle(entry, command, args, "tandrel show session threadid remote", caller_number);
}
char *handle_tag(struct ast_cli_entry *entry, int command, struct ast_cli_args *args) {
  return handle(entry, command, args, "tandrel show session threadid tag", tag);
}
char *handle_param(struct ast_cli_entry *entry, int command, struct ast_cli_args *args) {
  return handle(entry, command, args, "tandrel show session threadid param", param);
}

struct ast_cli_entry commands[] = {
    AST_CLI_DEFINE(handle_uniqueid, "Unique id of the call on this thread"),
    AST_CLI_DEFINE(handle_remote, "Remote party of the call on this thread"),
    AST_CLI_DEFINE(handle_tag, "Tag of the call on this thread"),
    AST_CLI_DEFINE(handle_param, "Parameter of the call on this thread"),
};

enum ast_module_load_result load_module() {
  return ast_cli_register_multiple(commands, ARRAY_LEN(commands)) ? AST_MODULE_LOAD_DECLINE : AST_MODULE_LOAD_SUCCESS;
}

int unload_module() {
  return ast_cli_unregister_multiple(commands, ARRAY_LEN(commands));
}

}  // namespace

AST_MODULE_INFO(ASTERISK_GPL_KEY, AST_MODFLAG_DEFAULT, "Values of the call on this thread, for QuillBrook", load_module,
                unload_module, nullptr, AST_MODPRI_DEFAULT, AST_MODULE_SUPPORT_EXTENDED);
