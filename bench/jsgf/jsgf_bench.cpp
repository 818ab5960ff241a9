// What matching a grammar costs, as ratios: RE2 on the same texts in the same process, and one size against another.
//
// Prints one row for each measurement with the bound that it's held against.

#include <jsgfkitxx.h>

#include <pthread.h>
#include <re2/re2.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <sstream>
#include <string>
#include <vector>

#include "heap_count.h"
#include "regular_expression.h"

namespace {

const std::string kHead = "#JSGF V1.0;\ngrammar g;\n";

std::unique_ptr<Grammar> load(const std::string &source) {
  std::istringstream in(source);
  return std::make_unique<Grammar>(in);
}

std::string repeated(const std::string &text, size_t count) {
  std::string all;
  for (size_t i = 0; i < count; ++i) {
    all += text;
  }
  return all;
}

double cpu_seconds() {
  timespec time{};
  clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

// Nanoseconds of processor time for one run each of two pieces of work, taken in turns; the best of all turns, since
// other work on the machine only ever adds.
std::pair<double, double> nanoseconds_of(const std::function<void()> &first, const std::function<void()> &second) {
  const auto seconds = [](const std::function<void()> &work, size_t runs) {
    const double start = cpu_seconds();
    for (size_t i = 0; i < runs; ++i) {
      work();
    }
    return cpu_seconds() - start;
  };
  const auto runs_for = [&](const std::function<void()> &work) {
    constexpr double kTurn = 0.01;
    return std::max<size_t>(1, static_cast<size_t>(kTurn / std::max(seconds(work, 1), 1e-7)));
  };
  const size_t first_runs = runs_for(first);
  const size_t second_runs = runs_for(second);
  double first_best = 1e9;
  double second_best = 1e9;
  for (int turn = 0; turn < 15; ++turn) {
    first_best = std::min(first_best, seconds(first, first_runs) / static_cast<double>(first_runs));
    second_best = std::min(second_best, seconds(second, second_runs) / static_cast<double>(second_runs));
  }
  return {first_best * 1e9, second_best * 1e9};
}

std::string duration(double nanoseconds) {
  char text[32];
  if (nanoseconds < 1e5) {
    std::snprintf(text, sizeof text, "%.2f us", nanoseconds / 1e3);
  } else {
    std::snprintf(text, sizeof text, "%.1f ms", nanoseconds / 1e6);
  }
  return text;
}

bool all_within = true;

void row(const std::string &what, const std::string &first, const std::string &second, double ratio, double bound) {
  std::printf("| %-44s | %10s | %10s | %6.2f |", what.c_str(), first.c_str(), second.c_str(), ratio);
  if (bound > 0) {
    std::printf(" %5.1f |%s\n", bound, ratio <= bound ? "" : "  <-- above its bound");
    all_within = all_within && ratio <= bound;
  } else {
    std::printf("       |\n");
  }
}

void title(const char *what, const char *first, const char *second) {
  std::printf("\n| %-44s | %10s | %10s | %6s | %5s |\n|%s|%s:|%s:|%s:|%s:|\n", what, first, second, "ratio", "bound",
              std::string(46, '-').c_str(), std::string(11, '-').c_str(), std::string(11, '-').c_str(),
              std::string(7, '-').c_str(), std::string(6, '-').c_str());
}

// What the module does with a transcript: find the rule, then take the tags.
size_t match_with_grammar(const Grammar &grammar, const std::string &text) {
  const std::string rule = grammar.getMatchingPublicRule(text);
  size_t count = 0;
  if (!rule.empty()) {
    for (const std::string &tag : Grammar::getMatchingTags(grammar.matchesRule(grammar.getRule(rule), text))) {
      count += tag.empty() ? 0 : 1;
    }
  }
  return count;
}

struct Regex {
  explicit Regex(const std::string &pattern)
      : expression(pattern), captures(static_cast<size_t>(expression.NumberOfCapturingGroups()) + 1) {
    if (!expression.ok()) {
      std::fprintf(stderr, "RE2: %s\n", expression.error().c_str());
      std::exit(2);
    }
  }

  // The captures that took part, as strings, like tags.
  size_t match(const std::string &text) {
    std::vector<std::string> tags;
    if (expression.Match(text, 0, text.size(), RE2::ANCHOR_BOTH, captures.data(), static_cast<int>(captures.size()))) {
      for (size_t i = 1; i < captures.size(); ++i) {
        if (captures[i].data() != nullptr) {
          tags.emplace_back(captures[i].data(), captures[i].size());
        }
      }
    }
    return tags.size();
  }

  RE2 expression;
  std::vector<re2::StringPiece> captures;
};

struct Sample {
  std::string name;
  std::string source;
  std::vector<std::string> texts;  // in lower case, a blank behind each word; the last one doesn't fit
};

std::string sample_file(const char *name) {
  std::ifstream in(std::string(SAMPLE_GRAMMARS) + "/" + name);
  std::string text{std::istreambuf_iterator<char>(in), {}};
  std::transform(text.begin(), text.end(), text.begin(), [](char c) { return c == 'I' ? 'i' : c; });
  return text;
}

// Names of a few syllables.
std::string made_up_name(std::minstd_rand &random) {
  constexpr const char *kSyllables[] = {"ba", "den", "kor", "li", "mon", "ra", "sel", "ta", "vin", "wes", "hu", "jo"};
  std::string name;
  for (size_t count = 2 + random() % 3; count > 0; --count) {
    name += kSyllables[random() % std::size(kSyllables)];
  }
  return name;
}

std::string city_list(size_t count) {
  std::minstd_rand random(7);
  std::string list = "paris {c0} | new york {c1} | san francisco {c2} | boston {c3}";
  for (size_t i = 4; i < count; ++i) {
    list += " | " + made_up_name(random) + (i % 3 == 0 ? " city" : "") + " {c" + std::to_string(i) + "}";
  }
  return list;
}

std::vector<Sample> samples() {
  return {
      {"yes or no",
       sample_file("yesno.jsgf"),
       {"yes ", "um no thank you ", "yes it is please ", "that's not right ", "maybe later "}},
      {"digits",
       sample_file("digits.jsgf"),
       {"one ", "four two zero ", "one two three four five six seven eight nine ", "one two please "}},
      {"pizza order",
       sample_file("pizza.jsgf"),
       {"two large pizzas with ham and olives please ",
        "i'd like a small thin crust pizza with extra cheese ham and tuna ",
        "hello can i get three pizzas and one big pizza without onions ", "a pizza with ham and "}},
      {"flight, 80 cities",
       kHead +
           "public <r> = [i want | i need] [a] (flight | ticket) [from <city> {from}] to <city> {to} [<day> {day}]"
           " [please]; <day> = today | tomorrow | [next] (monday | tuesday | wednesday | thursday | friday);"
           "<city> = " +
           city_list(80) + ";",
       {"a flight from paris to new york tomorrow please ", "i want a ticket to boston ",
        "flight to san francisco next friday ", "a flight from paris tomorrow "}},
      {"hotel",
       kHead + "public <r> = [i would like to | please] (book | reserve) <rooms> [for <count> (night | nights) {n}]"
               " [[with] <extra> (and <extra>)*]; <rooms> = (a | one) (single | double | twin) room {one} |"
               "<count> (single | double | twin) rooms {many}; <count> = one {1} | two {2} | three {3} | four {4};"
               "<extra> = breakfast {b} | parking {p} | [a] sea view {v} | dinner {d};",
       {"book a double room for three nights with breakfast and parking ", "please reserve two twin rooms ",
        "i would like to book a single room for one night a sea view and dinner ", "book a room "}},
      {"time of day",
       kHead + "public <r> = [at] (<hour> [o'clock] | <hour> <minute> | half past <hour> {30} | (quarter) (past | to)"
               " {q} <hour>) [in the (morning {am} | afternoon {pm} | evening {pm}) | a m {am} | p m {pm}];"
               "<hour> = one {1} | two {2} | three {3} | four {4} | five {5} | six {6} | seven {7} | eight {8} |"
               "nine {9} | ten {10} | eleven {11} | twelve {12}; <minute> = (ten {10} | twenty {20} | thirty {30} |"
               "forty {40} | fifty {50}) [one {1} | two {2} | three {3} | four {4} | five {5}];",
       {"at ten thirty in the morning ", "half past nine ", "quarter to eleven p m ", "eleven twenty five ",
        "at thirty "}},
      {"menu of 40 departments",
       kHead +
           "public <r> = [please] [connect me | put me through] [to] [the] <name> [department | desk] [please];"
           "<name> = " +
           [] {
             std::minstd_rand random(3);
             std::string list = "sales {sales} | customer service {service} | lost baggage {bags}";
             for (int i = 0; i < 37; ++i) {
               list += " | " + made_up_name(random) + " {d" + std::to_string(i) + "}";
             }
             return list;
           }() +
           ";",
       {"put me through to the lost baggage desk please ", "sales ", "customer service please ",
        "connect me to the moon "}},
  };
}

void compare_with_re2() {
  title("realistic grammars against RE2: match", "library", "RE2");
  double sum = 0;
  size_t count = 0;
  for (const Sample &sample : samples()) {
    const auto grammar = load(sample.source);
    Regex regex(to_regular_expression(sample.source));
    for (const std::string &text : sample.texts) {
      const bool should_match = &text != &sample.texts.back();
      if (grammar->getMatchingPublicRule(text).empty() == should_match ||
          RE2::FullMatch(text, regex.expression) != should_match) {
        std::fprintf(stderr, "%s: \"%s\" is judged wrongly\n", sample.name.c_str(), text.c_str());
        std::exit(2);
      }
    }
    const auto all = [&](const auto &match) {
      return [&] {
        for (const std::string &text : sample.texts) {
          match(text);
        }
      };
    };
    const auto [library, re2] =
        nanoseconds_of(all([&](const std::string &text) { match_with_grammar(*grammar, text); }),
                       all([&](const std::string &text) { regex.match(text); }));
    const auto texts = static_cast<double>(sample.texts.size());
    row(sample.name, duration(library / texts), duration(re2 / texts), library / re2, 4);
    sum += library / re2;
    ++count;
  }
  row("mean", "", "", sum / static_cast<double>(count), 2);

  title("realistic grammars against RE2: load", "library", "RE2");
  for (const Sample &sample : samples()) {
    const std::string pattern = to_regular_expression(sample.source);
    const auto [library, re2] = nanoseconds_of([&] { load(sample.source); }, [&] { RE2 compiled(pattern); });
    row(sample.name, duration(library), duration(re2), library / re2, 0.5);
  }
}

// What an interim text costs: the words of a match but for the last two letters, which are still to come.
void compare_viability(const std::string &what, const Grammar &grammar, const std::vector<std::string> &texts,
                       double bound) {
  using quillbrook::jsgf::LastWord;
  grammar.getViability("", LastWord::kMayGrow);
  std::vector<std::string> beginnings;
  for (const std::string &text : texts) {
    beginnings.push_back(text.substr(0, text.size() - 3));
  }
  const auto [viability, match] = nanoseconds_of(
      [&] {
        for (const std::string &text : beginnings) {
          grammar.getViability(text, LastWord::kMayGrow);
        }
      },
      [&] {
        for (const std::string &text : texts) {
          match_with_grammar(grammar, text);
        }
      });
  const auto count = static_cast<double>(texts.size());
  row(what, duration(viability / count), duration(match / count), viability / match, bound);
}

void compare_lengths() {
  constexpr size_t kShort = 5000;
  constexpr size_t kLong = 40'000;
  title("8 times the words", "5,000", "40,000");
  const struct {
    const char *what;
    std::string rules;
    std::string before, behind;
  } rows[] = {
      {"(a*)* b", "public <r> = (a*)* b;", "", "b"},
      {"right recursion", "public <r> = a <r> | b;", "", "b"},
      {"right recursion, tags behind", "public <r> = a <r> {T} | b {U};", "", "b"},
      {"right recursion in a called rule", "public <r> = <l> b {T}; <l> = a <l> {T} | a {U};", "", "b"},
      {"rejected, ambiguous: b ((a | a a)* [a])* b", "public <r> = b ((a | a a)* [a])* b;", "", "b"},
  };
  for (const auto &sample : rows) {
    const auto grammar = load(kHead + sample.rules);
    const auto text = [&](size_t count) { return sample.before + repeated("a ", count) + sample.behind; };
    const std::string shorter = text(kShort);
    const std::string longer = text(kLong);
    const auto [five, forty] =
        nanoseconds_of([&] { match_with_grammar(*grammar, shorter); }, [&] { match_with_grammar(*grammar, longer); });
    row(sample.what, duration(five), duration(forty), forty / five, 12);
  }
}

// Calls whose parts fit together in as many ways as the square or the cube of the words.
void compare_ambiguous_calls() {
  constexpr size_t kLevels = 40;
  constexpr size_t kWords = 300;
  std::string levels = "<r0> = [a];";
  for (size_t i = 1; i <= kLevels; ++i) {
    const std::string below = "<r" + std::to_string(i - 1) + ">";
    levels += (i == kLevels ? "public <r" : "<r") + std::to_string(i) + "> = " + below + " " + below + ";";
  }
  std::string alternatives = "public <r> = (<l> {t}";
  for (size_t i = 1; i < 1000; ++i) {
    alternatives += " | <l> {t" + std::to_string(i) + "}";
  }
  const struct {
    const char *what;
    std::string rules, behind;
  } rows[] = {
      {"<s> = <l> <l>; <l> = a [<l>] {t}", "public <s> = <l> <l>; <l> = a [<l>] {t};", ""},
      {"(<l>)* b", "public <s> = (<l>)* b; <l> = a [<l>] {t};", "b"},
      {"40 levels of <ri> = <ri-1> <ri-1>, [a]", levels, ""},
      {"1,000 alternatives <l> {ti} in a star", alternatives + ")*; <l> = a [<l>] {t};", ""},
  };
  title("ambiguous calls: 8 times the words", "300", "2,400");
  for (const auto &sample : rows) {
    const auto grammar = load(kHead + sample.rules);
    const std::string shorter = repeated("a ", kWords) + sample.behind;
    const std::string longer = repeated("a ", 8 * kWords) + sample.behind;
    const auto heap_of = [&](const std::string &text) {
      heap_bytes_at_most = heap_bytes;
      const size_t before = heap_bytes;
      grammar->getMatchingPublicRule(text);
      return static_cast<double>(heap_bytes_at_most - before);
    };
    const double least = heap_of(shorter);
    const double most = heap_of(longer);
    const auto [few, many] =
        nanoseconds_of([&] { match_with_grammar(*grammar, shorter); }, [&] { match_with_grammar(*grammar, longer); });
    row(sample.what, duration(few), duration(many), many / few, 64);
    const auto kibibytes = [](double bytes) { return std::to_string(static_cast<int>(bytes / 1024)) + " KiB"; };
    row("  heap", kibibytes(least), kibibytes(most), most / least, 64);
    constexpr double kSecond = 1e9;
    constexpr double kMostHeap = 200.0 * (1U << 20U);
    all_within = all_within && few < kSecond && least < kMostHeap;
  }
}

// Phrases of four to seven words, each with a tag of its own.
std::vector<std::string> phrases(size_t count) {
  std::minstd_rand random(11);
  std::vector<std::string> vocabulary;
  for (int i = 0; i < 4000; ++i) {
    vocabulary.push_back(made_up_name(random));
  }
  std::vector<std::string> all;
  for (size_t i = 0; i < count; ++i) {
    std::string phrase;
    for (size_t words = 3 + random() % 3; words > 0; --words) {
      phrase += vocabulary[random() % vocabulary.size()] + " ";
    }
    all.push_back(phrase);
  }
  return all;
}

std::string phrase_grammar(const std::vector<std::string> &list, size_t count) {
  std::string source = kHead + "public <r> = ";
  for (size_t i = 0; i < count; ++i) {
    source += (i == 0 ? "" : "| ") + list[i] + "{" + std::to_string(i) + "}\n";
  }
  return source + ";";
}

void compare_sizes() {
  constexpr size_t kMany = 50'000;
  constexpr size_t kFew = 500;
  const std::vector<std::string> list = phrases(kMany);
  const std::string source = phrase_grammar(list, kMany);
  const auto few = load(phrase_grammar(list, kFew));

  heap_bytes_at_most = heap_bytes;
  const size_t before = heap_bytes;
  const auto many = load(source);
  const auto per_byte = [&](size_t bytes) {
    return static_cast<double>(bytes - before) / static_cast<double>(source.size());
  };
  const double kept = per_byte(heap_bytes);
  const double most = per_byte(heap_bytes_at_most);

  title("100 times the alternatives", "500", "50,000");
  const auto all = [&](const Grammar &grammar) {
    return [&] {
      for (size_t i = 0; i < 100; ++i) {
        match_with_grammar(grammar, list[i * (kFew / 100)]);
      }
    };
  };
  const auto [fewTime, manyTime] = nanoseconds_of(all(*few), all(*many));
  row("match of one of the 500", duration(fewTime / 100), duration(manyTime / 100), manyTime / fewTime, 1.5);

  title("viability of a beginning", "viability", "match");
  for (const Sample &sample : samples()) {
    compare_viability(sample.name, *load(sample.source), sample.texts, 3);
  }
  // Each half of a word is some hundred words here, each of which stands in a dozen phrases.
  compare_viability("50,000 phrases", *many, {list.begin(), list.begin() + 100}, 0);
  const auto [first_viability, loading] = nanoseconds_of(
      [&] { load(source)->getViability("", quillbrook::jsgf::LastWord::kMayGrow); }, [&] { load(source); });
  row("  the first one, with the load", duration(first_viability), duration(loading), first_viability / loading, 2);

  title("50,000 phrases: load", "library", "RE2");
  std::string pattern;
  for (const std::string &phrase : list) {
    pattern += (pattern.empty() ? "" : "|") + phrase;
  }
  RE2::Options options;
  options.set_max_mem(int64_t{4} << 30U);
  const auto [library, re2] = nanoseconds_of([&] { load(source); }, [&] { RE2 compiled(pattern, options); });
  row(std::to_string(source.size()) + " bytes of source, no captures", duration(library), duration(re2), library / re2,
      0.5);

  title("50,000 phrases: size", "25,000", "50,000");
  const std::string half = phrase_grammar(list, kMany / 2);
  const auto [halfTime, wholeTime] = nanoseconds_of([&] { load(half); }, [&] { load(source); });
  row("load, twice the bytes", duration(halfTime), duration(wholeTime), wholeTime / halfTime, 2.5);
  row("heap kept, bytes for a source byte", "", "", kept, 24);
  row("heap at most while loading", "", "", most, 24);
}

void load_on_small_stack() {
  constexpr size_t kStack = size_t{256} * 1024;
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstacksize(&attributes, kStack);
  pthread_t thread{};
  const auto work = [](void *) -> void * {
    constexpr size_t kDeep = 100'000;
    const std::string source = kHead + "public <r> = " + repeated("(", kDeep) + "x" + repeated(")", kDeep) + ";";
    const double start = cpu_seconds();
    load(source);
    const double seconds = cpu_seconds() - start;
    std::printf("\n100,000 nested groups, loaded and released on a stack of 256 KiB: %.1f ms\n", seconds * 1e3);
    return nullptr;
  };
  if (pthread_create(&thread, &attributes, work, nullptr) != 0) {
    std::exit(2);
  }
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

}  // namespace

int main() {
  compare_with_re2();
  compare_lengths();
  compare_ambiguous_calls();
  compare_sizes();
  load_on_small_stack();
  std::printf("\n%s\n", all_within ? "All ratios are within their bounds." : "Some ratios are above their bounds.");
  return all_within ? 0 : 1;
}
