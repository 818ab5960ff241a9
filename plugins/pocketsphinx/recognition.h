// One run of quillbrook_loop: follows the stream file of one call and reports what it hears.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "decoder_pool.h"
#include "hints.h"
#include "link.h"
#include "parameters.h"
#include "stream_file.h"
#include "utterance.h"

namespace quillbrook::pocketsphinx {

// What is known of the channels of calls, from one recognition of a call to its next. Thread-safe.
class ChannelMemory {
public:
  Channel recall(const std::string &call);
  void keep(const std::string &call, const Channel &channel);

private:
  struct Entry {
    std::string call;
    Channel channel;
  };
  std::mutex lock_;  // guards entries_; innermost
  std::deque<Entry> entries_;
};

class Recognition {
public:
  // Throws std::runtime_error with a sentence for the operator.
  Recognition(common::Link &link, DecoderPool &pool, ChannelMemory &channels);
  ~Recognition();
  Recognition(const Recognition &) = delete;
  Recognition &operator=(const Recognition &) = delete;

  // Returns after plugin_stop. Throws std::runtime_error with a sentence for the operator.
  void run();

private:
  bool is_asked_to_finish();

  bool get_ready();
  bool hear_some();
  void report_interim();
  void finish_utterance();
  void wind_up();
  void start_over_after_result();

  common::Link &link_;
  DecoderPool &pool_;
  ChannelMemory &channels_;
  Parameters parameters_;
  std::string call_;
  common::StreamFile stream_;
  bool with_hints_;
  int longest_ms_;  // of speech in one utterance

  DecoderPool::Ticket order_;
  Recogniser recogniser_;
  Hints hints_;
  Channel channel_;
  std::optional<UtteranceDecoder> utterance_;  // empty when no hint can be understood

  std::vector<int16_t> samples_;
  std::string interim_;         // reported last, and not yet followed by a final
  common::Moment new_words_{};  // when, or when there was last a sign of life
  bool finish_seen_ = false;
  bool sound_ = false;  // the decoder has not thrown: another call may have it
};

}  // namespace quillbrook::pocketsphinx
