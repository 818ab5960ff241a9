#include "cli_version.h"

#include "../support/bounded_text.h"

namespace {

// The quotes and blanks belong to the text.
constexpr char kVersion[] = R"("1" "." "0")";
constexpr char kBuild[] = "Unknown";
constexpr char kRevision[] = "$Revision: 1.73 $";
constexpr char kSourceDate[] = __TIMESTAMP__;

constexpr size_t kOsReleaseLineSize = 512;

}  // namespace

void quillbrook_read_os_release(FILE *file, char *buf, size_t size) {
  constexpr std::string_view kEy = "PRETTY_NAME=";
  char line[kOsReleaseLineSize];
  while (fgets(line, sizeof(line), file)) {
    std::string_view value = line;
    if (value.substr(0, kEy.size()) != kEy) {
      continue;
    }
    value.remove_prefix(kEy.size());
    while (!value.empty() && (value.back() == '\r' || value.back() == '\n')) {
      value.remove_suffix(1);
    }
    if (value.size() > 1 && value.front() == '"' && value.back() == '"') {
      value.remove_prefix(1);
      value.remove_suffix(1);
    }
    // It ends within the line.
    line[static_cast<size_t>(value.data() - line) + value.size()] = '\0';
    copy_text(buf, size, value.data());
    return;
  }
}

void quillbrook_get_os_release(char *buf, size_t size) {
  copy_text(buf, size, "Unknown");
  if (FILE *file = fopen("/etc/os-release", "re")) {
    quillbrook_read_os_release(file, buf, size);
    fclose(file);
  }
}

void quillbrook_cli_show_version(int fd) {
  utsname system;
  const bool system_known = uname(&system) == 0;
  char os_release[kOsReleaseLineSize];
  quillbrook_get_os_release(os_release, sizeof(os_release));
  char uuid[100] = "?";
  ast_pbx_uuid_get(uuid, sizeof(uuid));

  ast_cli(fd, "Version       : %s\n", kVersion);
  ast_cli(fd, " Build        : %s\n", kBuild);
  ast_cli(fd, " CVS Revision : %s\n", kRevision);
  ast_cli(fd, " Source file  : %s\n", kSourceDate);
  ast_cli(fd, " Compilation  : %s\n", __DATE__);
  ast_cli(fd, "              : %s\n", __TIME__);
  ast_cli(fd, "Build with\n");
  ast_cli(fd, " Gcc          : V%d.%d\n", __GNUC__, __GNUC_MINOR__);
  ast_cli(fd, " Arch         : %u bits\n", static_cast<unsigned int>(sizeof(void *) * CHAR_BIT));
  ast_cli(fd, " Target       : %s\n", system_known ? system.machine : "Unknown");
  ast_cli(fd, "              : by %s@%s\n", ast_build_user, ast_build_hostname);
  ast_cli(fd, "              : on %s/%s %s\n", ast_build_machine, ast_build_os, ast_build_date);
  ast_cli(fd, " Options sum  : %s\n", AST_BUILDOPT_SUM);
  ast_cli(fd, "Running on\n");
  ast_cli(fd, " Linux        : %s\n", os_release);
  ast_cli(fd, " Asterisk     : V%s\n", ast_get_version());
  ast_cli(fd, " UUID         : %s\n", uuid);
  ast_cli(fd, " System name  : %s\n", ast_config_AST_SYSTEM_NAME);
}
