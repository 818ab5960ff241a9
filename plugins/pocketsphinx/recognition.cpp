#include "recognition.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "failure.h"

namespace quillbrook::pocketsphinx {

using namespace common;

namespace {

constexpr Milliseconds kPollInterval{20};   // between two looks at the stream file while somebody speaks
constexpr Milliseconds kQuietInterval{60};  // the same in silence
constexpr int kPieceMs = 20;                // audio between two looks at the end of speech
constexpr int kBacklogMs = 60;              // audio taken in between two ticks when the file is ahead of us
constexpr int kShortQuietMs = 150;          // ends speech, not the utterance, when the module does the endpointing
constexpr Milliseconds kSignOfLifeInterval{100};
constexpr int kLongestHeldMs = 120000;
constexpr size_t kMostChannels = 256;

// A text of the record: zero-terminated by contract, and within its buffer also when it is not.
std::string text_of(const char (&field)[QUILLBROOK_TEXT_SIZE]) {
  return {field, strnlen(field, sizeof field)};
}

const quillbrook_context &checked(const quillbrook_context &record) {
  const bool complete = record.filename != nullptr && record.format != nullptr && record.callback != nullptr;
  if (!complete) throw Failure("the record names no stream file");
  return record;
}

}  // namespace

Channel ChannelMemory::recall(const std::string &call) {
  std::lock_guard<std::mutex> guard(lock_);
  for (const Entry &entry : entries_) {
    if (entry.call == call) return entry.channel;
  }
  return {};
}

void ChannelMemory::keep(const std::string &call, const Channel &channel) {
  std::lock_guard<std::mutex> guard(lock_);
  entries_.erase(std::remove_if(entries_.begin(), entries_.end(), [&](const Entry &old) { return old.call == call; }),
                 entries_.end());
  if (entries_.size() >= kMostChannels) entries_.pop_front();
  entries_.push_back({call, channel});
}

Recognition::Recognition(Link &link, DecoderPool &pool, ChannelMemory &channels)
    : link_(link),
      pool_(pool),
      channels_(channels),
      parameters_(Parameters::parse(text_of(link.record().configuration))),
      call_(link.record().uniqueid == nullptr ? "" : link.record().uniqueid),
      stream_(checked(link.record()).filename, link.record().format),
      with_hints_(!Hints::is_empty(text_of(link.record().phrases))),
      longest_ms_(parameters_.longest_ms) {
  const quillbrook_context &record = link_.record();
  for (const std::string &complaint : parameters_.complaints) link_.complain(complaint);
  // Without endpointing of our own nothing is held back that finalize could bring out.
  link_.set_quantum(parameters_.endpointing);
  if (record.maxspeechtimeout > 0) longest_ms_ = std::min(longest_ms_, record.maxspeechtimeout);
  order_ = pool_.order(ModelFiles::find(parameters_, text_of(record.model), !with_hints_));
}

Recognition::~Recognition() {
  if (order_ != nullptr) pool_.cancel(order_);
  utterance_.reset();
  if (sound_) pool_.give_back(std::move(recogniser_));
  if (!call_.empty()) channels_.keep(call_, channel_);
}

// True once for each time that the flag goes up: behind a result it stays up, or the module lowers it for the next
// utterance.
bool Recognition::is_asked_to_finish() {
  const bool raised = link_.finalize_raised();
  const bool seen = std::exchange(finish_seen_, raised);
  return raised && !seen;
}

// False when the call ended before there was a decoder.
bool Recognition::get_ready() {
  while (!pool_.wait(order_, kPollInterval)) {
    if (link_.stopped()) return false;
    link_.tick_if_due();
  }
  DecoderPool::Ticket order = std::move(order_);
  recogniser_ = pool_.take(order);

  channel_ = call_.empty() ? Channel() : channels_.recall(call_);
  if (with_hints_) {
    hints_ = Hints::parse(text_of(link_.record().phrases), *recogniser_.dictionary);
    if (!hints_.left_out.empty()) {
      std::string words;
      for (const std::string &word : hints_.left_out) words += " '" + word + "'";
      link_.complain("not in the dictionary, left out with their phrases:" + words);
    }
    if (hints_.phrases.empty()) {
      link_.complain("no phrase is left: nothing will be understood");
      return true;
    }
    recogniser_.decoder->set_hints(hints_, *recogniser_.dictionary, parameters_.loop);
  }
  utterance_.emplace(*recogniser_.decoder, with_hints_ ? &hints_ : nullptr,
                     parameters_.endpointing ? parameters_.silence_ms : kShortQuietMs, channel_, [this] {
                       link_.tick_if_due();
                       return !link_.stopped();
                     });
  return true;
}

// Takes in what the file has, up to some tens of milliseconds of it. False when it has nothing new.
bool Recognition::hear_some() {
  samples_.clear();
  if (!stream_.ready()) return false;
  const auto rate = static_cast<size_t>(stream_.rate());
  if (stream_.read(rate * kBacklogMs / 1000, true, samples_) == 0) return false;
  if (!utterance_) return true;

  utterance_->set_sample_rate(stream_.rate());
  size_t piece = rate * kPieceMs / 1000;
  for (size_t begin = 0; begin < samples_.size(); begin += piece) {
    utterance_->feed(samples_.data() + begin, std::min(piece, samples_.size() - begin));
    if (!parameters_.endpointing || !utterance_->has_speech()) continue;
    if (!utterance_->in_speech() || utterance_->speech_ms() > longest_ms_) finish_utterance();
  }
  report_interim();
  return true;
}

// The module measures silence from the last text that was new, and a word is new only when it is nearly over: pauses
// would seem as long as the word behind them. So there are signs of life as long as speech is heard, where the module
// does the endpointing.
void Recognition::report_interim() {
  std::string text = utterance_->hypothesis();
  if (text.empty()) return;
  if (text != interim_) {
    interim_ = std::move(text);
    link_.interim(interim_);
  } else if (!parameters_.endpointing && utterance_->in_speech() && Clock::now() - new_words_ >= kSignOfLifeInterval) {
    link_.sign_of_life();
  } else {
    return;
  }
  new_words_ = Clock::now();
}

void Recognition::finish_utterance() {
  Result result = utterance_->finish();
  if (link_.stopped()) return;
  bool had_interim = !interim_.empty();
  interim_.clear();
  if (!result.text.empty() && result.confidence >= parameters_.threshold) {
    link_.piece(result.text, result.confidence);
  } else if (result.is_attempt || had_interim) {
    link_.no_match();
  }
  link_.debug("heard: ", result.text + ", confidence " + std::to_string(result.confidence));
}

// The module wants what there is. It has waited for silence already: so the result may go out at once.
void Recognition::wind_up() {
  if (utterance_ && utterance_->has_speech()) finish_utterance();
  link_.finish();
}

// Without endpointing of our own, the module closes the result when its detector or the lack of new text has shown
// silence for the complete timeout. We see what it sees. What was said until then is delivered: what follows is another
// result.
void Recognition::start_over_after_result() {
  if (interim_.empty()) return;
  const quillbrook_context &record = link_.record();
  int timeout = __atomic_load_n(&record.completetimeout, __ATOMIC_RELAXED);
  int silence = record.silence == nullptr ? 0 : __atomic_load_n(record.silence, __ATOMIC_RELAXED);
  bool delivered = timeout > 0 && (link_.last_call() - new_words_ > Milliseconds(timeout) || silence > timeout);
  if (!delivered && utterance_->speech_ms() < kLongestHeldMs) return;
  utterance_->drop_words();
  interim_.clear();
}

void Recognition::run() {
  bool ready = get_ready();
  while (ready && !link_.stopped()) {
    if (parameters_.endpointing && is_asked_to_finish() && !link_.stopped()) wind_up();
    bool heard = hear_some();
    link_.tick_if_due();
    if (!parameters_.endpointing && utterance_) start_over_after_result();
    if (!heard)
      link_.wait(-1, 0, Clock::now() + (utterance_ && utterance_->in_speech() ? kPollInterval : kQuietInterval));
  }
  sound_ = true;
  link_.end();
}

}  // namespace quillbrook::pocketsphinx
