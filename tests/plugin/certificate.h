#pragma once

#include <cstdlib>
#include <string>

#include "plugin_driver.h"
#include "speech_server.h"

// A certificate for the name, signed by itself.
inline speech_server::Server::Certificate make_certificate(const std::string &name) {
  speech_server::Server::Certificate files = {scratch_folder() + "/" + name + ".pem",
                                              scratch_folder() + "/" + name + ".key"};
  const std::string command =
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:P-256 -nodes -days 1 -subj /CN=" + name +
      " -addext subjectAltName=DNS:" + name + " -keyout " + files.key + " -out " + files.file + " 2>" +
      scratch_folder() + "/log";
  EXPECT_EQ(system(command.c_str()), 0);
  return files;
}
