// What the language means: each table row is a grammar, texts, and what has to come out.

#include <jsgfkitxx.h>

#include <algorithm>
#include <memory>
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

// The winning rule with its tags in braces, "-" for no match.
std::string outcome(const Grammar &grammar, const std::string &text) {
  const std::string rule = grammar.getMatchingPublicRule(text);
  std::string shown = rule.empty() ? "-" : rule;
  for (const std::string &tag : Grammar::getMatchingTags(grammar.matchesRule(grammar.getRule(rule), text))) {
    shown += tag.empty() ? "" : "{" + tag + "}";
  }
  return shown;
}

TEST(Language, RulesAcceptTextsAndGiveTags) {
  // rules; text => the winning rule and its tags, or - for no match
  const std::pair<std::string, std::vector<std::string>> rows[] = {
      // Expansions and precedence.
      {"public <a> = tea | iced tea {I};", {"tea => a", "iced tea => a{I}", "iced => -", "tea tea => -"}},
      {"public <a> = knock on wood *;", {"knock on => a", "knock on wood wood => a", "knock on wood on wood => -"}},
      {"public <a> = knock (on wood) +;", {"knock => -", "knock on wood on wood => a"}},
      {"public <a> = knock \"on wood\" *;", {"knock => a", "knock on wood on wood => a", "knock on => -"}},
      {"public <a> = (a)(b)[c]<d>{T}e; <d> = d;", {"a b d e => a{T}", "a b c d e => a{T}"}},
      {"public <p> = public transport grammar import;", {"Public Transport, grammar import! => p"}},
      {"public <a> = a*+ {T};", {"a => a{T}", "a a a => a{T}"}},
      {"public <1> = <public>; <public> = x{}{ T }; public <City> = y; <city> = z;",
       {"x => 1{ T }", "y => City", "z => -"}},
      {"public <a> = 3/4 | don't /x/ | 50%;", {"3/4 => a", "don’t /x/ => a", "50% => a"}},
      {"public <a> = a\"b c\"d | \"e \\\" \\\\ f\" | \"g//h\" | i\\j;",
       {"a b c d => a", "e \" \\ f => a", "g//h => a", "i\\j => a"}},
      {"public /* x */ <a> // y\r = /** @see z */ a // b\n c;", {"a c => a", "a => -"}},
      {"<private> = x;", {"x => -"}},
      {"public <a,b;c=d|(e)> = x {T};", {"x => a,b;c=d|(e){T}"}},
      // Tags come in the order of the written-out sentence.
      {"public <a> = (lift {U} | lower {D}) [(it {I} slowly) {S}];", {"lower it slowly => a{D}{I}{S}", "lift => a{U}"}},
      {"public <a> = a [b] {T}; public <b> = c [d {T}];", {"a => a{T}", "c => b", "c d => b{T}"}},
      {"public <a> = (x {T})* y; public <b> = (z {T}) * {E};", {"x x y => a{T}{T}", "z z => b{T}{T}{E}", "y => a"}},
      {"public <a> = p {p} <b> q {q}; <b> = x {x} <b> {T} | <c>; <c> = y {y} [<b> {C}];",
       {"p x x y q => a{p}{x}{x}{y}{T}{T}{q}", "p y x y q => a{p}{y}{x}{y}{T}{C}{q}"}},
      {"public <a> = x {a\\}b} | y {a\\b\\\\\n // \"{};", {"x => a{a}b}", "y => a{a\\b\\\n // \"{}"}},
      {"public <a> = <NULL> {T} a;", {"a => a{T}"}},
      // Weights, and the first of several rules.
      {"public <a> = /2.5e-1/ x {1} | / 0.25f / x {2} | /0/ y | /0.0/ x {0};", {"x => a{1}", "y => -"}},
      {"public <a> = x | y; public <b> = x {T} | y {}; public <c> = x {T};", {"x => b{T}", "y => a"}},
      // Rules that say nothing or cannot be said.
      {"public <a> = go <VOID> | stay;", {"stay => a", "go => -"}},
      {"public <a> = <VOID>* x <VOID>+ | [<VOID>] y;", {"y => a", "x => -"}},
      {"public <a> = [x] | <NULL>;", {"x => a", " => -", " .,  => -"}},
      {"public <a> = <a>; public <b> = x <b>;", {"x => -"}},
      {"public <c> = <act> | <act> and <c>; <act> = go | <stop>; <stop> = stop [<stop>];",
       {"go and stop stop and go => c", "go and => -"}},
      {"public <a> = [um] <a> | go {G};", {"um um go => a{G}", "um => -"}},
      {"public <x> = one | <y>; public <y> = two <x>;", {"two two one => x", "two => -"}},
  };
  for (const auto &[rules, outcomes] : rows) {
    const auto grammar = load(kHead + rules);
    for (const std::string &expected : outcomes) {
      const std::string text = expected.substr(0, expected.find(" => "));
      EXPECT_EQ(text + " => " + outcome(*grammar, text), expected) << rules;
    }
  }
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
    EXPECT_EQ(outcome(*grammar, text), "order{T}");
  }
  EXPECT_EQ(outcome(*grammar, "a"), "-");
  for (const char *name : {"order", "<order>", "drinks.order", "com.acme.drinks.order", "<drink>"}) {
    EXPECT_NE(grammar->getRule(name), nullptr) << name;
  }
  for (const char *name : {"", "<>", "Order", "mine.order", "acme.drinks.order"}) {
    EXPECT_EQ(grammar->getRule(name), nullptr) << name;
  }
  const std::shared_ptr<Rule> rules[] = {grammar->getRule("drink"), nullptr, load(source)->getRule("order")};
  for (const auto &rule : rules) {  // a private rule, none, another grammar's
    EXPECT_TRUE(grammar->matchesRule(rule, "tea").empty());
  }
}

// A ^ in a source stands where the fault is; rules stand behind the head.
TEST(Language, RefusesWithLineColumnAndReason) {
  const std::pair<std::string, std::vector<std::string>> rows[] = {
      {"#JSGF", {"^", "^grammar a;"}},
      {"V1.0", {"#JSGF ^V2.0;\ngrammar a;"}},
      {"UTF-16", {"^#JSGF V1.0 UTF-16 en;\ngrammar a;", std::string("^\xFF\xFE#\0J\0", 7)}},
      {"found koi8-r", {"#JSGF V1.0 ^koi8-r;\ngrammar a; public <a> = \xC1;"}},
      {"'grammar'", {"#JSGF V1.0;\r\n\r\n  ^gramar a;"}},
      {"name", {"#JSGF V1.0; grammar a.^.b;", "<a^ b> = x;"}},
      {"'public'", {"#JSGF V1.0; grammar a; <r> = x; ^import <b.c>;"}},
      {"<small>", {"#JSGF V1.0; grammar a; import ^<small>;"}},
      {"';'", {"#JSGF V1.0^\ngrammar a;", "<a> = été @ ^= x;", "<a> = x^);", "<a> = x^"}},
      {"expected ')'", {"<a> = (x^];", "<a> = (x^;"}},
      {"a token, a rule name or a group",
       {"<a> = ^;", "<a> = a | ^| b;", "<a> = x (^);", "<a> = [^];", "<a> = ^{T} a;", "<a> = ^* a;"}},
      {"found the end of the file", {"<a> = x ^{T;", "<a> = ^\"x;", "<a> = x; ^/* y", "<a> = ^/1 x;"}},
      {"expected a word", {"<a> = ^\" \";"}},
      {"weight", {"<a> = /1/ x | ^y;", "<a> = x | ^/1/ y;", "<a> = (^/-1/ x);", "<a> = ^/one/ x;"}},
      {"weight above 0", {"<a> = /0/ x | /0/ y^;"}},
      {"expected a new rule name, found <a>", {"<a> = x; <^a> = y;"}},
      {"expected a simple rule name", {"<^NULL> = x;", "<^drinks.a> = x;"}},
      {"expected a defined rule, found <", {"<a> = ^<b>;", "<a> = ^<other.b>;"}},
      {"<a> as the last item of <a>", {"<a> = ^<a> x | y;", "<a> = x ^<a>*;"}},
      {"<b> as the last item of <a>", {"<a> = x [^<b>] y; <b> = z <a>;"}},
  };
  for (const auto &[part, sources] : rows) {
    for (const std::string &marked : sources) {
      std::string source = marked[0] == '<' ? kHead + marked : marked;
      const std::string before = source.substr(0, source.find('^'));
      source.erase(before.size(), 1);
      const std::string line = before.substr(before.rfind('\n') + 1);
      const auto is_character = [](char byte) { return (byte & 0xC0) != 0x80; };
      const std::string begin = "line " + std::to_string(1 + std::count(before.begin(), before.end(), '\n')) +
                                ", column " +
                                std::to_string(1 + std::count_if(line.begin(), line.end(), is_character)) + ": ";
      try {
        load(source);
        ADD_FAILURE() << "loaded: " << source;
      } catch (const std::runtime_error &error) {
        const std::string reason = error.what();
        EXPECT_EQ(reason.substr(0, begin.size()), begin) << source << "\n" << reason;
        EXPECT_NE(reason.find(part, begin.size()), std::string::npos) << source << "\n" << reason;
      }
    }
  }
}

TEST(Language, HeaderAndEncodings) {
  const std::pair<std::string, std::string> rows[] = {
      // the source up to the token, the text
      {"\xEF\xBB\xBF \n#JSGF V1.0;grammar a;public <r> = \xC3\xA9t\xC3\xA9", "ÉTÉ"},
      {"#JSGF V1.0 ISO8859-1 fr;grammar a;public <r> = \xE9t\xE9", "été"},
      {"#JSGF V1.0 iso-8859-15;grammar a;public <r> = c\xBDur", "CŒUR"},
      {"#JSGF V1.0 Windows-1252;grammar a;public <r> = d\x92o", "d'o"},
      {"#JSGF V1.0 cp1252;grammar a;public <r> = d\x92o", "d'o"},
      {"#JSGF V1.0 Latin_9;grammar a;public <r> = c\xBDur", "CŒUR"},
      {"#JSGF V1.0 unheard-of;grammar a;public <r> = ete", "ete"},
      {"#JSGF V1.0;grammar a;public <r> = \xE9t\xE9 {\xE9}", "\xE9t\xE9."}};
  for (const auto &[source, text] : rows) {
    EXPECT_EQ(outcome(*load(source + ";"), text).substr(0, 1), "r") << source;
  }
  const std::string log = load("#JSGF V1.0 ISO8859-1;\r\ngrammar a;\tpublic <r> = \xE9;")->getText();
  EXPECT_EQ(log, "#JSGF V1.0 ISO8859-1;  grammar a; public <r> = é;");
}

// Texts on both sides go through the same steps, so that a transcript meets the grammar.
TEST(Language, TextsAreComparedByTheirWords) {
  const struct {
    const char *tokens;
    std::vector<const char *> matches, others;
  } rows[] = {
      {"yes please", {" \n“Yes,\u00A0please!” "}, {"yes please now", "yes"}},
      {"école", {"ÉCOLE"}, {"ecole"}},
      {"Straße", {"\"STRAẞE\""}, {"strasse"}},
      {"ωμεγα да ǆ ꙁ ⱡ", {"ΩΜΕΓΑ ДА ǅ Ꙁ Ⱡ"}, {}},
      {"d'accord", {"D’accord"}, {}},
      {"rock n roll", {"rock 'n' roll"}, {}},
      {"twenty-one", {"Twenty one.", "twenty\u2010one"}, {"twentyone"}},
      {"555-1234", {"555-1234."}, {"555 1234"}},
      {"a-1", {"A-1"}, {"a 1"}},
      {"co\u00ADop", {"\uFEFFCo\u200Bop"}, {}},
      {"oui", {"oui !", "- oui … ?"}, {}},
      {"two \"+\" two %", {"two + two %", "two + two %!"}, {"two two %"}},
      {"really \"?\"", {"really ?"}, {"really?"}},
      {"\"ça va ?\"", {"Ça va ?", "Ça va?", "ça va"}, {"va"}},
      {"c++", {"c"}, {"c++"}},  // a grammar's c followed by operators
      {"\"c++\"", {"C++."}, {"c"}},
      {"#1", {"#1"}, {"1"}},
      // Accents of their own, and the punctuation of other scripts.
      {"été İ", {"e\u0301te\u0301 i", "ÉTE\u0301 İ"}, {"ete i"}},
      {"e\u0301te\u0301", {"été"}, {"ete"}},
      {"はい", {"はい。", "「はい」！", "はい\u3000"}, {"いい"}},
      {"是 谢谢", {"是。谢谢！", "「是」谢谢"}, {"是谢谢"}},
      {"نعم", {"نعم؟", "\u200Fنعم،"}, {}},
      {"100％ §5", {"100％! §5"}, {"100 5"}},
      // Figures that the grammar doesn't have are taken apart.
      {"1 2 3 4", {"1234", "12 34", "1,234", "12:34.", "12-34", "#12/34%"}, {"12345", "-1234", "1234a", "1２34"}},
      {"1 2 | 12", {"12", "1 2", "1-2"}, {"1212"}},
      {"12 30 pm", {"12:30pm", "12.30 PM"}, {"12:3 pm", "123 pm"}},
      {"50 % | 5 \"$\" 3", {"50%", "5$3"}, {"50", "53", "5 3"}},
      {"covid 1 9", {"COVID-19"}, {"covid-"}},
  };
  for (const auto &row : rows) {
    const auto grammar = load(kHead + "public <r> = " + row.tokens + ";");
    for (const char *text : row.matches) {
      EXPECT_EQ(grammar->getMatchingPublicRule(text), "r") << row.tokens << " / " << text;
    }
    for (const char *text : row.others) {
      EXPECT_EQ(grammar->getMatchingPublicRule(text), "") << row.tokens << " / " << text;
    }
  }
}

// What random grammars don't have: real words, and callers who are in the middle of one.
TEST(Language, TextsThatGoOnAreToldFromThoseThatCannot) {
  using quillbrook::jsgf::LastWord;
  using quillbrook::jsgf::Viability;
  const auto pin = load(kHead +
                        "public <pin> = <d> <d> <d> [please] {P}; <d> = one | two | forty-two; public <v> = <w>;"
                        "<w> = <VOID> | stop <w>; public <t> = 12 | 1 2 1 2 | 12 30 pm;");
  const struct {
    const char *text;
    Viability whole, growing;
  } rows[] = {
      {"", Viability::kBeginning, Viability::kBeginning},
      {" . ", Viability::kBeginning, Viability::kBeginning},
      {"One, t", Viability::kImpossible, Viability::kBeginning},
      {"one t ", Viability::kImpossible, Viability::kImpossible},
      {"one two forty", Viability::kBeginning, Viability::kBeginning},
      {"one two one.", Viability::kCompleteSoFar, Viability::kCompleteSoFar},
      {"one two one PLEASE", Viability::kComplete, Viability::kComplete},
      {"one two one please one", Viability::kImpossible, Viability::kImpossible},
      {"on e two", Viability::kImpossible, Viability::kImpossible},
      {"1", Viability::kBeginning, Viability::kBeginning},
      {"12", Viability::kCompleteSoFar, Viability::kCompleteSoFar},
      {"121", Viability::kBeginning, Viability::kBeginning},
      {"1213", Viability::kImpossible, Viability::kImpossible},
      {"1212", Viability::kComplete, Viability::kComplete},
      {"12:3", Viability::kImpossible, Viability::kBeginning},
      {"12:30", Viability::kBeginning, Viability::kBeginning},
      {"12:30p", Viability::kImpossible, Viability::kBeginning},
      {"no 12:30p", Viability::kImpossible, Viability::kImpossible},
      {"stop", Viability::kImpossible, Viability::kImpossible},  // nobody ever gets to the end of <w>
  };
  for (const auto &row : rows) {
    EXPECT_EQ(pin->getViability(row.text, LastWord::kIsWhole), row.whole) << row.text;
    EXPECT_EQ(pin->getViability(row.text, LastWord::kMayGrow), row.growing) << row.text;
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
  EXPECT_EQ(grammar->getMatchingPublicRule("x"), "r");
  const auto tags_of = [&](const char *rule, const char *text) {
    return Grammar::getMatchingTags(grammar->matchesRule(grammar->getRule(rule), text));
  };
  using Tags = std::vector<std::string>;
  EXPECT_EQ(tags_of("r", "y"), (Tags{"Y", ""}));
  EXPECT_EQ(tags_of("s", "x"), (Tags{"S", ""}));
  EXPECT_EQ(tags_of("s", "y"), Tags());
  EXPECT_EQ(tags_of("r", "x"), (Tags{"X", ""}));
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
