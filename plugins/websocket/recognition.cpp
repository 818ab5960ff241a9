#include "recognition.h"

#include <algorithm>
#include <nlohmann/json.hpp>

#include "failure.h"
#include "json_text.h"
#include "network_loop.h"
#include "phrases.h"

namespace quillbrook::websocket {

namespace {

// Chunks under way without an answer. With the answers to wait for, it is what a network of some hundred milliseconds
// and a recogniser that lags behind need to catch up with the call.
constexpr size_t kWindow = 8;

// Between two looks at a stream file whose header is not written yet.
constexpr Milliseconds kHeaderLook{20};
// The least time between two looks at the audio, which comes in frames of 20 ms.
constexpr Milliseconds kLook{10};
// A chunk may be there so much earlier than reckoned: who is awake for a tick then does not wake again for it.
constexpr Milliseconds kEarlyLook{5};

// What a stopped plugin still gives the server for its last words; the caller's channel waits for it.
constexpr Milliseconds kFarewell{70};

// Servers compare this message letter by letter, so the blanks belong to it.
constexpr char kEndOfAudio[] = R"({"eof" : 1})";

}  // namespace

Recognition::Recognition(Link &link, Servers &servers)
    : link_(link),
      servers_(servers),
      urls_(usable_urls(link, kDefaultUrl, "ws", "wss")),
      settings_(parse_settings(link.record().configuration)),
      password_(settings_.read_key()),
      audio_(link.record().filename != nullptr ? link.record().filename : "",
             link.record().format != nullptr ? link.record().format : ""),
      report_(link) {
  unanswered_.reserve(kWindow);
}

void Recognition::run() {
  try {
    serve();
  } catch (const Stopped &) {  // all that a stop asks for is to return
  } catch (const Failure &) {
    report_.deliver();
    throw;
  }
}

void Recognition::serve() {
  await_header();
  for (;;) {
    const auto connection = connect();
    try {
      greet(*connection);
      converse(*connection);
    } catch (const Failure &failure) {
      servers_.failed(url_, Clock::now());
      link_.debug("", failure.what());
      if (report_.has_words()) wordless_until_ = answered();
      report_.deliver();
      const bool is_lost = dynamic_cast<const Lost *>(&failure) != nullptr;
      if (!is_lost || !link_.listening() || reconnected_) throw ServerFailure(url_ + ": " + failure.what());
      reconnected_ = true;
      audio_.seek(wordless_until_);
    }
    if (link_.stopped()) return;
    if (!link_.listening()) return stand_by();
  }
}

// To the first server that can be had, each with its share of the time. Who ends the connection in its handshake is
// tried once more, last of all: a balancer does that with the connection to a server whose loss it has not noticed yet,
// and gives the next one to another.
std::unique_ptr<Connection> Recognition::connect() {
  const auto begun = Clock::now();
  auto list = servers_.in_order(urls_, settings_.pick, begun);
  const size_t servers = list.size();
  std::string reasons;
  for (size_t i = 0; i < list.size(); ++i) {
    url_ = list[i];
    const auto now = Clock::now();
    const auto share = (begun + settings_.connect_timeout - now) / static_cast<long>(list.size() - i);
    try {
      auto connection =
          std::make_unique<Connection>(link_, parse_url(url_, "ws", "wss"), settings_, password_, now + share);
      const auto took = std::chrono::duration_cast<Milliseconds>(Clock::now() - now);
      link_.debug("connected, ms: ", std::to_string(took.count()));
      return connection;
    } catch (const Failure &failure) {
      servers_.failed(url_, Clock::now());
      reasons += (reasons.empty() ? "" : "; ") + url_ + ": " + failure.what();
      if (i < servers && dynamic_cast<const Lost *>(&failure) != nullptr) list.push_back(url_);
    }
  }
  throw ServerFailure(reasons);
}

void Recognition::await_header() {
  while (!audio_.ready()) {
    if (link_.wait(-1, 0, Clock::now() + kHeaderLook) == Link::Wait::kStopped) throw Stopped{};
  }
}

void Recognition::greet(Connection &connection) {
  const quillbrook_context &record = link_.record();
  nlohmann::json config = {{"sample_rate", audio_.rate()}, {"words", settings_.words}, {"max_alternatives", 0}};
  if (settings_.hints) {
    auto phrases = phrases_of(record.phrases);
    if (!phrases.empty() && !settings_.unknown_word.empty()) phrases.push_back(settings_.unknown_word);
    if (!phrases.empty()) config["phrase_list"] = std::move(phrases);
  }
  const nlohmann::json message = {{"config", std::move(config)}};
  connection.send_text(message.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace));
  unanswered_.clear();
  audio_due_ = {};
  report_.forget_interim();
  end_sent_ = false;
  last_result_ = false;
}

void Recognition::converse(Connection &connection) {
  while (link_.listening()) {
    if (link_.stopped() || time_to_finish()) return wind_up(connection);
    if (Clock::now() + kEarlyLook >= audio_due_) feed(connection, false);
    connection.flush();
    link_.wait_a_turn(connection.descriptor(), connection.events(), audio_due_);
    take_answers(connection);
    check_stall();
  }
  connection.close();
}

bool Recognition::time_to_finish() const {
  // After a result the module raises finalize again, out of the silence between two utterances. Only words count then.
  if (link_.finalize_raised()) return report_.has_words() || !report_.is_wound_up();
  const long most = link_.record().maxspeechtimeout;
  return most > 0 && report_.has_words() &&
         static_cast<long>((audio_.position() - speech_from_) * 1000 / audio_.rate()) > most;
}

void Recognition::wind_up(Connection &connection) {
  link_.tick();  // whether a result is out already: then there is nobody to fetch the last words for
  Moment until = Clock::now() + settings_.final_timeout;
  try {
    while (link_.listening() && !last_result_ && Clock::now() < until) {
      if (link_.stopped()) until = std::min(until, Clock::now() + kFarewell);
      if (!end_sent_ && feed(connection, true)) {
        connection.send_text(kEndOfAudio);
        end_sent_ = true;
        audio_due_ = Moment::max();
      }
      connection.flush();
      link_.wait_a_turn(connection.descriptor(), connection.events(), std::min(audio_due_, until),
                        Link::Heed::kNothing);
      take_answers(connection);
    }
    connection.close();
  } catch (const Lost &) {  // the server closes behind its last result
  }
  wordless_until_ = audio_.position();
  report_.deliver();
  report_.set_wound_up();
}

void Recognition::stand_by() {
  link_.end();
  while (link_.wait_a_turn() != Link::Wait::kStopped) continue;
}

bool Recognition::feed(Connection &connection, bool rest) {
  constexpr int kShortest = 100;
  constexpr int kLongest = 200;
  const int per_millisecond = audio_.rate() / 1000;
  const int samples =
      std::clamp(link_.record().buffer_size / 2, kShortest * per_millisecond, kLongest * per_millisecond);
  while (unanswered_.size() < kWindow) {
    chunk_.clear();
    const size_t count = audio_.read(static_cast<size_t>(samples), rest, chunk_);
    if (count == 0) {
      audio_due_ = Clock::now() + std::max(audio_.missing(), kLook);
      return true;
    }
    connection.send_binary({reinterpret_cast<const char *>(chunk_.data()), count * sizeof(int16_t)});
    unanswered_.push_back({count, Clock::now()});
  }
  audio_due_ = Moment::max();  // not before the next answer
  return false;
}

void Recognition::take_answers(Connection &connection) {
  // As with the pieces of one message: a flood of answers must not keep the audio and the stop waiting.
  constexpr int kAnswersAtOnce = 32;
  std::string message;
  for (int count = 0; count < kAnswersAtOnce && connection.receive(message); ++count) {
    last_answer_ = Clock::now();
    if (unanswered_.empty()) {
      last_result_ = end_sent_;
    } else {
      if (unanswered_.size() == kWindow) audio_due_ = {};
      unanswered_.erase(unanswered_.begin());
    }
    take_answer(message);
  }
}

void Recognition::take_answer(const std::string &message) {
  const std::string json = repaired(message);
  const Answer answer = parse_answer(json);
  const std::string words = known_words(answer.text);
  if (answer.final) {
    take_final(answer, words, json);
  } else if (!words.empty()) {
    hear();
    report_.interim(words);
  }
}

void Recognition::take_final(const Answer &answer, const std::string &words, const std::string &json) {
  wordless_until_ = answered();
  if (!words.empty()) {
    hear();
    report_.piece(words, answer.confidence, json);
    if (settings_.final_ends) report_.deliver();
  } else if (!answer.text.empty() || report_.has_interim()) {
    // Speech, but no words: what fits no phrase, or a hypothesis that the server has withdrawn.
    report_.nothing_understood(json);
  }
}

std::string Recognition::known_words(const std::string &text) const {
  std::string known;
  size_t from = text.find_first_not_of(' ');
  while (from != std::string::npos) {
    const size_t end = std::min(text.find(' ', from), text.size());
    if (text.compare(from, end - from, settings_.unknown_word) != 0) {
      if (!known.empty()) known += ' ';
      known.append(text, from, end - from);
    }
    from = text.find_first_not_of(' ', end);
  }
  return known;
}

// Words have come: first of all, the module takes back what it asked for in the silence before them.
void Recognition::hear() {
  reconnected_ = false;
  if (report_.has_words()) return;
  speech_from_ = audio_.position();
  if (report_.is_wound_up()) link_.lower_finalize();
}

void Recognition::check_stall() const {
  if (unanswered_.empty()) return;
  if (Clock::now() - std::max(last_answer_, unanswered_.front().sent) < settings_.answer_timeout) return;
  throw Failure("the server did not answer for " + std::to_string(settings_.answer_timeout.count()) + " ms");
}

size_t Recognition::answered() const {
  size_t position = audio_.position();
  for (const Chunk &chunk : unanswered_) position -= chunk.samples;
  return position;
}

}  // namespace quillbrook::websocket
