// What a dialplan loads and asks. The first line of the input is what the caller says, each further one a command; all
// behind an empty line is the content of the files:
//
//   NAME,PATH   loads; the files are a.jsgf, a.txt, configuration_a and context_a in /etc/asterisk
//   +NAME -NAME !NAME   activates, deactivates, unloads
//   ?NAME       reads a setting

#include "fuzzed_session.h"

namespace {

class Commands : public fuzzed::Fuzzed<SessionTest> {
public:
  explicit Commands(fuzzed::Input input) {
    engine.returnnlsml = 1;
    set(engine.ws_model, "?");
    create();
    const std::string said = input.take_line();
    std::vector<std::string> commands;
    for (std::string line = input.take_line(); !line.empty(); line = input.take_line()) commands.push_back(line);
    const std::string content = input.take_rest();
    for (const char *name : {"a.jsgf", "a.txt", "configuration_a", "context_a"}) {
      stand_in::write_config(name, content);
    }
    for (const std::string &command : commands) run(command);
    check_session();
    start();
    if (context()) deliver(said.c_str(), 80);
    get();
    destroy();
  }

private:
  void run(const std::string &command) {
    const char *name = command.c_str() + 1;
    int result = 0;
    switch (command[0]) {
      case '+':
        result = quillbrook_recog_activate_grammar(&speech, name);
        break;
      case '-':
        result = quillbrook_recog_deactivate_grammar(&speech, name);
        break;
      case '!':
        result = quillbrook_recog_unload_grammar(&speech, name);
        break;
      case '?':
        setting(name);
        break;
      default:
        const size_t comma = std::min(command.find(','), command.size());
        const std::string path = comma < command.size() ? command.substr(comma + 1) : "";
        result = quillbrook_recog_load_grammar(&speech, command.substr(0, comma).c_str(), path.c_str());
    }
    fuzzed::require(result == 0, "the host hangs up");
  }

  template <size_t Size>
  static void check(const char (&text)[Size]) {
    fuzzed::require(strnlen(text, Size) < Size, "a text without its end");
  }
  void check_session() {
    const quillbrook_speech_t &found = *session();
    check(found.loggingtag);
    check(found.grammar_id);
    check(found.config_name);
    check(found.context_name);
    for (const auto field :
         {&quillbrook_speech_t::model, &quillbrook_speech_t::voice, &quillbrook_speech_t::configuration,
          &quillbrook_speech_t::language, &quillbrook_speech_t::context_text}) {
      check(found.*field);
    }
    for (const auto timeout : {&quillbrook_speech_t::completetimeout, &quillbrook_speech_t::incompletetimeout,
                               &quillbrook_speech_t::speechtimeout, &quillbrook_speech_t::extendedtimeout,
                               &quillbrook_speech_t::earlyspeechtimeout, &quillbrook_speech_t::maxspeechtimeout}) {
      fuzzed::require(found.*timeout >= -1, "a time below -1");
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Commands(fuzzed::Input(data, size)).require_success();
  return 0;
}
