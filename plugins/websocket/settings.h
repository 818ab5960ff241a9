// What the operator set: the plugin's parameters.
#pragma once

#include <string>
#include <vector>

#include "quillbrook.h"
#include "server_settings.h"

namespace quillbrook::websocket {

// The server's usual address, for an engine with no url.
constexpr char kDefaultUrl[] = "ws://localhost:2700";

struct Settings : common::ServerSettings {
  bool words = true;                   // ask for figures for each word, of which the confidence is made
  bool hints = true;                   // send the phrases to expect
  std::string unknown_word = "[unk]";  // the server's word for speech that fits no phrase; empty: it has none
  bool final_ends = false;             // a final of the server ends the recognition, and not only a piece of it
  std::chrono::milliseconds final_timeout{1000};  // longest wait for the last result
};

// Parameters "key=value" separated by commas or blanks. Throws Failure naming the one that it does not understand.
Settings parse_settings(const std::string &configuration);

// A sentence for each parameter that it does not understand, for a file that cannot be used, and for what is no URL.
std::vector<std::string> complaints_about(const quillbrook_context &record);

}  // namespace quillbrook::websocket
