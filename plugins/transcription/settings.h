// What the operator set, and what of it goes to the server.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "quillbrook.h"
#include "server_settings.h"
#include "transcript.h"

namespace quillbrook::transcription {

// For an engine with no url.
constexpr char kDefaultUrl[] = "http://localhost:8000/v1/audio/transcriptions";

// Fields of a form, by name, in the order in which they are sent.
using Fields = std::vector<std::pair<std::string, std::string>>;

struct Settings : common::ServerSettings {
  std::string proxy;           // URL of an HTTP proxy; empty: none
  int answer_limit = 1 << 20;  // bytes of an answer

  std::string model;     // empty: the record's
  std::string language;  // empty: the record's
  std::string prompt;
  std::string temperature;
  std::string format = "verbose_json";
  bool stream = false;    // ask for the words of a final while they are made
  bool hints = true;      // the phrases to expect go into the prompt
  bool hotwords = false;  // and into a field of their own
  bool upsample = false;  // to 16 kHz
  Fields fields;          // further ones

  int strictness = 2;            // of the voice detector
  int floor = 40;                // mean magnitude below which nothing is speech
  int silence_ms = 500;          // quiet that ends an utterance
  int longest_ms = 30000;        // length that ends it
  int interim_ms = 1000;         // between two questions while it goes on; 0: none
  SilenceLimits silence_limits;  // of an answer whose words are invented

  Settings() { answer_timeout = std::chrono::seconds(10); }
};

// Throws Failure naming the parameter that it does not understand.
Settings parse_settings(const std::string &configuration);

// A sentence for each parameter that it does not understand, for a file that cannot be used, and for what is no URL.
std::vector<std::string> complaints_about(const quillbrook_context &record);

// The fields of each request for this recognition, but for the audio.
Fields request_fields(const Settings &settings, const quillbrook_context &record);

}  // namespace quillbrook::transcription
