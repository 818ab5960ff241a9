// quillbrook-check: says what is wrong with a configuration file before the PBX reads it. docs/configuration.md tells
// what it looks at.
#include "../host.h"

#include "../engine/config_check.h"
#include "../support/guard.h"

namespace {

constexpr int kWrongUsage = 3;
constexpr const char *kUsage =
    "usage: quillbrook-check [FILE]\n"
    "\n"
    "Reads a configuration of the speech engine as its module does and prints what is wrong with it, with the line.\n"
    "Without FILE that is quillbrook.conf in " QUILLBROOK_CONFIG_DIR
    ".\n"
    "\n"
    "Exit status: 0 when there is nothing to say; 1 when the module would load, and not do all that the file says;\n"
    "2 when the module would not load, which ends the PBX at its start.\n";

}  // namespace

int main(int count, char **arguments) {
  const bool help = count == 2 && strcmp(arguments[1], "--help") == 0;
  if (count > 2 || (count == 2 && arguments[1][0] == '-')) {
    fputs(kUsage, help ? stdout : stderr);
    return help ? 0 : kWrongUsage;
  }
  return guarded("quillbrook-check", kWrongUsage, [&] {
    const std::string path = count == 2 ? arguments[1] : configuration_in(QUILLBROOK_CONFIG_DIR);
    const std::vector<ConfigFinding> findings = check_configuration(path);
    fputs(report_of(path, findings).c_str(), stdout);
    return status_of(findings);
  });
}
