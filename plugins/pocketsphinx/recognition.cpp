#include "recognition.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <thread>

namespace quillbrook::pocketsphinx {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds kPollInterval{20};
constexpr milliseconds kTickInterval{20};
constexpr int kPieceMs = 20;    // audio between two looks at the end of speech
constexpr int kBacklogMs = 60;  // audio taken in between two ticks when the file is ahead of us
// A noise without words that is shorter than this, the quiet around it not counted, is no attempt to say something.
constexpr int kShortestAttemptMs = 500;
constexpr int kQuietKeptMs = 200;   // the detector hands over this much from before the speech
constexpr int kShortQuietMs = 150;  // ends speech, not the utterance, when the module does the endpointing
constexpr milliseconds kSignOfLifeInterval{100};
constexpr int kLongestHeldMs = 120000;
constexpr size_t kMostChannels = 256;
constexpr size_t kLongestTag = 150;
constexpr size_t kLongestSentence = 400;

// A text of the record: zero-terminated by contract, and within its buffer also when it is not.
std::string text_of(const char (&field)[QUILLBROOK_TEXT_SIZE]) {
  return {field, strnlen(field, sizeof field)};
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

Recognition::Recognition(quillbrook_context *context, DecoderPool &pool, ChannelMemory &channels)
    : context_(context),
      pool_(pool),
      channels_(channels),
      parameters_(Parameters::parse(text_of(context->configuration))),
      call_(context->uniqueid == nullptr ? "" : context->uniqueid) {
  for (const std::string &complaint : parameters_.complaints) log(complaint);
  // Without endpointing of our own nothing is held back that finalize could bring out.
  __atomic_store_n(&context_->quantum, parameters_.endpointing ? 1 : 0, __ATOMIC_RELAXED);
  if (context_->filename == nullptr || context_->format == nullptr || context_->callback == nullptr) {
    throw std::runtime_error("the record names no stream file");
  }
  stream_.emplace(context_->filename, context_->format);
  longest_ms_ = parameters_.longest_ms;
  if (context_->maxspeechtimeout > 0) longest_ms_ = std::min(longest_ms_, context_->maxspeechtimeout);
  with_hints_ = !Hints::is_empty(text_of(context_->phrases));
  order_ = pool_.order(ModelFiles::find(parameters_, text_of(context_->model), !with_hints_));
}

Recognition::~Recognition() {
  if (order_ != nullptr) pool_.cancel(order_);
  utterance_.reset();
  if (sound_) pool_.give_back(std::move(recogniser_));
  if (!call_.empty()) channels_.keep(call_, channel_);
}

// One line to the log that the engine's calls share, or to the process's error output.
void Recognition::log(const std::string &sentence) const {
  FILE *file = context_->filelog == nullptr ? stderr : context_->filelog;
  std::string line =
      "(" + text_of(context_->param).substr(0, kLongestTag) + ") " + sentence.substr(0, kLongestSentence);
  std::replace_if(
      line.begin(), line.end(), [](unsigned char byte) { return byte < ' ' || byte >= 0x7F; }, '?');
  fprintf(file, "pocketsphinx: %s\n", line.c_str());
  fflush(file);
}

bool Recognition::is_stopped() const {
  return __atomic_load_n(&context_->hangup, __ATOMIC_ACQUIRE) != 0;
}

// True once: the flag stays up.
bool Recognition::is_asked_to_finish() {
  if (finish_seen_ || __atomic_load_n(&context_->finalize, __ATOMIC_ACQUIRE) <= 0) return false;
  finish_seen_ = true;
  return true;
}

void Recognition::report(const char *text, int score) {
  reported_ = Clock::now();
  context_->callback(context_, text, score);
}

void Recognition::tick_if_due() {
  if (Clock::now() - reported_ >= kTickInterval) report(nullptr, QUILLBROOK_SCORE_INTERIM);
}

// False when the call ended before there was a decoder.
bool Recognition::get_ready() {
  while (!pool_.wait(order_, kPollInterval)) {
    if (is_stopped()) return false;
    tick_if_due();
  }
  DecoderPool::Ticket order = std::move(order_);
  recogniser_ = pool_.take(order);

  channel_ = call_.empty() ? Channel() : channels_.recall(call_);
  if (with_hints_) {
    hints_ = Hints::parse(text_of(context_->phrases), *recogniser_.dictionary);
    if (!hints_.left_out.empty()) {
      std::string words;
      for (const std::string &word : hints_.left_out) words += " '" + word + "'";
      log("not in the dictionary, left out with their phrases:" + words);
    }
    if (hints_.phrases.empty()) {
      log("no phrase is left: nothing will be understood");
      return true;
    }
    recogniser_.decoder->set_hints(hints_, *recogniser_.dictionary, parameters_.loop);
  }
  utterance_.emplace(*recogniser_.decoder, with_hints_ ? &hints_ : nullptr,
                     parameters_.endpointing ? parameters_.silence_ms : kShortQuietMs, channel_, [this] {
                       tick_if_due();
                       return !is_stopped();
                     });
  return true;
}

// Takes in what the file has, up to some tens of milliseconds of it. False when it has nothing new.
bool Recognition::hear_some() {
  samples_.clear();
  size_t most = static_cast<size_t>(std::max(stream_->sample_rate(), 8000)) * kBacklogMs / 1000;
  if (stream_->read(samples_, most) == 0) return false;
  if (!utterance_) return true;

  utterance_->set_sample_rate(stream_->sample_rate());
  size_t piece = static_cast<size_t>(stream_->sample_rate()) * kPieceMs / 1000;
  for (size_t begin = 0; begin < samples_.size(); begin += piece) {
    utterance_->feed(samples_.data() + begin, std::min(piece, samples_.size() - begin));
    if (!parameters_.endpointing || !utterance_->has_speech()) continue;
    if (!utterance_->in_speech() || utterance_->speech_ms() > longest_ms_) finish_utterance();
  }
  report_interim();
  return true;
}

void Recognition::report_interim() {
  std::string text = utterance_->hypothesis();
  if (text.empty()) return;
  bool is_new = text != interim_;
  if (!is_new && !is_sign_of_life_due()) return;
  marked_ = !is_new && !marked_;
  interim_ = std::move(text);
  new_words_ = Clock::now();
  report(marked_ ? (interim_ + " ").c_str() : interim_.c_str(), QUILLBROOK_SCORE_INTERIM);
}

// The module measures silence from the last text that was new, and a word is new only when it is nearly over: pauses
// would seem as long as the word behind them. So as long as speech is heard, and the module does the endpointing, the
// text comes again with a blank behind it, and once more without when the speech is over.
bool Recognition::is_sign_of_life_due() const {
  if (parameters_.endpointing) return false;
  if (!utterance_->in_speech()) return marked_;
  return Clock::now() - new_words_ >= kSignOfLifeInterval;
}

void Recognition::finish_utterance() {
  int attempt_ms = utterance_->speech_ms() - kQuietKeptMs - parameters_.silence_ms;
  Result result = utterance_->finish();
  if (is_stopped()) return;
  bool had_interim = !interim_.empty();
  interim_.clear();
  if (!result.text.empty() && result.confidence >= parameters_.threshold) {
    report(result.text.c_str(), result.confidence);
  } else if (!result.text.empty() || had_interim || attempt_ms >= kShortestAttemptMs) {
    report("?", QUILLBROOK_SCORE_NO_CONFIDENCE);
  }
  if (context_->debug != 0) log("'" + result.text + "' with confidence " + std::to_string(result.confidence));
}

// The module wants what there is. It has waited for silence already: so the result may go out at once.
void Recognition::wind_up() {
  if (utterance_ && utterance_->has_speech()) finish_utterance();
  report(nullptr, QUILLBROOK_SCORE_FINISH);
}

// Without endpointing of our own, the module closes the result when its detector or the lack of new text has shown
// silence for the complete timeout. We see what it sees. What was said until then is delivered: what follows is another
// result.
void Recognition::start_over_after_result() {
  if (interim_.empty()) return;
  int timeout = __atomic_load_n(&context_->completetimeout, __ATOMIC_RELAXED);
  int silence = context_->silence == nullptr ? 0 : __atomic_load_n(context_->silence, __ATOMIC_RELAXED);
  bool delivered = timeout > 0 && (reported_ - new_words_ > milliseconds(timeout) || silence > timeout);
  if (!delivered && utterance_->speech_ms() < kLongestHeldMs) return;
  utterance_->drop_words();
  interim_.clear();
}

void Recognition::run() {
  bool ready = get_ready();
  while (ready && !is_stopped()) {
    if (parameters_.endpointing && is_asked_to_finish() && !is_stopped()) wind_up();
    bool heard = hear_some();
    tick_if_due();
    if (!parameters_.endpointing && utterance_) start_over_after_result();
    if (!heard) std::this_thread::sleep_for(kPollInterval);
  }
  sound_ = true;
  report(nullptr, QUILLBROOK_SCORE_END);
}

}  // namespace quillbrook::pocketsphinx
