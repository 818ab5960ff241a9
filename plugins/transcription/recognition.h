// One recognition: hears utterances in the stream file, asks the servers about each, and tells the module the words.
//
// At most one question is under way. While an utterance goes on, what was said so far is asked about now and then, for
// interims. When it has ended that question is dropped and the whole utterance is asked about; its words are a final
// piece. Utterances that end meanwhile wait, as one, so that words come in order.
//
// An utterance also ends when the module raises finalize; behind its words the module is then told to finish. A module
// that goes on listening after its result (a continuous one) gets the next utterance; else the plugin only ticks until
// it is stopped.
//
// The module measures silence from the last words. So behind the first ones there are signs of life while the caller
// speaks, and while the servers owe the words that the module has asked for.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "ear.h"
#include "event_reader.h"
#include "inquiry.h"
#include "link.h"
#include "report.h"
#include "settings.h"
#include "stream_file.h"

namespace quillbrook::transcription {

class Recognition {
public:
  // Throws Failure when the record's settings or file cannot be used.
  Recognition(common::Link &link, Shared &shared);

  // Returns when the plugin is stopped. Throws Failure when the recognition cannot go on; words that were heard have
  // then been finished.
  void run();

private:
  void await_header();
  void listen();
  bool hear();
  void begin_utterance();
  void end_utterance(Utterance utterance);
  void heed_finalize();
  void drive_inquiry();
  void ask();
  void take_progress();
  void take_interim();
  void take_final();
  void tell_interim(const std::string &words);
  void conclude();
  void show_life_if_due();
  void show_life(common::Moment now);
  void pause();
  void stand_by();
  bool final_is_due() const;

  common::Link &link_;
  const Settings settings_;
  const std::vector<std::string> urls_;
  const std::string key_;
  const Access access_;
  const Fields fields_;
  common::StreamFile audio_;
  common::Report report_;
  std::optional<Ear> ear_;
  std::vector<int16_t> samples_;

  std::optional<Inquiry> inquiry_;
  EventReader events_;                // of the final that is under way
  std::optional<Utterance> waiting_;  // ended and not asked about yet
  int asked_speech_ms_ = 0;           // of the utterance that is asked about as a whole
  int next_interim_ms_ = 0;           // length of the utterance at which it is asked about
  bool closing_ = false;              // the module waits for the words up to now
  common::Moment last_life_;
};

}  // namespace quillbrook::transcription
