// The plugin against servers that behave and servers that do not. Each test says in its server function what the
// server does; a Call plays the module: it owns the record and the stream file, and keeps what the plugin reports.
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>

#include "answer.h"
#include "failure.h"
#include "json_text.h"
#include "certificate.h"
#include "deaf_server.h"
#include "plugin_driver.h"
#include "settings.h"
#include "speech_server.h"

namespace {

using namespace std::chrono_literals;
using quillbrook::common::Failure;
using namespace speech_server;

size_t entries(const char *folder) {
  return static_cast<size_t>(std::distance(std::filesystem::directory_iterator(folder), {}));
}

// A call to the server at this URL.
struct Call : Recognition {
  explicit Call(const std::string &url, const std::string &configuration = "", const std::string &format = "wav")
      : Recognition(format) {
    snprintf(record.profile, sizeof record.profile, "%s", url.c_str());
    snprintf(record.configuration, sizeof record.configuration, "%s", configuration.c_str());
  }
  void speak(int milliseconds) const { append(tone(milliseconds)); }
};

const Report kFinish = {"", QUILLBROOK_SCORE_FINISH};
const Report kEnd = {"", QUILLBROOK_SCORE_END};

std::string url_of(const Server &server) {
  return "ws://127.0.0.1:" + std::to_string(server.port());
}

// A server that hears "yes" in any audio, and is sure of it at its end.
void recognise(Peer &peer) {
  Message message;
  if (!peer.accept()) return;
  bool heard = false;
  while (peer.receive(message)) {
    if (message.is_end_of_audio()) {
      return peer.say(heard ? R"({"text": "yes", "result": [{"conf": 0.9}, {"conf": 0.61}]})" : R"({"text": ""})");
    }
    if (message.opcode != kBinary) continue;
    peer.say(R"({"partial": "ye"})");
    heard = true;
  }
}

// Up to the first chunk of audio.
void greet(Peer &peer) {
  Message message;
  if (!peer.accept()) return;
  while (peer.receive(message) && message.opcode != kBinary) continue;
}

TEST(Conversation, SendsTheAudioAndReportsTheWords) {
  std::string config;
  std::string audio;
  size_t shortest = 1 << 20;
  size_t longest = 0;
  Server server([&](Peer &peer) {
    Message message;
    ASSERT_TRUE(peer.accept(frame(kPing, "early")));
    while (peer.receive(message) && !message.is_end_of_audio()) {
      if (message.opcode == kText) {
        config = message.payload;
        continue;
      }
      audio += message.payload;
      if (audio.size() < 16000) shortest = std::min(shortest, message.payload.size());
      longest = std::max(longest, message.payload.size());
      // One message in three frames, with a ping between them.
      peer.raw(frame(kText, R"({"partial": )", false) + frame(kPing, "still there?") + frame(kContinuation, "", false) +
               frame(kContinuation, audio.size() < 4000 ? "\"\"}" : "\"one\"}"));
    }
    peer.say(R"({"text": "one two", "result": [{"conf": 0.9}, {"conf": 0.8}]})");
    EXPECT_EQ(peer.pongs().find("earlystill there?"), 0U) << peer.pongs();
  });
  Call call(url_of(server));
  snprintf(call.record.phrases, sizeof call.record.phrases, "one , two words,,\"quoted\\\"");
  // 1,010 ms and half a sample, in pieces that fit nothing.
  call.start();
  std::string spoken;
  for (int i = 0; i < 16161; ++i) spoken += static_cast<char>(i * 7);
  for (size_t from = 0; from < spoken.size(); from += 2300) call.append(spoken.substr(from, 2300));
  ASSERT_TRUE(call.wait_reports(1));
  call.finalize();
  ASSERT_TRUE(call.wait_reports(4));
  call.stop();
  EXPECT_EQ(config, R"({"config":{"max_alternatives":0,"phrase_list":["one","two words","\"quoted\\\"","[unk]"],)"
                    R"("sample_rate":8000,"words":true}})");
  EXPECT_EQ(audio, spoken.substr(0, 16160));
  EXPECT_GE(shortest, 1600U);
  EXPECT_LE(longest, 3200U);
  EXPECT_EQ(call.reports(), (std::vector<Report>{{"one", -1}, {"one two", 85}, kFinish, kEnd}));
  EXPECT_EQ(call.reports()[1].json, R"({"text": "one two", "result": [{"conf": 0.9}, {"conf": 0.8}]})");
  EXPECT_EQ(call.reports()[0].json, "");
  EXPECT_STREQ(call.record.extra, "");
  EXPECT_NE(call.record.quantum, 0);
}

TEST(Conversation, AContinuousCallGoesOnOverANewConnection) {
  Server server(recognise);
  Call call(url_of(server));
  call.continuous = true;
  call.start();
  for (size_t utterance = 1; utterance <= 3; ++utterance) {
    // Between utterances the module raises finalize again: that must not cut the next one off.
    if (utterance > 1) {
      call.finalize();
      EXPECT_TRUE(call.wait_calls(5));
    }
    call.speak(500);
    ASSERT_TRUE(call.wait_reports(3 * utterance - 2));
    EXPECT_EQ(__atomic_load_n(&call.record.finalize, __ATOMIC_ACQUIRE), 0);
    call.finalize();
    ASSERT_TRUE(call.wait_reports(3 * utterance));
    EXPECT_EQ(call.reports().back(), kFinish);
  }
  call.stop();
  EXPECT_LE(server.connections(), 4);
  EXPECT_EQ(call.reports().size(), 10U);
  EXPECT_EQ(call.reports().back(), kEnd);
}

TEST(Conversation, TheServerMayEndTheRecognition) {
  std::string head;
  Server server([&](Peer &peer) {
    Request request;
    ASSERT_TRUE(peer.receive(request));
    head = request.head;
    peer.upgrade(request);
    Message message;
    while (peer.receive(message)) {
      if (message.opcode == kBinary) peer.say(R"({"text": "one"})");
    }
  });
  std::ofstream(scratch_folder() + "/key") << "sk-secret\n";
  for (const bool continuous : {false, true}) {
    Call call(url_of(server), "final=utterance key_file=" + scratch_folder() + "/key");
    call.continuous = continuous;
    call.start();
    for (size_t utterance = 1; utterance <= (continuous ? 2 : 1); ++utterance) {
      call.speak(200);
      ASSERT_TRUE(call.wait_reports(2 * utterance));
    }
    EXPECT_EQ(call.reports()[0], (Report{"one", 75}));
    EXPECT_EQ(call.reports()[1], kFinish);
    call.stop();
  }
  EXPECT_EQ(server.connections(), 2) << "one for each call";
  EXPECT_NE(head.find("\r\nAuthorization: Bearer sk-secret\r\n"), std::string::npos);
}

TEST(Conversation, SpeechWithoutWordsIsNotUnderstood) {
  const auto outcome = [](const std::vector<std::string> &answers) {
    Server server([&](Peer &peer) {
      greet(peer);
      for (const std::string &answer : answers) peer.say(answer);
      peer.ignore();
    });
    Call call(url_of(server), "final_timeout=10");
    call.speak(200);
    call.start();
    EXPECT_TRUE(call.wait_reports(1));
    EXPECT_TRUE(call.wait_calls(3));
    call.stop();
    return call.reports();
  };
  const Report unknown = {"?", QUILLBROOK_SCORE_NO_CONFIDENCE};
  EXPECT_EQ(outcome({R"({"partial": "[unk]"})", R"({"text": "[unk] [unk]"})"}), (std::vector{unknown, kEnd}));
  EXPECT_EQ(outcome({R"({"partial": "one"})", R"({"text": ""})"}), (std::vector<Report>{{"one", -1}, unknown, kEnd}));
  const auto reports =
      outcome({R"({"text": ""})", R"({"text": "[unk] a [unk] b"})", R"({"partial": "c"})", R"({"text": "[unk]"})"});
  EXPECT_EQ(reports, (std::vector<Report>{{"a b", 75}, {"c", -1}, kFinish, kEnd}));
  EXPECT_EQ(reports[1].json, "") << "it belongs to the piece before";
}

TEST(Conversation, ACatchingUpClientWaitsForAnswers) {
  std::atomic<size_t> received{0};
  Server server([&](Peer &peer) {
    Message message;
    ASSERT_TRUE(peer.accept());
    size_t unanswered = 0;
    while (peer.receive(message)) {
      if (message.opcode != kBinary) continue;
      received += message.payload.size();
      if (++unanswered < 8) continue;
      if (received == 8 * 3200) std::this_thread::sleep_for(100ms);
      EXPECT_FALSE(peer.has_input());
      for (; unanswered > 0; --unanswered) peer.say(R"({"partial": ""})");
    }
  });
  Call call(url_of(server));
  call.speak(60000);
  call.start();
  EXPECT_TRUE(call.wait([&] { return received == size_t{60000} * 16; })) << received;
}

constexpr char kShort[] = "connect_timeout=300, answer_timeout=300";
constexpr char kLong[] = "connect_timeout=60000, answer_timeout=60000";

// Runs a call that must fail by itself. The module has its turns until then, and nothing of the call stays.
void expect_failure(const Server::Serve &serve, const std::vector<Report> &reports, const std::string &reason,
                    int connections) {
  const size_t files = entries("/proc/self/fd");
  {
    Server server(serve);
    std::ofstream(scratch_folder() + "/key") << "sk-secret\n";
    const bool out_of_time = reason.find("300 ms") != std::string::npos || reason.find("in time") != std::string::npos;
    Call call(url_of(server) + "/path", (out_of_time ? kShort : kLong) + (", key_file=" + scratch_folder() + "/key"));
    call.speak(1000);
    call.start();
    ASSERT_TRUE(call.wait_return());
    EXPECT_GE(call.calls(), call.due_calls());
    EXPECT_EQ(call.reports(), reports);
    const std::string extra = call.record.extra;
    EXPECT_EQ(extra.find("ERROR: " + url_of(server) + "/path: "), 0U) << extra;
    EXPECT_NE(extra.find(reason), std::string::npos) << extra;
    EXPECT_EQ(server.connections(), connections);
  }
  EXPECT_EQ(entries("/proc/self/fd"), files);
}

// Says this, and nothing more.
Server::Serve saying(const std::string &bytes) {
  return [bytes](Peer &peer) {
    peer.raw(bytes);
    peer.ignore();
  };
}

void leave(Peer &) {}

TEST(FailingHandshake, IsReported) {
  const auto trickle = [](Peer &peer) {
    for (int i = 0; i < 1000; ++i) {
      peer.raw("H");
      std::this_thread::sleep_for(1ms);
    }
  };
  const char *wrong_key =
      "HTTP/1.1 101 x\r\nUpgrade: websocket\r\nConnection: Upgrade\r\n"
      "Sec-WebSocket-Accept: s3pPLMBiTxaQ9kYGzzhZRbK+xOo=\r\n\r\n";
  const std::pair<Server::Serve, const char *> handshakes[] = {
      {saying(""), "does not answer the WebSocket handshake in time"},
      {trickle, "does not answer the WebSocket handshake in time"},
      {leave, "in the WebSocket handshake: "},
      {saying("HTTP/1.1 403 " + std::string(62, 'x') + "\033sk-secret " + std::string(20, 'x') + "\r\n\r\n"),
       "xx?*** '"},
      {saying(wrong_key), "handshake is wrong"},
      {saying("HTTP/1.1 101 x\r\nX: " + std::string(100000, 'x')), "too long"},
  };
  for (const auto &[serve, reason] : handshakes) {
    // One that ends the connection is tried once more, and no oftener.
    expect_failure(serve, {kEnd}, reason, std::string(reason).find("in the WebSocket") == 0 ? 2 : 1);
  }
}

TEST(FailingServer, IsReportedAndTakesNoWordsWithIt) {
  std::string pings;
  for (int i = 0; i < 2000; ++i) pings += frame(kPing, std::string(125, 'x'));
  std::string pieces = frame(kText, "", false);
  for (int i = 0; i < 40; ++i) pieces += frame(kContinuation, std::string(50000, ' '), false);
  constexpr char kLost[] = "closed the connection";
  constexpr char kStalled[] = "did not answer for 300 ms";
  constexpr char kBroken[] = "breaks the WebSocket protocol";
  constexpr char kTooMuch[] = "more than 1048576 bytes";
  constexpr char kNoJson[] = "no JSON object";
  const std::pair<Server::Serve, const char *> servers[] = {
      {leave, kLost},
      {saying(frame(kClose, "\x03\xf3 out of memory")), "closed the connection with code 1011"},
      {[](Peer &peer) { peer.raw(frame(kText, R"({"text": "o)", true, 500)); }, kLost},
      {saying(""), kStalled},
      {saying(frame(kText, "{", true, 500)), kStalled},
      {saying(pings), kStalled},
      {saying(std::string(1000, '\xb7')), kBroken},
      {saying("\x81\x82xxxx\x03\x05"), kBroken},      // a masked frame
      {saying(frame(kContinuation, "{}")), kBroken},  // of nothing
      {saying(frame(kText, "{", true, size_t{1} << 40)), kTooMuch},
      {saying(pieces), kTooMuch},
      {saying(frame(kText, R"({"partial": "one)")), kNoJson},
      {saying(frame(kText, R"(["partial"])")), kNoJson},
      {saying(frame(kText, R"({"x":)" + std::string(1000000, '['))), kNoJson},
  };
  for (const auto &server : servers) {
    const char *reason = server.second;
    SCOPED_TRACE("server " + std::to_string(&server - servers));
    const auto serve = [&server](const char *first_answer) {
      return [&server, first_answer](Peer &peer) {
        greet(peer);
        peer.say(first_answer);
        server.first(peer);
      };
    };
    // One that is lost is tried once more, one that is wrong is not.
    const int connections = std::string(reason).find(kLost) == 0 ? 2 : 1;
    expect_failure(serve(R"({"partial": ""})"), {kEnd}, reason, connections);
    expect_failure(serve(R"({"partial": "one two"})"), {{"one two", -1}, kFinish, kEnd}, reason, 1);
  }
}

TEST(FailingConnection, IsReportedWithoutHoldingTheCall) {
  DeafServer deaf;
  const std::string port = std::to_string(deaf.port());
  const auto reason = [](const std::string &url, const char *configuration = kShort, const char *format = "wav") {
    Call call(url, configuration, format);
    call.speak(100);
    call.start();
    EXPECT_TRUE(call.wait_return());
    EXPECT_GE(call.calls(), call.due_calls());
    return std::string(call.record.extra);
  };
  EXPECT_EQ(reason("ws://127.0.0.1:" + port), "ERROR: ws://127.0.0.1:" + port + ": cannot connect: Connection refused");
  EXPECT_EQ(reason("ws://[::1]:" + port).find("ERROR: ws://[::1]:" + port + ": cannot connect: "), 0U);
  deaf.listen();
  EXPECT_EQ(reason("ws://127.0.0.1:" + port), "ERROR: ws://127.0.0.1:" + port + ": no connection in time");

  EXPECT_NE(reason("ws://no-such.invalid").find("invalid: the host's name "), std::string::npos);
  EXPECT_EQ(reason("http://localhost"), "ERROR: http://localhost: the URL does not begin with ws:// or wss://");
  EXPECT_NE(reason("ws://localhost", "tls_verify=maybe").find("'tls_verify=maybe'"), std::string::npos);
  EXPECT_NE(reason("ws://localhost", "", "gsm").find("format 'gsm'"), std::string::npos);
}

TEST(Tls, VerifiesTheServersCertificateAndName) {
  const auto mine = make_certificate("localhost");
  const auto other = make_certificate("elsewhere");
  Server server(recognise, 0, mine);
  Server elsewhere(recognise, 0, other);
  const auto outcome = [&](const std::string &host, const std::string &configuration) {
    const int port = (configuration.find(other.file) != std::string::npos ? elsewhere : server).port();
    Call call("wss://" + host + ":" + std::to_string(port), configuration);
    call.speak(500);
    call.start();
    EXPECT_TRUE(call.wait_reports(1));
    const std::string heard = call.reports().at(0).text;
    call.stop();
    return heard + call.record.extra;
  };
  const std::string trusted = "tls_ca=" + mine.file;
  EXPECT_EQ(outcome("localhost", trusted), "ye");
  EXPECT_NE(outcome("localhost", "tls_ca=" + other.file).find("certificate is refused: hostname mismatch"),
            std::string::npos);
  EXPECT_NE(outcome("localhost", "").find("certificate is refused: self-signed certificate"), std::string::npos);
  EXPECT_NE(outcome("127.0.0.1", trusted).find("certificate is refused: IP address mismatch"), std::string::npos);
  EXPECT_EQ(outcome("127.0.0.1", "tls_verify=no"), "ye");
  EXPECT_NE(outcome("127.0.0.1", "tls_ca=/none").find("no certificates of authorities can be read from /none"),
            std::string::npos);

  Server plain([](Peer &peer) { peer.ignore(); });
  Call stalled("wss://127.0.0.1:" + std::to_string(plain.port()), kShort);
  stalled.start();
  ASSERT_TRUE(stalled.wait_return());
  EXPECT_NE(std::string(stalled.record.extra).find("no connection in time"), std::string::npos);
  stalled.stop();
  plugin().close();  // also with a TLS library that has been at work
}

TEST(SeveralServers, StandInForEachOther) {
  plugin().close();  // and with it what was learnt about servers: one of them may have had the same port
  Server dying(leave);
  Server good(recognise);
  const std::string nobody = "ws://127.0.0.1:9";
  for (int i = 0; i < 2; ++i) {
    Call call("htp://slip.of.the.pen " + nobody + " " + url_of(dying) + " " + url_of(good));
    call.speak(500);
    call.start();
    ASSERT_TRUE(call.wait_reports(1)) << call.record.extra;
    EXPECT_EQ(call.reports()[0].text, "ye");
  }
  EXPECT_EQ(dying.connections(), 1) << "it rests";
  // One that is lost in mid-call: the audio goes to another, and is heard there.
  Server fading(greet);
  Call call(url_of(fading) + " " + url_of(good));
  call.speak(500);
  call.start();
  ASSERT_TRUE(call.wait_reports(1)) << call.record.extra;
  EXPECT_EQ(call.reports()[0].text, "ye");
  EXPECT_EQ(fading.connections(), 1);
  // Behind one address: the first connection went to a server that is gone.
  std::atomic<int> connections{0};
  Server balancer([&](Peer &peer) {
    if (++connections > 1) recognise(peer);
  });
  Call balanced(url_of(balancer));
  balanced.speak(500);
  balanced.start();
  ASSERT_TRUE(balanced.wait_reports(1)) << balanced.record.extra;
  EXPECT_EQ(balanced.reports()[0].text, "ye");
  Call none(nobody + " " + nobody + "/x");
  none.start();
  ASSERT_TRUE(none.wait_return());
  EXPECT_NE(std::string(none.record.extra).find(": cannot connect: Connection refused; ws"), std::string::npos)
      << none.record.extra;
}

TEST(Reconnection, SendsTheAudioAgainWhenNoWordWasLost) {
  std::string audio;
  Server server([&](Peer &peer) {
    if (peer.number() == 0) return greet(peer);
    Message message;
    ASSERT_TRUE(peer.accept());
    while (peer.receive(message) && !message.is_end_of_audio()) {
      if (message.opcode != kBinary) continue;
      audio += message.payload;
      // What an endpointer closed without words need not be sent again.
      if (peer.number() == 1 && audio.size() == 9600) {
        peer.say(R"({"text": ""})");
        return;
      }
      if (peer.number() == 1) peer.say(R"({"partial": ""})");
      if (peer.number() == 2) peer.say(R"({"partial": "one"})");
    }
  });
  Call call(url_of(server));
  call.speak(1000);
  call.start();
  ASSERT_TRUE(call.wait_return());
  EXPECT_EQ(audio.size(), 9600U) << "the second loss before a word is the last";
  EXPECT_EQ(server.connections(), 2);
}

TEST(Reconnection, ServesAContinuousCallBehindTheWordsOfTheLostOne) {
  std::atomic<size_t> again{0};
  Server server([&](Peer &peer) {
    greet(peer);
    if (peer.number() == 0) return peer.say(R"({"partial": "one"})");
    Message message;
    while (peer.receive(message)) again += message.payload.size();
  });
  Call call(url_of(server));
  call.continuous = true;
  call.speak(200);
  call.start();
  ASSERT_TRUE(call.wait_reports(2));
  call.speak(400);
  ASSERT_TRUE(call.wait([&] { return again > 0; }));
  EXPECT_TRUE(call.wait_calls(5));
  call.stop();
  EXPECT_EQ(call.reports(), (std::vector<Report>{{"one", -1}, kFinish, kEnd}));
  // 400 ms, less the chunk that greet() takes, and the end mark.
  EXPECT_LE(again, 3200U + 20);
}

TEST(Stop, EndsTheLoopInEveryPhase) {
  Server silent([](Peer &peer) { peer.ignore(); });
  Server server(recognise);
  constexpr char kPatient[] = "connect_timeout=60000, answer_timeout=60000, final_timeout=60000";
  const auto stop_after = [&](const std::string &url, bool finalize, size_t reports) {
    Call call(url, kPatient);
    call.speak(500);
    call.start();
    EXPECT_TRUE(call.wait_reports(reports));
    if (finalize) call.finalize();
    EXPECT_TRUE(call.wait_calls(5));
    call.stop();
    call.stop();
    EXPECT_STREQ(call.record.extra, "");
    return call.reports();
  };
  // On the way to the server, with TLS and without.
  EXPECT_EQ(stop_after(url_of(silent), false, 0), std::vector<Report>{kEnd});
  EXPECT_EQ(stop_after("wss" + url_of(silent).substr(2), false, 0), std::vector<Report>{kEnd});
  // In mid-speech: the last words are still fetched, and the module is told to finish.
  EXPECT_EQ(stop_after(url_of(server), false, 1), (std::vector<Report>{{"ye", -1}, {"yes", 76}, kFinish, kEnd}));
  // Behind the result.
  EXPECT_EQ(stop_after(url_of(server), true, 1), (std::vector<Report>{{"ye", -1}, {"yes", 76}, kFinish, kEnd}));
  // While a server that has nothing more to say holds its last result back.
  Server mute([](Peer &peer) {
    greet(peer);
    peer.say(R"({"partial": "one"})");
    peer.ignore();
  });
  EXPECT_EQ(stop_after(url_of(mute), true, 1), (std::vector<Report>{{"one", -1}, kFinish, kEnd}));
}

TEST(ManyCalls, RunBesideEachOtherAndLeaveNothing) {
  constexpr int kCalls = 50;
  const size_t files = entries("/proc/self/fd");
  std::thread([] {}).join();  // a sanitizer starts a thread of its own with the first
  const size_t threads = entries("/proc/self/task");
  {
    Server server(recognise);
    std::vector<std::unique_ptr<Call>> calls;
    for (int i = 0; i < kCalls; ++i) {
      // By name, so that the look-ups run beside each other too.
      const std::string url = "ws://localhost:" + std::to_string(server.port());
      calls.push_back(std::make_unique<Call>(url, "connect_timeout=60000"));
      calls.back()->start();
    }
    for (const auto &call : calls) call->speak(700);
    for (const auto &call : calls) EXPECT_TRUE(call->wait_reports(1)) << call->record.extra;
    for (const auto &call : calls) call->finalize();
    for (const auto &call : calls) EXPECT_TRUE(call->wait_reports(4)) << call->record.extra;
    for (const auto &call : calls) call->stop();
    for (const auto &call : calls) EXPECT_EQ(call->reports()[1].text, "yes");
  }
  EXPECT_EQ(entries("/proc/self/fd"), files);
  // The kernel lists a thread for a moment after it has been joined.
  for (int i = 0; i < 1000 && entries("/proc/self/task") > threads; ++i) std::this_thread::sleep_for(1ms);
  EXPECT_EQ(entries("/proc/self/task"), threads);
}

TEST(Answers, AreReadAndMadeSafe) {
  using quillbrook::websocket::parse_answer;
  const auto read = [](const std::string &message) {
    const auto answer = parse_answer(quillbrook::common::repaired(message));
    return answer.text + (answer.final ? "/" + std::to_string(answer.confidence) : "");
  };
  EXPECT_EQ(read(R"({"partial" : "one"})"), "one");
  EXPECT_EQ(read(R"({"text" : " one ", "result": [{"conf": 1.0, "word": "one"}, {"conf": 0.0}]})"), "one/50");
  EXPECT_EQ(read(R"({"alternatives": [{"confidence": 0.4, "text": "a"}, {"confidence": 0.3, "text": "b"}]})"), "a/40");
  EXPECT_EQ(read(R"({"text": "one"})"), "one/75");
  EXPECT_EQ(read(R"({"text": "one", "result": [{"conf": 0.001}]})"), "one/1");
  EXPECT_EQ(read(R"({"text": "", "spk": [1, 2], "other": {"text": "x", "partial": "x"}})"), "/75");
  // Figures that are no probabilities count for nothing.
  EXPECT_EQ(read(R"({"result": [{"conf": nan}, {"conf": -inf}, {"conf": 1e999}, {"conf": 7}, {"conf": -0.1},
                     {"conf": "1"}, {"conf": 0.3}], "text": "nan \u0041"})"),
            "nan A/30");
  EXPECT_EQ(read(R"({"alternatives": [{"confidence": 251.7, "text": "a"}]})"), "a/75");
  // Control characters, raw and escaped; broken UTF-8: a lone byte, overlong, a surrogate, cut; half a pair.
  EXPECT_EQ(read(std::string("{\"partial\": \"a\0b\\u0000c\\nd\\u001b\"}", 34)), "a b c d");
  EXPECT_EQ(read("{\"partial\": \"\xff|\xc0\xaf|\xed\xa0\x80|\xe2\x82\"}"),
            "\uFFFD|\uFFFD\uFFFD|\uFFFD\uFFFD\uFFFD|\uFFFD\uFFFD");
  EXPECT_EQ(read(R"({"partial": "\ud83d \udc00 \ud83d\ude00 \\ud83d \u00fc"})"), "\uFFFD \uFFFD \U0001F600 \\ud83d ü");
  EXPECT_EQ(read("{\"partial\": \"ü€\U0001F600\"}"), "ü€\U0001F600");
  for (const char *bad :
       {"", "1", "\"x\"", "null", "[{}]", "{} {}", "{\"partial\": \"\\x\"}", "{\"partial\": \"", "nan"}) {
    EXPECT_THROW(read(bad), Failure) << bad;
  }
}

TEST(Settings, AreReadOrRefused) {
  using quillbrook::websocket::parse_settings;
  const auto settings = parse_settings(" tls_verify=no,tls_ca=/a/b.pem words=off, hints=0\tfinal_timeout=10 ");
  EXPECT_FALSE(settings.tls_verify || settings.words || settings.hints);
  EXPECT_EQ(settings.tls_ca, "/a/b.pem");
  EXPECT_EQ(settings.final_timeout, 10ms);
  EXPECT_EQ(parse_settings("").connect_timeout, 3s);
  for (const char *bad :
       {"word=yes", "words", "words=", "final_timeout=9", "final_timeout=99999999999", "tls_ca=", "final=word"}) {
    EXPECT_THROW(parse_settings(bad), Failure) << bad;
  }
}

}  // namespace
