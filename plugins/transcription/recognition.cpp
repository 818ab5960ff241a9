#include "recognition.h"

#include <algorithm>
#include <climits>

#include "failure.h"
#include "json_text.h"
#include "network_loop.h"
#include "url.h"
#include "wav.h"

namespace quillbrook::transcription {

using namespace common;

namespace {

constexpr Milliseconds kHeaderLook{20};  // between two looks at a stream file without its header
constexpr Milliseconds kLook{30};        // between two looks at the stream file while somebody speaks
constexpr Milliseconds kQuietLook{60};   // the same in silence
constexpr int kPieceMs = 100;            // audio between two looks at everything else
constexpr Milliseconds kSignOfLifeInterval{100};
constexpr int kModelRate = 16000;
// A noise without words that is shorter than this is no attempt to say something.
constexpr int kShortestAttemptMs = 500;

int longest_of(const Settings &settings, const quillbrook_context &record) {
  const int most = record.maxspeechtimeout;
  return most > 0 ? std::min(settings.longest_ms, most) : settings.longest_ms;
}

}  // namespace

Recognition::Recognition(Link &link, Shared &shared)
    : link_(link),
      settings_(parse_settings(link.record().configuration)),
      urls_(usable_urls(link, kDefaultUrl, "http", "https")),
      key_(settings_.read_key()),
      access_{link, shared, settings_, urls_, key_},
      fields_(request_fields(settings_, link.record())),
      audio_(link.record().filename != nullptr ? link.record().filename : "",
             link.record().format != nullptr ? link.record().format : ""),
      report_(link) {}

void Recognition::run() {
  try {
    await_header();
    ear_.emplace(audio_.rate(), settings_.strictness, settings_.floor,
                 Ear::Limits{settings_.silence_ms, longest_of(settings_, link_.record())});
    listen();
  } catch (const Stopped &) {  // all that a stop asks for is to return
  } catch (const Failure &) {
    report_.deliver();
    throw;
  }
  report_.deliver();
}

void Recognition::await_header() {
  while (!audio_.ready()) {
    if (link_.wait(-1, 0, Clock::now() + kHeaderLook) == Link::Wait::kStopped) throw Stopped{};
  }
}

void Recognition::listen() {
  while (!link_.stopped()) {
    if (!link_.listening()) return stand_by();
    link_.tick_if_due();
    const bool all_heard = hear();
    if (link_.stopped()) return;
    heed_finalize();
    drive_inquiry();
    ask();
    if (closing_ && !final_is_due()) conclude();
    show_life_if_due();
    if (all_heard) pause();
  }
}

// True when the file has no more for now.
bool Recognition::hear() {
  samples_.clear();
  const auto most = static_cast<size_t>(audio_.rate() * kPieceMs / 1000);
  const size_t count = audio_.read(most, true, samples_);
  const bool before = ear_->in_utterance();
  while (ear_->feed(samples_)) {
    end_utterance(ear_->take());
    samples_.clear();
  }
  if (!before && ear_->in_utterance()) begin_utterance();
  return count < most;
}

void Recognition::begin_utterance() {
  next_interim_ms_ = settings_.interim_ms;
  // After a result the module raises finalize again, out of the silence between two utterances.
  if (report_.is_wound_up() && !closing_) link_.lower_finalize();
  show_life(Clock::now());
}

void Recognition::end_utterance(Utterance utterance) {
  next_interim_ms_ = settings_.interim_ms;
  if (!waiting_) {
    waiting_ = std::move(utterance);
    return;
  }
  waiting_->samples.insert(waiting_->samples.end(), utterance.samples.begin(), utterance.samples.end());
  waiting_->speech_ms += utterance.speech_ms;
}

void Recognition::heed_finalize() {
  if (closing_ || !link_.finalize_raised()) return;
  const bool nothing_said = !report_.has_words() && !final_is_due() && !ear_->in_utterance();
  if (report_.is_wound_up() && nothing_said) return;
  closing_ = true;
  if (ear_->in_utterance()) end_utterance(ear_->cut_off());
}

void Recognition::drive_inquiry() {
  if (!inquiry_) return;
  const bool is_final = inquiry_->kind() == Inquiry::Kind::kFinal;
  try {
    const bool over = inquiry_->step();
    if (is_final) take_progress();
    if (!over) return;
    is_final ? take_final() : take_interim();
  } catch (const Failure &failure) {
    if (is_final) throw;
    // The final has the last word about the servers.
    link_.debug("interim: ", failure.what());
    next_interim_ms_ = INT_MAX;
  }
  inquiry_.reset();
}

void Recognition::ask() {
  const bool final_under_way = inquiry_ && inquiry_->kind() == Inquiry::Kind::kFinal;
  const int target_rate = settings_.upsample ? kModelRate : 0;
  if (waiting_ && !final_under_way) {
    events_ = {};
    asked_speech_ms_ = waiting_->speech_ms;
    std::string audio = to_wav(waiting_->samples, audio_.rate(), target_rate);
    waiting_.reset();
    inquiry_.emplace(access_, Inquiry::Kind::kFinal, fields_, std::move(audio));  // an interim's gives way
  } else if (!inquiry_ && settings_.interim_ms > 0 && ear_->hears_speech() && ear_->length_ms() >= next_interim_ms_) {
    next_interim_ms_ = ear_->length_ms() + settings_.interim_ms;
    try {
      inquiry_.emplace(access_, Inquiry::Kind::kInterim, fields_,
                       to_wav(ear_->utterance().samples, audio_.rate(), target_rate));
    } catch (const Failure &failure) {
      link_.debug("interim: ", failure.what());
      next_interim_ms_ = INT_MAX;
    }
  }
}

// Words of a final that is still being made.
void Recognition::take_progress() {
  if (inquiry_->is_event_stream() && events_.read(inquiry_->answer())) tell_interim(cleaned(events_.text()));
}

void Recognition::take_interim() {
  tell_interim(parse_transcript(repaired(inquiry_->answer()), settings_.silence_limits).text);
}

void Recognition::take_final() {
  std::string json;
  Transcript transcript;
  try {
    const bool in_events = inquiry_->is_event_stream();
    if (in_events) events_.finish(inquiry_->answer());
    json = in_events ? events_.whole() : repaired(inquiry_->answer());
    transcript = parse_transcript(json, settings_.silence_limits);
  } catch (const Failure &failure) {
    throw ServerFailure(inquiry_->server() + ": " + failure.what());
  }
  if (!transcript.text.empty()) {
    report_.piece(transcript.text, transcript.confidence, json);
  } else if (asked_speech_ms_ >= kShortestAttemptMs || report_.has_interim()) {
    report_.nothing_understood(json);
  }
  last_life_ = Clock::now();
}

void Recognition::tell_interim(const std::string &words) {
  if (report_.interim(words)) last_life_ = Clock::now();
}

// An utterance has ended whose words are not there yet.
bool Recognition::final_is_due() const {
  return waiting_ || (inquiry_ && inquiry_->kind() == Inquiry::Kind::kFinal);
}

void Recognition::conclude() {
  closing_ = false;
  link_.tick();  // whether a result is out already
  if (link_.listening()) report_.deliver();
  report_.set_wound_up();
}

void Recognition::show_life_if_due() {
  const bool owing = closing_ && final_is_due();
  const auto now = Clock::now();
  if ((ear_->hears_speech() || owing) && now - last_life_ >= kSignOfLifeInterval) show_life(now);
}

void Recognition::show_life(Moment now) {
  const quillbrook_context &record = link_.record();
  const bool has_timers = __atomic_load_n(&record.completetimeout, __ATOMIC_RELAXED) != 0 ||
                          __atomic_load_n(&record.incompletetimeout, __ATOMIC_RELAXED) != 0;
  last_life_ = now;
  if (report_.has_begun() && has_timers) link_.sign_of_life();
}

void Recognition::pause() {
  const auto look = Clock::now() + (ear_->in_utterance() ? kLook : kQuietLook);
  if (!inquiry_) {
    link_.wait(-1, 0, look);
    return;
  }
  std::vector<pollfd> &sockets = inquiry_->sockets();
  link_.wait(sockets.data(), sockets.size(), std::min(look, inquiry_->due()));
}

void Recognition::stand_by() {
  inquiry_.reset();
  link_.end();
  while (link_.wait_a_turn() != Link::Wait::kStopped) continue;
}

}  // namespace quillbrook::transcription
