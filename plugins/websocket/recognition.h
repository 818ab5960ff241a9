// One recognition: audio out of the stream file to the server, words from the server to the module.
//
// The server is asked in utterances. An utterance ends for the plugin when the module raises finalize (or the speech
// grows too long): what audio there is goes out, an end mark behind it, and with the server's last result the module
// is told to finish. A module that goes on listening after its result (a continuous one) gets the next utterance over
// a new connection; else the plugin only ticks until it is stopped.
//
// A connection that is lost before the first word of an utterance is made once more, to the next server where there are
// several, and the audio that brought no words yet is sent again. Words that were heard are finished at once, in every
// kind of failure.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "answer.h"
#include "connection.h"
#include "link.h"
#include "report.h"
#include "servers.h"
#include "settings.h"
#include "stream_file.h"

namespace quillbrook::websocket {

class Recognition {
public:
  // Throws Failure when the record's settings or file cannot be used. The arguments outlive this object.
  Recognition(Link &link, Servers &servers);

  // Returns when the plugin is stopped. Throws Failure when the recognition cannot go on; words that were heard have
  // then been finished.
  void run();

private:
  struct Chunk {
    size_t samples;
    Moment sent;
  };

  void serve();
  std::unique_ptr<Connection> connect();
  void await_header();
  void greet(Connection &connection);
  void converse(Connection &connection);
  void wind_up(Connection &connection);
  void stand_by();
  bool feed(Connection &connection, bool rest);
  void take_answers(Connection &connection);
  void take_answer(const std::string &message);
  void take_final(const Answer &answer, const std::string &words, const std::string &json);
  std::string known_words(const std::string &text) const;
  void hear();
  void check_stall() const;
  bool time_to_finish() const;
  size_t answered() const;

  Link &link_;
  Servers &servers_;
  const std::vector<std::string> urls_;
  const Settings settings_;
  const std::string password_;
  std::string url_;  // of the server that is connected
  StreamFile audio_;
  Moment audio_due_;  // when there is likely another chunk
  Report report_;
  std::vector<Chunk> unanswered_;  // chunks that an answer is due for, oldest first
  Moment last_answer_;
  size_t wordless_until_ = 0;  // up to this sample there is nothing that has to be sent again
  size_t speech_from_ = 0;     // the sample that had been sent when the first word came
  bool reconnected_ = false;   // since the last word
  bool end_sent_ = false;      // the server knows that no more audio comes
  bool last_result_ = false;   // and has answered that
  std::vector<int16_t> chunk_;
};

}  // namespace quillbrook::websocket
