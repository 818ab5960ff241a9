// A recognition without a call: a recording goes through an engine at the speed at which a caller would say it, so that
// a configuration can be tried. It is a session like any other, and counts as one.
#pragma once

#include "../host.h"

struct quillbrook_trial {
  std::string engine;     // the host engine's name
  std::string recording;  // path of a file of 8 kHz, mono, 16 bit, that ends in ".wav"
  std::string words;      // phrases, or the path of a grammar that begins with '/'; may be empty
};

// Runs it to its end on the calling thread: up to the length of the recording and kTrialTail ms of silence behind it.
// `print` gets lines as they come up, without line ends. No lock is held while it runs.
constexpr int kTrialTail = 10000;
void quillbrook_run_trial(const quillbrook_trial &trial, const std::function<void(const std::string &)> &print);
