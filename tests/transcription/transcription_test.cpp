// The plugin against servers that behave and servers that do not. Each test says in its server function what the
// server does; a Call plays the module: it owns the record and the stream file, and keeps what the plugin reports.
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <memory>

#include "certificate.h"
#include "deaf_server.h"
#include "plugin_driver.h"
#include "recordings.h"
#include "speech_server.h"

namespace {

using namespace std::chrono_literals;
using namespace speech_server;

const Samples &seven() {
  static const Samples kSeven = read_wav("/usr/share/asterisk/sounds/en/digits/7.wav");
  return kSeven;
}

// Speech that goes on for seconds.
Samples monologue() {
  Samples speech;
  for (int i = 0; i < 8; ++i) speech.insert(speech.end(), seven().begin(), seven().end());
  return speech;
}

// A call to the server at this URL.
struct Call : Recognition {
  explicit Call(const std::string &url, const std::string &configuration = "") {
    snprintf(record.profile, sizeof record.profile, "%s", url.c_str());
    snprintf(record.configuration, sizeof record.configuration, "%s", configuration.c_str());
  }
  void hear(const Samples &samples) const {
    append({reinterpret_cast<const char *>(samples.data()), samples.size() * sizeof(int16_t)});
  }
  // An utterance with its end.
  void say_seven() const { hear(in_a_row({seven()}, 800)); }
};

const Report kFinish = {"", QUILLBROOK_SCORE_FINISH};
const Report kEnd = {"", QUILLBROOK_SCORE_END};
const Report kNoWordsYet = {" ", QUILLBROOK_SCORE_NO_CONFIDENCE};
const Report kNoMatch = {"?", QUILLBROOK_SCORE_NO_CONFIDENCE};

std::string url_of(const Server &server) {
  return "http://127.0.0.1:" + std::to_string(server.port()) + "/v1/audio/transcriptions";
}

std::string json_answer(const std::string &body, const std::string &status = "200 OK", const std::string &more = "") {
  return answer(status, body, "Content-Type: application/json\r\n" + more);
}

// A server that answers each request with what the function makes of it.
using Answers = std::function<std::string(const Request &)>;
Server::Serve answering(const Answers &answers) {
  return [answers](Peer &peer) {
    Request request;
    while (peer.receive(request)) peer.raw(answers(request));
  };
}
Server::Serve always(const std::string &bytes) {
  return answering([bytes](const Request &) { return bytes; });
}

const std::string kSeven = R"({"text": "Seven.", "segments": [{"text": "Seven.", "avg_logprob": -0.2}]})";

TEST(Conversation, SendsTheUtteranceAndReportsTheWords) {
  std::string head;
  std::map<std::string, std::string> form;
  Server server(answering([&](const Request &request) {
    head = request.head;
    form = request.form();
    return json_answer(kSeven);
  }));
  const std::string key_file = scratch_folder() + "/key";
  std::ofstream(key_file) << "sk-secret\n";
  Call call(url_of(server), "model=large interim=0 field.vad_filter=true key_file=" + key_file);
  snprintf(call.record.language, sizeof call.record.language, "en-US");
  snprintf(call.record.phrases, sizeof call.record.phrases, "six,seven");
  call.start();
  call.hear(quiet(3000));
  call.say_seven();
  ASSERT_TRUE(call.wait_reports(1));
  EXPECT_EQ(server.connections(), 1) << "nothing without speech is sent";
  call.stop();
  EXPECT_EQ(call.reports(), (std::vector<Report>{{"Seven.", 82}, kFinish, kEnd}));
  EXPECT_EQ(call.reports()[0].json, kSeven);
  EXPECT_EQ(head.find("POST /v1/audio/transcriptions HTTP/1.1\r\n"), 0U) << head;
  EXPECT_NE(head.find("Authorization: Bearer sk-secret\r\n"), std::string::npos) << head;
  const std::string audio = form["file"];
  EXPECT_EQ(audio.compare(0, 4, "RIFF"), 0);
  EXPECT_EQ(audio.compare(24, 4, std::string("\x40\x1f\0\0", 4)), 0) << "the rate of the stream";
  EXPECT_GT(audio.size(), seven().size() * 2);
  form.erase("file");
  EXPECT_EQ(form, (std::map<std::string, std::string>{{"model", "large"},
                                                      {"language", "en"},
                                                      {"prompt", "six, seven"},
                                                      {"response_format", "verbose_json"},
                                                      {"vad_filter", "true"}}));
  EXPECT_NE(call.record.quantum, 0);
}

TEST(Conversation, KeepsItsConnectionForTheNextCall) {
  Server server(always(json_answer(kSeven)));
  for (int i = 0; i < 3; ++i) {
    Call call(url_of(server), "interim=0");
    call.continuous = true;
    call.start();
    for (size_t utterance = 1; utterance <= 2; ++utterance) {
      call.say_seven();
      ASSERT_TRUE(call.wait_reports(utterance)) << call.record.extra;
    }
  }
  EXPECT_EQ(server.connections(), 1);
}

TEST(Conversation, AsksForInterimsAndLetsTheFinalGoFirst) {
  std::atomic<int> held{0};
  std::atomic<bool> dropped{false};
  Server server([&](Peer &peer) {
    Request request;
    size_t longest = 0;
    while (peer.receive(request)) {
      EXPECT_GT(request.body.size(), longest) << "all of what was said, each time";
      longest = request.body.size();
      // The third question is the final's, on a connection of its own: the second one is still open.
      if (peer.number() == 1) return peer.raw(json_answer(R"({"text": "Seven seven."})"));
      if (++held == 1) {
        peer.raw(json_answer(R"({"text": "Seven"})"));
        continue;
      }
      peer.ignore();
      dropped = true;
    }
  });
  Call call(url_of(server), "interim=500 answer_timeout=60000");
  call.start();
  call.hear(monologue());
  ASSERT_TRUE(call.wait([&] { return held == 2; }));
  call.hear(quiet(1000));
  ASSERT_TRUE(call.wait_reports(2));
  EXPECT_TRUE(call.wait([&] { return dropped.load(); }));
  call.stop();
  EXPECT_EQ(call.reports(), (std::vector<Report>{{"Seven", -1}, {"Seven seven.", 75}, kFinish, kEnd}));
}

TEST(Conversation, AnInterimThatFailsIsNotTheEnd) {
  std::atomic<int> questions{0};
  Server server(answering([&](const Request &) {
    return ++questions == 1 ? json_answer(R"({"error": "busy"})", "503 Busy") : json_answer(kSeven);
  }));
  Call call(url_of(server), "interim=500");
  call.start();
  call.hear(monologue());
  ASSERT_TRUE(call.wait([&] { return questions == 1; }));
  call.hear(quiet(1000));
  ASSERT_TRUE(call.wait_reports(1));
  EXPECT_EQ(call.reports()[0], (Report{"Seven.", 82}));
}

TEST(Conversation, StreamsTheWordsOfAFinal) {
  std::atomic<bool> go_on{false};
  std::string stream;
  Server server([&](Peer &peer) {
    Request request;
    if (!peer.receive(request)) return;
    stream = request.form()["stream"];
    peer.raw(
        "HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\nConnection: close\r\n\r\n"
        "data: {\"type\": \"transcript.text.delta\", \"delta\": \"Sev\"}\n\n");
    while (!go_on) std::this_thread::sleep_for(1ms);
    peer.raw(
        "data: {\"type\": \"transcript.text.delta\", \"delta\": \"en.\"}\n\n"
        "data: {\"type\": \"transcript.text.done\", \"text\": \"7.\"}\n\ndata: [DONE]\n\n");
  });
  Call call(url_of(server), "interim=0 stream=yes");
  call.start();
  call.say_seven();
  ASSERT_TRUE(call.wait_reports(1));
  go_on = true;
  ASSERT_TRUE(call.wait_last({"7.", 75}));
  call.stop();
  EXPECT_EQ(stream, "true");
  const auto reports = call.reports();
  EXPECT_EQ(reports.front(), (Report{"Sev", -1}));
  EXPECT_EQ(*(reports.end() - 3), (Report{"7.", 75}));
}

TEST(Conversation, SpeechWithoutWordsIsNotUnderstood) {
  const auto outcome = [](const std::string &said, const Samples &speech) {
    Server server(always(json_answer(said)));
    Call call(url_of(server), "interim=0");
    call.start();
    call.hear(in_a_row({speech}, 800));
    EXPECT_TRUE(call.wait([&] { return server.connections() == 1; }));
    EXPECT_TRUE(call.wait_calls(5));
    call.stop();
    return call.reports();
  };
  const std::string invented =
      R"({"text": "Thanks for watching!", "segments": [{"text": "Thanks for watching!", "no_speech_prob": 0.9,
          "avg_logprob": -1.5}]})";
  EXPECT_EQ(outcome(invented, monologue()), (std::vector<Report>{kNoMatch, kEnd}));
  EXPECT_EQ(outcome(R"({"text": " "})", monologue()), (std::vector<Report>{kNoMatch, kEnd}));
  const Samples short_noise(seven().begin() + 1500, seven().begin() + 3000);
  EXPECT_EQ(outcome(invented, short_noise), std::vector<Report>{kEnd});
}

TEST(Conversation, TheModuleEndsAnUtteranceAndAContinuousCallGoesOn) {
  std::atomic<int> questions{0};
  Server server(answering([&](const Request &) {
    ++questions;
    return json_answer(kSeven);
  }));
  Call call(url_of(server), "interim=0 silence=10000");
  call.continuous = true;
  call.record.completetimeout = 600;
  call.start();
  for (size_t utterance = 1; utterance <= 3; ++utterance) {
    // Between utterances the module raises finalize again: that must not cut the next one off.
    if (utterance > 1) {
      call.finalize();
      EXPECT_TRUE(call.wait_calls(5));
      EXPECT_EQ(questions, static_cast<int>(utterance) - 1);
    }
    call.hear(in_a_row({seven()}, 300));
    // Behind the first words of the call, speech without words is told.
    if (utterance > 1) {
      ASSERT_TRUE(call.wait_last(kNoWordsYet));
      EXPECT_EQ(__atomic_load_n(&call.record.finalize, __ATOMIC_ACQUIRE), 0);
    }
    EXPECT_TRUE(call.wait_calls(10));  // all of it was heard
    call.finalize();
    ASSERT_TRUE(call.wait_last(kFinish));
    EXPECT_EQ(questions, static_cast<int>(utterance));
  }
  call.stop();
  std::vector<Report> words = call.reports();
  EXPECT_EQ(words[0].text, "Seven.") << "signs of life come behind words";
  words.erase(std::remove(words.begin(), words.end(), kNoWordsYet), words.end());
  EXPECT_EQ(words,
            (std::vector<Report>{{"Seven.", 82}, kFinish, {"Seven.", 82}, kFinish, {"Seven.", 82}, kFinish, kEnd}));
}

constexpr char kPatient[] = "interim=0 connect_timeout=60000 answer_timeout=60000 answer_limit=4096";
constexpr char kImpatient[] = "interim=0 connect_timeout=300 answer_timeout=300";

// Runs a call that must fail by itself, and gives what it says. The module has its turns until then.
std::string failure_of(const std::string &url, const std::string &configuration = kPatient) {
  Call call(url, configuration);
  call.say_seven();
  call.start();
  EXPECT_TRUE(call.wait_return());
  EXPECT_GE(call.calls(), call.due_calls());
  EXPECT_EQ(call.reports(), std::vector<Report>{kEnd});
  const std::string extra = call.record.extra;
  EXPECT_EQ(extra.find("ERROR: " + url.substr(0, 20)), 0U) << extra;
  return extra;
}

TEST(Refusal, IsToldInTheServersOwnWords) {
  const std::string key_file = scratch_folder() + "/key";
  std::ofstream(key_file) << "sk-secret\n";
  const std::pair<std::string, const char *> refusals[] = {
      {json_answer(R"({"error": {"message": "no such key: sk-secret"}})", "401 Unauthorized"),
       "HTTP 401: no such key: ***"},
      {json_answer(R"({"detail": "too large"})", "413 Too Large"), "HTTP 413: too large"},
      {json_answer(R"({"error": "no memory"})", "500 Error"), "HTTP 500: no memory"},
      {answer("302 Found", "", "Location: http://127.0.0.1:1/\r\n"), "HTTP 302"},
      {answer("404 Not Found", "<html>" + std::string(3000, 'x')), "HTTP 404"},
      {json_answer("{\"error\": \"" + std::string(2000, 'x') + "sk-secret\"}", "400 Bad"), "HTTP 400: xxx"},
  };
  for (const auto &[bytes, reason] : refusals) {
    Server server(always(bytes));
    const std::string told = failure_of(url_of(server), std::string(kPatient) + " key_file=" + key_file);
    EXPECT_NE(told.find(reason), std::string::npos) << told;
    EXPECT_EQ(told.find("secret"), std::string::npos) << told;
    EXPECT_LT(told.size(), 400U);
    EXPECT_EQ(server.connections(), 1);
  }
}

TEST(LostConnection, IsNotTheLastWord) {
  std::atomic<int> questions{0};
  std::atomic<int> lost{1};  // as many connections end without an answer
  Server server([&](Peer &peer) {
    Request request;
    if (peer.receive(request) && ++questions > lost) peer.raw(json_answer(kSeven));
  });
  Call call(url_of(server), "interim=0");
  call.say_seven();
  call.start();
  ASSERT_TRUE(call.wait_reports(1));
  EXPECT_EQ(call.reports()[0].text, "Seven.");
  call.stop();
  questions = 0;
  lost = 9;
  EXPECT_NE(failure_of(url_of(server), "interim=0").find("closed the connection"), std::string::npos);
  EXPECT_EQ(questions, 2);
}

TEST(Refusal, OfABusyServerIsNotTheLastWord) {
  std::atomic<int> questions{0};
  const auto busy_for = [&](int times) {
    return answering([&questions, times](const Request &) {
      return ++questions <= times ? json_answer("{}", "429 Too Many", "Retry-After: 0\r\n") : json_answer(kSeven);
    });
  };
  {
    Server server(busy_for(1));
    Call call(url_of(server), "interim=0");
    call.say_seven();
    call.start();
    ASSERT_TRUE(call.wait_reports(1));
    EXPECT_EQ(call.reports()[0].text, "Seven.");
  }
  questions = 0;
  Server server(busy_for(9));
  EXPECT_NE(failure_of(url_of(server), "interim=0").find("HTTP 429"), std::string::npos);
  EXPECT_EQ(questions, 2);
  Server patient(always(json_answer("{}", "429 Too Many", "Retry-After: 3000\r\n")));
  EXPECT_NE(failure_of(url_of(patient), "interim=0").find("HTTP 429"), std::string::npos) << "beyond the limit";
}

// Behind the first request, says this, and nothing more.
Server::Serve saying(const std::string &bytes) {
  return [bytes](Peer &peer) {
    Request request;
    if (!peer.receive(request)) return;
    peer.raw(bytes);
    peer.ignore();
  };
}

void leave(Peer &peer) {
  Request request;
  peer.receive(request);
}

TEST(FailingServer, IsReportedAndHoldsNobody) {
  const auto endless = [](const std::string &head, const std::string &piece) {
    return [head, piece](Peer &peer) {
      Request request;
      if (!peer.receive(request)) return;
      peer.raw(head);
      for (int i = 0; i < 100000; ++i) peer.raw(piece);
    };
  };
  const auto trickle = [](Peer &peer) {
    Request request;
    if (!peer.receive(request)) return;
    peer.raw("HTTP/1.1 200 OK\r\n\r\n");
    for (int i = 0; i < 1000; ++i) {
      peer.raw(" ");
      std::this_thread::sleep_for(1ms);
    }
  };
  constexpr char kLost[] = "the server closed the connection";
  constexpr char kStalled[] = "the server did not answer for 300 ms";
  constexpr char kTooMuch[] = "the server's answer has more than 4096 bytes";
  constexpr char kNoJson[] = "the server sent text that is no JSON object";
  const std::pair<Server::Serve, const char *> servers[] = {
      {leave, kLost},
      {saying(""), kStalled},
      {saying("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n{"), kStalled},
      {trickle, kStalled},
      {endless("HTTP/1.1 200 OK\r\n\r\n", std::string(1000, 'x')), kTooMuch},
      {endless("HTTP/1.1 200 OK\r\nContent-Type: text/event-stream\r\n\r\n", "data: {}\n"), kTooMuch},
      {endless("HTTP/1.1 200 OK\r\n", "X: " + std::string(1000, 'x') + "\r\n"), kTooMuch},
      {endless("", "HTTP/1.1 100 Continue\r\n\r\n"), kTooMuch},
      {always(answer("200 OK", "<html>")), kNoJson},
      {always(answer("200 OK", R"(["text"])")), kNoJson},
      {always(json_answer("{}")), "the server's answer has no text in it"},
      {always(answer("200 OK", "data: x\n", "Content-Type: text/event-stream\r\n")), kNoJson},
      {saying("nothing like HTTP\r\n\r\n"), "HTTP/0.9"},
  };
  for (const auto &server : servers) {
    SCOPED_TRACE("server " + std::to_string(&server - servers));
    Server running(server.first);
    const std::string told = failure_of(url_of(running), server.second == kStalled ? kImpatient : kPatient);
    EXPECT_NE(told.find(server.second), std::string::npos) << told;
  }
}

TEST(FailingServer, TakesNoWordsWithIt) {
  std::atomic<int> questions{0};
  Server server([&](Peer &peer) {
    Request request;
    while (peer.receive(request) && ++questions < 3) peer.raw(json_answer(kSeven));
  });
  Call call(url_of(server), "interim=0");
  call.continuous = true;
  call.start();
  for (size_t utterance = 1; utterance <= 2; ++utterance) {
    call.say_seven();
    ASSERT_TRUE(call.wait_reports(utterance));
  }
  call.say_seven();
  ASSERT_TRUE(call.wait_return());
  EXPECT_EQ(call.reports(), (std::vector<Report>{{"Seven.", 82}, {"Seven.", 82}, kFinish, kEnd}));
  EXPECT_NE(std::string(call.record.extra).find("the server closed the connection"), std::string::npos);
}

TEST(FailingConnection, IsReportedWithoutHoldingTheCall) {
  DeafServer deaf;
  const std::string url = "http://127.0.0.1:" + std::to_string(deaf.port()) + "/";
  EXPECT_EQ(failure_of(url), "ERROR: " + url + ": cannot connect: Connection refused");
  deaf.listen();
  EXPECT_EQ(failure_of(url, kImpatient), "ERROR: " + url + ": no connection in time");

  EXPECT_NE(failure_of("http://no-such.invalid/").find("invalid/: the host's name "), std::string::npos);
  EXPECT_NE(failure_of("ws://localhost:2700").find("the URL does not begin with http:// or https://"),
            std::string::npos);
  EXPECT_NE(
      failure_of("http://127.0.0.1/", "proxy=http://127.0.0.1:9").find("to the proxy http://127.0.0.1:9: Connection"),
      std::string::npos);
  EXPECT_NE(failure_of("http://127.0.0.1/", "colour=red").find("'colour=red'"), std::string::npos);
  EXPECT_NE(failure_of("http://127.0.0.1/", "key_file=/none").find("the key file /none cannot be read"),
            std::string::npos);
}

TEST(SeveralServers, StandInForEachOther) {
  plugin().close();  // and with it what was learnt about servers: one of them may have had the same port
  Server good(always(json_answer(kSeven)));
  Server broken(always(json_answer(R"({"error": "no memory"})", "500 Error")));
  const std::string nobody = "http://127.0.0.1:9/";
  const std::string urls = "htp://slip.of.the.pen/ " + nobody + " " + url_of(broken) + "  " + url_of(good);
  for (int i = 0; i < 2; ++i) {
    Call call(urls, "interim=0");
    call.say_seven();
    call.start();
    ASSERT_TRUE(call.wait_reports(1)) << call.record.extra;
    EXPECT_EQ(call.reports()[0].text, "Seven.");
  }
  EXPECT_EQ(broken.connections(), 1) << "it rests";
  // Two that are silent leave the third its time.
  Server mute(saying("")), quiet(saying(""));
  Call call(url_of(mute) + " " + url_of(quiet) + " " + url_of(good),
            "interim=0 connect_timeout=900 answer_timeout=1000");
  call.say_seven();
  call.start();
  ASSERT_TRUE(call.wait_reports(1)) << call.record.extra;
  EXPECT_EQ(call.reports()[0].text, "Seven.");
  call.stop();
  const std::string told = failure_of(url_of(broken) + " " + nobody);
  EXPECT_NE(told.find("HTTP 500: no memory; " + nobody + ": cannot connect"), std::string::npos) << told;
}

TEST(Tls, VerifiesTheServersCertificateAndName) {
  const auto mine = make_certificate("localhost");
  const auto other = make_certificate("elsewhere");
  Server server(always(json_answer(kSeven)), 0, mine);
  const auto outcome = [&](const std::string &host, const std::string &configuration) {
    Call call("https://" + host + ":" + std::to_string(server.port()) + "/", "interim=0 " + configuration);
    call.say_seven();
    call.start();
    EXPECT_TRUE(call.wait_reports(1));
    const std::string heard = call.reports().at(0).text;
    call.stop();
    return heard + call.record.extra;
  };
  const std::string refused = "the server's certificate is refused: ";
  EXPECT_EQ(outcome("localhost", "tls_ca=" + mine.file), "Seven.");
  EXPECT_NE(outcome("127.0.0.1", "tls_ca=" + mine.file).find(refused), std::string::npos);
  EXPECT_NE(outcome("localhost", "").find(refused), std::string::npos);
  EXPECT_NE(outcome("localhost", "tls_ca=" + other.file).find(refused), std::string::npos);
  EXPECT_EQ(outcome("127.0.0.1", "tls_verify=no"), "Seven.");
  EXPECT_NE(outcome("127.0.0.1", "tls_ca=/none").find("no certificates of authorities can be read from /none"),
            std::string::npos);
  plugin().close();  // also with a TLS library that has been at work
}

TEST(Stop, EndsTheLoopInEveryPhase) {
  std::atomic<int> asked{0};
  Server mute([&](Peer &peer) {
    Request request;
    if (peer.receive(request)) ++asked;
    peer.ignore();
  });
  Server busy(answering([&](const Request &) {
    ++asked;
    return json_answer("{}", "429 Too Many", "Retry-After: 30\r\n");
  }));
  Server deaf([](Peer &peer) { peer.ignore(); });
  const auto stop_in = [&](const std::string &url, const Samples &audio, int questions, const char *configuration) {
    asked = 0;
    Call call(url, std::string("connect_timeout=60000 answer_timeout=60000 ") + configuration);
    call.hear(audio);
    call.start();
    EXPECT_TRUE(call.wait([&] { return asked == questions; }));
    EXPECT_TRUE(call.wait_calls(5));
    call.stop();
    call.stop();
    EXPECT_STREQ(call.record.extra, "");
    EXPECT_EQ(call.reports(), std::vector<Report>{kEnd});
  };
  const Samples utterance = in_a_row({seven()}, 800);
  stop_in(url_of(mute), quiet(500), 0, "");                              // before anybody speaks
  stop_in(url_of(mute), monologue(), 0, "interim=0");                    // in mid-speech
  stop_in(url_of(mute), monologue(), 1, "interim=500");                  // with an interim under way
  stop_in(url_of(mute), utterance, 1, "interim=0");                      // with a final under way
  stop_in(url_of(busy), utterance, 1, "interim=0");                      // before it is asked again
  stop_in("https" + url_of(deaf).substr(4), utterance, 0, "interim=0");  // in the TLS handshake
}

TEST(ManyCalls, RunBesideEachOther) {
  constexpr int kCalls = 30;
  Server server(always(json_answer(kSeven)));
  std::vector<std::unique_ptr<Call>> calls;
  for (int i = 0; i < kCalls; ++i) {
    // By name, so that the look-ups run beside each other too.
    const std::string url = "http://localhost:" + std::to_string(server.port()) + "/";
    calls.push_back(std::make_unique<Call>(url, "interim=500 connect_timeout=60000 answer_timeout=60000"));
    calls.back()->start();
  }
  for (const auto &call : calls) call->say_seven();
  for (const auto &call : calls) EXPECT_TRUE(call->wait_reports(1)) << call->record.extra;
  for (const auto &call : calls) call->stop();
  for (const auto &call : calls) EXPECT_EQ(call->reports()[0].text, "Seven.");
}

}  // namespace
