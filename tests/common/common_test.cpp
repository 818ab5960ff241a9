// What plugins share: the stream file, servers, URLs.
#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <set>
#include <thread>

#include "failure.h"
#include "link.h"
#include "servers.h"
#include "stream_file.h"
#include "url.h"

namespace {

using namespace quillbrook::common;

using Samples = std::vector<int16_t>;

class File {
public:
  File() { close(mkstemp(path_)); }
  ~File() { unlink(path_); }
  File(const File &) = delete;
  File &operator=(const File &) = delete;
  const char *write(const std::string &bytes) const { return put(bytes, std::ios::trunc); }
  const char *append(const std::string &bytes) const { return put(bytes, std::ios::app); }
  const char *path() const { return path_; }

private:
  const char *put(const std::string &bytes, std::ios::openmode mode) const {
    std::ofstream(path_, std::ios::binary | mode) << bytes;
    return path_;
  }
  char path_[32] = "/tmp/quillbrook-common.XXXXXX";
};

std::string number(unsigned value, int bytes) {
  std::string text;
  for (int i = 0; i < bytes; ++i) text += static_cast<char>(value >> 8 * i);
  return text;
}

std::string chunk(const std::string &name, unsigned size, const std::string &content) {
  return name + number(size, 4) + content;
}

std::string format_chunk(unsigned tag, unsigned channels, unsigned rate, unsigned bits) {
  return chunk("fmt ", 16, number(tag, 2) + number(channels, 2) + number(rate, 4) + number(0, 6) + number(bits, 2));
}

int next_timer = INT_MAX;

// A module that takes everything, and says when its timer expires.
struct Module {
  Module() {
    context.callback = [](quillbrook_context *, const char *, int) { return 0; };
    static const quillbrook_services kServices = {sizeof kServices,
                                                  [](const quillbrook_context *) { return next_timer; }, nullptr};
    quillbrook_attach(&kServices);
  }
  ~Module() { quillbrook_attach(nullptr); }
  Module(const Module &) = delete;
  Module &operator=(const Module &) = delete;
  quillbrook_context context = {};
};

Milliseconds turn_after_a_call(Link &link, int timer) {
  next_timer = timer;
  link.tick();
  return std::chrono::duration_cast<Milliseconds>(link.next_turn() - link.last_call());
}

TEST(Link, CallsWhereATimerCanExpire) {
  Module module;
  Link link(&module.context, "test");
  EXPECT_EQ(turn_after_a_call(link, INT_MAX).count(), 100);
  EXPECT_EQ(turn_after_a_call(link, 70).count(), 70);
  EXPECT_EQ(turn_after_a_call(link, 0).count(), 20);
  quillbrook_attach(nullptr);  // a module that cannot tell
  EXPECT_EQ(turn_after_a_call(link, INT_MAX).count(), 30);
}

// Nothing else would end the wait: its descriptor never becomes ready, and it is told not to heed a stop.
TEST(Link, StopEndsTheWaitThatItMeets) {
  Module module;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  Link link(&module.context, "test");
  std::thread stopping([&module] { Link::stop(&module.context); });
  EXPECT_EQ(link.wait(ends[0], POLLIN, Moment::max(), Link::Heed::kNothing), Link::Wait::kElapsed);
  EXPECT_EQ(link.wait(ends[0], POLLIN, Moment::max()), Link::Wait::kStopped);
  stopping.join();
  Link::stop(&module.context);  // it may come twice
  for (const int end : ends) close(end);
}

const std::string kRiff = "RIFF" + number(0, 4) + "WAVE";

TEST(Stream, IsReadByteByByteWhileTheFileGrows) {
  // Chunks that nobody knows, one of odd size, and sizes unset: as long as the host writes, they are.
  const std::string bytes = kRiff + chunk("LIST", 4, "abcd") + format_chunk(1, 1, 16000, 16) + chunk("note", 3, "xyz") +
                            number(0, 1) + chunk("data", 0, "") + number(1, 2) + number(0xFFFF, 2) + number(0x8000, 2);
  const File file;
  StreamFile stream(file.path(), "wav");
  Samples samples;
  for (const char byte : bytes) {
    file.append(std::string(1, byte));
    if (stream.ready()) stream.read(100, true, samples);
  }
  EXPECT_EQ(samples, (Samples{1, -1, -32768}));
  EXPECT_EQ(stream.rate(), 16000);
  stream.seek(1);
  EXPECT_EQ(stream.read(3, false, samples), 0U);
  EXPECT_EQ(stream.read(1, false, samples), 1U);
  EXPECT_EQ(samples.back(), -1);
  EXPECT_EQ(stream.position(), 2U);
}

TEST(Stream, DecodesCompandedSamples) {
  // The ends of the scale, its smallest steps, and one value in the middle, from the tables of G.711.
  const File file;
  Samples samples;
  StreamFile(file.write(std::string("\x00\x80\x7F\xFF\x55", 5)), "ulaw").read(5, false, samples);
  EXPECT_EQ(samples, (Samples{-32124, 32124, 0, 0, -716}));
  samples.clear();
  StreamFile(file.write("\x2A\xAA\x55\xD5\x80"), "alaw").read(9, true, samples);
  EXPECT_EQ(samples, (Samples{-32256, 32256, -8, 8, 5504}));
  samples.clear();
  StreamFile tagged(file.write(kRiff + format_chunk(7, 1, 8000, 8) + chunk("data", 0, "\x80")), "wav");
  ASSERT_TRUE(tagged.ready());
  tagged.read(1, false, samples);
  EXPECT_EQ(samples, (Samples{32124}));
}

TEST(Stream, IsRefusedWhenItCannotBeRead) {
  const File file;
  EXPECT_THROW(StreamFile("/nonexistent/stream.wav", "wav"), Failure);
  for (const char *format : {"gsm", "", "WAV", "g722"}) {
    EXPECT_THROW(StreamFile(file.path(), format), Failure) << format;
  }
  for (const std::string &bad : {
           "OggS" + std::string(40, 'x'),
           kRiff + format_chunk(1, 2, 8000, 16),
           kRiff + format_chunk(1, 1, 8000, 24),
           kRiff + format_chunk(85, 1, 8000, 16),
           kRiff + format_chunk(1, 1, 0, 16),
           kRiff + format_chunk(1, 1, 4000000000U, 16),
           kRiff + chunk("fmt ", 2, "ab"),
           kRiff + chunk("data", 0, "abcd"),
           kRiff + chunk("junk", 0xFFFFFFFFU, std::string(5000, 'x')),
       }) {
    StreamFile stream(file.write(bad), "wav");
    EXPECT_THROW(stream.ready(), Failure) << bad.substr(0, 50);
  }
  const std::string link = std::string(file.path()) + ".link";
  ASSERT_EQ(symlink(file.path(), link.c_str()), 0);
  EXPECT_THROW(StreamFile(link, "sln"), Failure);
  unlink(link.c_str());
}

TEST(Servers, AreTriedAsPickedAndRestWhenTheyFail) {
  using List = std::vector<std::string>;
  Servers servers;
  const Moment now = Clock::now();
  const auto order = [&](Pick pick, std::chrono::seconds later = {}) {
    return servers.in_order({"a", "b", "c"}, pick, now + later);
  };
  EXPECT_EQ(order(Pick::kFirst), (List{"a", "b", "c"}));
  EXPECT_EQ(order(Pick::kRotate), (List{"a", "b", "c"}));
  EXPECT_EQ(order(Pick::kRotate), (List{"b", "c", "a"}));
  EXPECT_EQ(order(Pick::kRotate), (List{"c", "a", "b"}));
  EXPECT_EQ(order(Pick::kRotate), (List{"a", "b", "c"}));
  std::set<List> seen;
  for (int i = 0; i < 200; ++i) seen.insert(order(Pick::kRandom));
  EXPECT_EQ(seen.size(), 6U);
  servers.failed("b", now);
  EXPECT_EQ(order(Pick::kFirst), (List{"a", "c", "b"}));
  EXPECT_EQ(order(Pick::kRotate), (List{"c", "a", "b"}));
  EXPECT_EQ(order(Pick::kFirst, std::chrono::seconds(10)), (List{"a", "b", "c"}));
  servers.failed("a", now);
  servers.failed("c", now);
  EXPECT_EQ(order(Pick::kFirst), (List{"a", "b", "c"})) << "better one that rests than none";
}

TEST(Urls, AreReadOrRefused) {
  const auto parts = [](const char *text) {
    const auto url = parse_url(text, "ws", "wss");
    return std::string(url.tls ? "tls " : "") + url.host + " " + url.port + " " + url.authority + " " + url.target;
  };
  EXPECT_EQ(parts("ws://a"), "a 80 a /");
  EXPECT_EQ(parts("WSS://a.b?x=/y#z"), "tls a.b 443 a.b /?x=/y");
  EXPECT_EQ(parts("ws://[::1]:2700/p/q"), "::1 2700 [::1]:2700 /p/q");
  for (const char *bad : {"", "ws:/a", "ws://", "ws://:80", "ws://a:0", "ws://a:65536", "ws://a:8x", "ws://[::1",
                          "ws://[::1]x", "ws://user@a", "ws://a/b c", "ws://a/\r\nX: y"}) {
    EXPECT_THROW(parse_url(bad, "ws", "wss"), Failure) << bad;
  }
  const UrlList list = split_urls("  ws://a/b\thtp://x wss://c ", "ws", "wss");
  EXPECT_EQ(list.urls, (std::vector<std::string>{"ws://a/b", "wss://c"}));
  EXPECT_EQ(list.complaints.size(), 1U);
  for (const char *bad : {"", "  ", "ws://a http://b", "ws://a ws://"}) {
    EXPECT_EQ(split_urls(bad, "ws", "wss").complaints.size(), 1U) << bad;
  }
}

}  // namespace
