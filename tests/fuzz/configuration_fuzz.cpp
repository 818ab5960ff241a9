// The input is quillbrook.conf, as the loader and quillbrook-check read it.

#include "fuzzed_session.h"

#include "engine/config.h"
#include "engine/config_check.h"

namespace {

class Configuration : public fuzzed::Fuzzed<SessionTest> {
public:
  explicit Configuration(const std::string &text) {
    stand_in::write_config("quillbrook.conf", text);
    stand_in::add_plugin("/usr/lib/quillbrook/p.so", {{"quillbrook_init", reinterpret_cast<void *>(FakePlugin::init)},
                                                      {"quillbrook_loop", reinterpret_cast<void *>(FakePlugin::loop)},
                                                      {"quillbrook_stop", reinterpret_cast<void *>(FakePlugin::stop)},
                                                      {"quillbrook_check", reinterpret_cast<void *>(complain)}});
    const std::string path = stand_in::config_path("quillbrook.conf");
    const std::vector<ConfigFinding> findings = check_configuration(stand_in::real_path(path));
    fuzzed::require(!report_of(path, findings).empty(), "nothing to say");
    for (quillbrook_engine_t &entry : quillbrook_engine) quillbrook_engine_release_texts(entry);
    quillbrook_engine_table_init();
    quillbrook_engine_config_load();
    for (const quillbrook_engine_t &entry : quillbrook_engine) {
      fuzzed::require(strnlen(entry.name, sizeof(entry.name)) < sizeof(entry.name), "a name without its end");
    }
  }

private:
  static int complain(quillbrook_context *context) {
    memset(context->errors, 'x', sizeof(context->errors));
    return 1;
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  const std::string text(reinterpret_cast<const char *>(data), size);
  // It would empty any file.
  if (strcasestr(text.c_str(), "logfile") || text.find('\0') != std::string::npos) return 0;
  Configuration(text).require_success();
  return 0;
}
