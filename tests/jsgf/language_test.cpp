// What the language means: each table row is a grammar, texts, and what has to come out.

#include <jsgfkitxx.h>

#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace {

const std::string kHead = "#JSGF V1.0;\ngrammar com.acme.drinks;\n";

std::unique_ptr<Grammar> load(const std::string &source) {
  std::istringstream in(source);
  return std::make_unique<Grammar>(in);
}

// "rule: tag,tag" of the winning rule, "-" for no match.
std::string outcome(const Grammar &grammar, const std::string &text) {
  const std::string rule = grammar.getMatchingPublicRule(text);
  if (rule.empty()) {
    return "-";
  }
  std::string tags;
  for (const std::string &tag : Grammar::getMatchingTags(grammar.matchesRule(grammar.getRule(rule), text))) {
    tags += tag.empty() ? "" : (tags.empty() ? "" : ",") + tag;
  }
  return rule + ": " + tags;
}

struct Row {
  std::string rules;
  std::vector<std::pair<std::string, std::string>> outcomes;  // text, what comes out
};

void expectRows(const std::vector<Row> &rows) {
  for (const Row &row : rows) {
    const auto grammar = load(kHead + row.rules);
    for (const auto &[text, expected] : row.outcomes) {
      EXPECT_EQ(outcome(*grammar, text), expected) << row.rules << "\ntext: " << text;
    }
  }
}

TEST(Language, ExpansionsAndPrecedence) {
  expectRows({
      {"public <a> = tea | iced tea {I};", {{"tea", "a: "}, {"iced tea", "a: I"}, {"iced", "-"}, {"tea tea", "-"}}},
      {"public <a> = knock on wood *;",
       {{"knock on", "a: "}, {"knock on wood wood", "a: "}, {"knock on wood on wood", "-"}}},
      {"public <a> = knock (on wood) +;", {{"knock", "-"}, {"knock on wood on wood", "a: "}}},
      {"public <a> = knock \"on wood\" *;", {{"knock", "a: "}, {"knock on wood on wood", "a: "}, {"knock on", "-"}}},
      {"public <a> = (a)(b)[c]<d>{T}e; <d> = d;", {{"a b d e", "a: T"}, {"a b c d e", "a: T"}}},
      {"public <p> = public transport grammar import;", {{"Public Transport, grammar import!", "p: "}}},
      {"public <a> = a*+ {T};", {{"a", "a: T"}, {"a a a", "a: T"}}},
      {"public <1> = <public>; <public> = x{}{ T }; public <City> = y; <city> = z;",
       {{"x", "1:  T "}, {"y", "City: "}, {"z", "-"}}},
      {"public <a> = 3/4 | don't /x/ | 50%;", {{"3/4", "a: "}, {"don’t /x/", "a: "}, {"50%", "a: "}}},
      {"public <a> = a\"b c\"d | \"e \\\" \\\\ f\" | \"g//h\" | i\\j;",
       {{"a b c d", "a: "}, {"e \" \\ f", "a: "}, {"g//h", "a: "}, {"i\\j", "a: "}}},
      {"public /* x */ <a> // y\r = /** @see z */ a // b\n c;", {{"a c", "a: "}, {"a", "-"}}},
      {"<private> = x;", {{"x", "-"}}},
      {"public <a,b;c=d|(e)> = x {T};", {{"x", "a,b;c=d|(e): T"}}},
  });
}

TEST(Language, TagsComeInTheOrderOfTheWrittenOutSentence) {
  expectRows({
      {"public <a> = book | paper {X};", {{"book", "a: "}, {"paper", "a: X"}}},
      {"public <a> = (book | paper) {X} {Y};", {{"book", "a: X,Y"}}},
      {"public <a> = (lift {U} | lower {D}) [(it {I} slowly) {S}];",
       {{"lower it slowly", "a: D,I,S"}, {"lift", "a: U"}}},
      {"public <a> = a [b] {T}; public <b> = c [d {T}];", {{"a", "a: T"}, {"c", "b: "}, {"c d", "b: T"}}},
      {"public <a> = (x {T})* y; public <b> = (z {T}) * {E};",
       {{"x x y", "a: T,T"}, {"z z", "b: T,T,E"}, {"y", "a: "}}},
      {"public <a> = x {o} <b> {T}; <b> = y {I} | z;", {{"x y", "a: o,I,T"}, {"x z", "a: o,T"}}},
      {"public <a> = x <a> {T} | y {U};", {{"y", "a: U"}, {"x x y", "a: U,T,T"}}},
      {"public <a> = p {p} <b> q {q}; <b> = x {x} <b> {T} | <c>; <c> = y {y} [<b> {C}];",
       {{"p x x y q", "a: p,x,x,y,T,T,q"}, {"p y x y q", "a: p,y,x,y,T,C,q"}}},
      {"public <a> = x {a\\}b} | y {a\\b\\\\\n // \"{};", {{"x", "a: a}b"}, {"y", "a: a\\b\\\n // \"{"}}},
      {"public <a> = <NULL> {T} a;", {{"a", "a: T"}}},
  });
}

TEST(Language, TheFirstDerivationInWrittenOrderCounts) {
  expectRows({
      {"public <a> = (a {1} | a b {2}) (c {3} | b c {4});", {{"a b c", "a: 1,4"}}},
      {"public <a> = (a {x})* (a {y})* b;", {{"a a b", "a: x,x"}}},
      {"public <a> = [a {x}] [a {y}];", {{"a", "a: x"}}},
      {"public <a> = /1/ call {L} | /5/ call {H};", {{"call", "a: H"}}},
      {"public <a> = /2.5e-1/ x {1} | / 0.25f / x {2} | /0/ y | /0.0/ x {0};", {{"x", "a: 1"}, {"y", "-"}}},
      {"public <a> = x | y; public <b> = x {T} | y {}; public <c> = x {T};", {{"x", "b: T"}, {"y", "a: "}}},
      {"public <a> = (<NULL> {n} | x {x})* y;", {{"y", "a: "}, {"x y", "a: x"}}},
      {"public <a> = (<NULL> {n})+ y {y};", {{"y", "a: n,y"}}},
  });
}

TEST(Language, RulesThatSayNothingOrCannotBeSaid) {
  expectRows({
      {"public <a> = go <VOID> | stay;", {{"stay", "a: "}, {"go", "-"}}},
      {"public <a> = <VOID>* x <VOID>+ | [<VOID>] y;", {{"y", "a: "}, {"x", "-"}}},
      {"public <a> = [x] | <NULL>;", {{"x", "a: "}, {"", "-"}, {" ., ", "-"}}},
      {"public <a> = <a>; public <b> = x <b>;", {{"x", "-"}}},
      {"public <c> = <act> | <act> and <c>; <act> = go | <stop>; <stop> = stop [<stop>];",
       {{"go and stop stop and go", "c: "}, {"go and", "-"}}},
      {"public <a> = [um] <a> | go {G};", {{"um um go", "a: G"}, {"um", "-"}}},
      {"public <x> = one | <y>; public <y> = two <x>;", {{"two two one", "x: "}, {"two", "-"}}},
  });
}

TEST(Language, NamesAreResolvedWithTheDeclaredName) {
  const std::string source =
      "#JSGF V1.0;\ngrammar com.acme.drinks;\nimport <com.acme.sizes.small>;\nimport <com.acme.milk.*>;\n"
      "public <order> = <drink> | <drinks.drink> x | <com.acme.drinks.drink> y | a <small> | a <sizes.small> |"
      "a <com.acme.sizes.small> | a <milk.any> | a <anything> ; <drink> = tea {T}; <any> = z;";
  const auto grammar = load(source);
  EXPECT_EQ(grammar->getName(), "com.acme.drinks");
  grammar->setName("mine");
  EXPECT_EQ(grammar->getName(), "mine");
  for (const char *text : {"tea", "tea x", "tea y"}) {
    EXPECT_EQ(outcome(*grammar, text), "order: T");
  }
  EXPECT_EQ(outcome(*grammar, "a"), "-");
  for (const char *name : {"order", "<order>", "drinks.order", "com.acme.drinks.order", "<drink>"}) {
    EXPECT_NE(grammar->getRule(name), nullptr) << name;
  }
  for (const char *name : {"", "<>", "Order", "mine.order", "acme.drinks.order", "none"}) {
    EXPECT_EQ(grammar->getRule(name), nullptr) << name;
  }
  EXPECT_TRUE(grammar->matchesRule(grammar->getRule("drink"), "tea").empty()) << "a private rule is no target";
  EXPECT_TRUE(grammar->matchesRule(nullptr, "tea").empty());
  EXPECT_TRUE(grammar->matchesRule(load(source)->getRule("order"), "tea").empty()) << "another grammar's rule";
}

TEST(Language, RefusesWithLineColumnAndReason) {
  const struct {
    std::string source;
    std::string begin;
    std::string part;
  } rows[] = {
      {"", "line 1, column 1: ", "#JSGF"},
      {"grammar a;", "line 1, column 1: ", "#JSGF"},
      {"#JSGF V1.0\ngrammar a;", "line 1, column 11: ", "';'"},
      {"#JSGF V2.0;\ngrammar a;", "line 1, column 7: ", "V1.0"},
      {"#JSGF V1.0 UTF-16 en;\ngrammar a;", "line 1, column 1: ", "UTF-16"},
      {std::string("\xFF\xFE#\0J\0", 6), "line 1, column 1: ", "UTF-16"},
      {"#JSGF V1.0;\r\n\r\n  gramar a;", "line 3, column 3: ", "'grammar'"},
      {"#JSGF V1.0; grammar a..b;", "line 1, column 23: ", "name"},
      {"#JSGF V1.0; grammar a; import <small>;", "line 1, column 31: ", "<small>"},
      {"#JSGF V1.0; grammar a; <r> = x; import <b.c>;", "line 1, column 33: ", "'public'"},
      {kHead + "<a> = été @ = x;", "line 3, column 13: ", "';'"},
      {kHead + "<a> = x", "line 3, column 8: ", "end of the file"},
      {kHead + "<a> = x; <a> = y;", "line 3, column 11: ", "<a>"},
      {kHead + "<NULL> = x;", "line 3, column 2: ", "<NULL>"},
      {kHead + "<drinks.a> = x;", "line 3, column 2: ", "<drinks.a>"},
      {kHead + "<a b> = x;", "line 3, column 3: ", "rule name"},
      {kHead + "<a> = <b>;", "line 3, column 7: ", "<b>"},
      {kHead + "<a> = <other.b>;", "line 3, column 7: ", "<other.b>"},
      {kHead + "<a> = ;", "line 3, column 7: ", "token"},
      {kHead + "<a> = a | | b;", "line 3, column 11: ", "token"},
      {kHead + "<a> = x ();", "line 3, column 10: ", "token"},
      {kHead + "<a> = [];", "line 3, column 8: ", "token"},
      {kHead + "<a> = (x];", "line 3, column 9: ", "')'"},
      {kHead + "<a> = x);", "line 3, column 8: ", "';'"},
      {kHead + "<a> = (x;", "line 3, column 9: ", "')'"},
      {kHead + "<a> = {T} a;", "line 3, column 7: ", "token"},
      {kHead + "<a> = * a;", "line 3, column 7: ", "token"},
      {kHead + "<a> = x {T;", "line 3, column 9: ", "'}'"},
      {kHead + "<a> = \"x;", "line 3, column 7: ", "'\"'"},
      {kHead + "<a> = \" \";", "line 3, column 7: ", "word"},
      {kHead + "<a> = x; /* y", "line 3, column 10: ", "'*/'"},
      {kHead + "<a> = /1/ x | y;", "line 3, column 15: ", "weight"},
      {kHead + "<a> = x | /1/ y;", "line 3, column 11: ", "weight"},
      {kHead + "<a> = (/-1/ x);", "line 3, column 8: ", "weight"},
      {kHead + "<a> = /one/ x;", "line 3, column 7: ", "weight"},
      {kHead + "<a> = /1 x;", "line 3, column 7: ", "'/'"},
      {kHead + "<a> = /0/ x | /0/ y;", "line 3, column 20: ", "above 0"},
      {kHead + "<a> = <a> x | y;", "line 3, column 7: ", "<a> as the last item of <a>"},
      {kHead + "<a> = x [<b>] y; <b> = z <a>;", "line 3, column 10: ", "<b> as the last item of <a>"},
      {kHead + "<a> = x <a>*;", "line 3, column 9: ", "<a>"},
  };
  for (const auto &row : rows) {
    try {
      load(row.source);
      ADD_FAILURE() << "loaded: " << row.source;
    } catch (const std::runtime_error &error) {
      const std::string reason = error.what();
      EXPECT_EQ(reason.compare(0, row.begin.size(), row.begin), 0) << row.source << "\n" << reason;
      EXPECT_NE(reason.find(row.part, row.begin.size()), std::string::npos) << row.source << "\n" << reason;
    }
  }
}

TEST(Language, HeaderAndEncodings) {
  const struct {
    std::string source;
    std::string text;
  } rows[] = {
      {"\xEF\xBB\xBF \n#JSGF V1.0;grammar a;public <r> = \xC3\xA9t\xC3\xA9;", "ÉTÉ"},
      {"#JSGF V1.0 ISO8859-1 fr;grammar a;public <r> = \xE9t\xE9;", "été"},
      {"#JSGF V1.0 iso-8859-15;grammar a;public <r> = c\xBDur;", "CŒUR"},
      {"#JSGF V1.0 Windows-1252;grammar a;public <r> = d\x92"
       "accord;",
       "d'accord"},
      {"#JSGF V1.0 unheard-of;grammar a;public <r> = \xC3\xA9t\xC3\xA9;", "été"},
      {"#JSGF V1.0;grammar a;public <r> = \xE9t\xE9 {\xE9};", "\xE9t\xE9."},
  };
  for (const auto &row : rows) {
    EXPECT_EQ(outcome(*load(row.source), row.text).substr(0, 1), "r") << row.source;
  }
  const std::string log = load("#JSGF V1.0 ISO8859-1;\r\ngrammar a;\tpublic <r> = \xE9;")->getText();
  EXPECT_EQ(log, "#JSGF V1.0 ISO8859-1;  grammar a; public <r> = é;");
}

// Texts on both sides go through the same steps, so that a transcript meets the grammar.
TEST(Language, TextsAreComparedByTheirWords) {
  const struct {
    const char *token;
    const char *text;
    bool isMatch;
  } rows[] = {
      {"yes please", " \n“Yes,\u00A0please!” ", true},
      {"école", "ÉCOLE", true},
      {"\"Straße\"", "STRAẞE", true},
      {"Straße", "strasse", false},
      {"ωμεγα да ǆ", "ΩΜΕΓΑ ДА ǅ", true},
      {"d'accord", "D’accord", true},
      {"rock n roll", "rock 'n' roll", true},
      {"twenty-one", "Twenty one.", true},
      {"twenty one", "twenty\u2010one", true},
      {"555-1234", "555-1234.", true},
      {"555-1234", "555 1234", false},
      {"a-1", "a 1", false},
      {"co\u00ADop", "\uFEFFCo\u200Bop", true},
      {"oui", "oui !", true},
      {"oui", "- oui … ?", true},
      {"two \"+\" two", "two + two", true},
      {"two \"+\" two", "two two", false},
      {"really \"?\"", "really ?", true},
      {"c++", "c++", false},  // a grammar's c followed by operators
      {"\"c++\"", "C++.", true},
      {"#1", "1", false},
      {"a", "a b", false},
  };
  for (const auto &row : rows) {
    try {
      const auto grammar = load(kHead + "public <r> = " + row.token + ";");
      EXPECT_EQ(grammar->getMatchingPublicRule(row.text) == "r", row.isMatch) << row.token << " / " << row.text;
    } catch (const std::runtime_error &error) {
      ADD_FAILURE() << row.token << ": " << error.what();
    }
  }
}

TEST(Language, WordsAreListedOnceAsWritten) {
  const auto grammar =
      load(kHead +
           "public <r> = Yes | \"New   York\" | yes. | twenty-one | <NULL> <s>; <s> = /1/ \"twenty one\" |"
           "/0/ Zürich | /1/ new york YES \"+\"; <unused> = \"a\\\"b\" été;");
  EXPECT_EQ(grammar->getAllWords(),
            (std::vector<std::string>{"Yes", "New York", "twenty-one", "Zürich", "new", "york", "+", "a\"b", "été"}));
}

TEST(Language, StepsAreThoseOfTheTextAndRuleThatAreAskedFor) {
  const auto grammar = load(kHead + "public <r> = x {X} | y {Y}; public <s> = x {S};");
  const auto tagsOf = [&](const char *rule, const char *text) {
    std::string all;
    for (const std::string &tag : Grammar::getMatchingTags(grammar->matchesRule(grammar->getRule(rule), text))) {
      all += tag;
    }
    return all;
  };
  EXPECT_EQ(grammar->getMatchingPublicRule("x"), "r");
  EXPECT_EQ(tagsOf("r", "y"), "Y");
  EXPECT_EQ(tagsOf("s", "x"), "S");
  EXPECT_EQ(tagsOf("s", "y"), "");
  EXPECT_EQ(tagsOf("r", "x"), "X");
}

TEST(Language, StepsOutliveTheGrammar) {
  auto grammar = load(kHead + "public <r> = a {a tag longer than a small string} b;");
  std::shared_ptr<Rule> rule = grammar->getRule("r");
  MatchVector steps = grammar->matchesRule(rule, "a b");
  EXPECT_EQ(steps.size(), 3U);
  grammar.reset();
  rule.reset();
  MatchVector kept{steps[0], nullptr};
  steps.clear();
  EXPECT_EQ(Grammar::getMatchingTags(kept), (std::vector<std::string>{"a tag longer than a small string", ""}));
}

}  // namespace
