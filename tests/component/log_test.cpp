// What a call writes into the log: nothing when all is well, and never a line that somebody else has thought up.
#include "ops/http_jsgf.h"
#include "session_fixture.h"
#include "result/services.h"
#include "support/printable.h"

namespace {

class LogTest : public SessionTest {};

TEST_F(LogTest, ANormalCallWritesNothing) {
  for (const char *text : {"yes", "?", ""}) {
    create();
    load_grammar("polar", "public <answer> = yes | no;\n");
    start();
    write_ms(40, 1000);
    ASSERT_TRUE(eventually([&] { return plugin.loops > 0; }));
    send("ye", QUILLBROOK_SCORE_INTERIM);
    deliver(text, text[0] == '?' ? 0 : 80);
    get();
    destroy();
    plugin.loops = 0;
  }
  EXPECT_THAT(stand_in::log_lines(), testing::IsEmpty());
  EXPECT_THAT(stand_in::verbose_lines(), testing::IsEmpty());
}

TEST_F(LogTest, NobodyElseWritesALine) {
  const std::string planted = "a\nPLANTED\x1B[2J\xC2\x9B" + std::string(3000, 'x');
  const char *evil = planted.c_str();
  verbose = debug = 1;
  engine.logtag = engine.returnnlsml = engine.completetimeout = 1;
  set(engine.ws_extra, evil);
  stand_in::answer_command("tandrel show session threadid tag", "tag\xC2\x9B");
  EXPECT_TRUE(quillbrook_jsgf_uri_link());
  stand_in::http_request("quillbrook_jsgf", AST_HTTP_GET, {{"value", planted}});
  quillbrook_jsgf_uri_unlink();
  create();
  for (const std::string &path : {planted, "property:Speech-Voice=" + planted, "builtin:grammar/model=" + planted,
                                  planted + ".jsgf", planted + ".xml", planted + ".txt"}) {
    quillbrook_recog_load_grammar(&speech, evil, path.c_str());
  }
  load_grammar(evil, "public <answer> = yes {" + planted + "};\n");
  quillbrook_recog_activate_grammar(&speech, evil);
  quillbrook_recog_change(&speech, evil, evil);
  setting(evil);
  plugin.on_end = [&](quillbrook_context *context) { copy_text(context->extra, ("ERROR: " + planted).c_str()); };
  start();
  write_ms(40, 1000);
  ASSERT_TRUE(eventually([&] { return plugin.loops > 0; }));
  context()->api_pointer = context()->extra_pointer = evil;
  for (const int score_of_it : {QUILLBROOK_SCORE_INTERIM, QUILLBROOK_SCORE_INTERIM, 80, -3}) send(evil, score_of_it);
  finish();
  get();
  quillbrook_recog_deactivate_grammar(&speech, evil);
  quillbrook_recog_unload_grammar(&speech, evil);
  quillbrook_recog_dtmf(&speech, evil);
  destroy();
  std::vector<stand_in::Line> lines = stand_in::log_lines();
  for (const stand_in::Line &line : stand_in::verbose_lines()) lines.push_back(line);
  EXPECT_GT(stand_in::mentioned("PLANTED"), 20);
  for (const auto &[level, text] : lines) {
    EXPECT_EQ(text.find_first_of("\x1B\x9B"), std::string::npos) << text;
    EXPECT_EQ(text.find("\nPLANTED"), std::string::npos) << text;
    EXPECT_LT(text.size(), 3 * kPrintableMax + 300) << text;
  }
}

// Whose call it was, and what the plugin cannot use.
TEST_F(LogTest, LinesOfAPluginNameTheCall) {
  set(engine.plugin_name, "p.so");
  plugin.on_loop = [](quillbrook_context *context) {
    for (int times = 0; times < 30; ++times) quillbrook_services_offered.complain(context, "no\nword 'x'");
  };
  create_and_start();
  ASSERT_TRUE(eventually([&] { return stand_in::mentioned("there is more") > 0; }));
  EXPECT_EQ(stand_in::logged(__LOG_WARNING, labelled("The plugin p.so says: no?word 'x'\n")), 20);
  EXPECT_EQ(stand_in::mentioned("there is more"), 1);
  EXPECT_EQ(stand_in::noted("call 1"), 1);
  plugin.on_end = [](quillbrook_context *context) { quillbrook_services_offered.complain(context, "late"); };
  destroy();
  EXPECT_EQ(stand_in::mentioned("late"), 0);
}

TEST_F(LogTest, ATickThatChangesNothingWritesNothing) {
  ast_verb_sys_level = 3;
  debug = engine.timeouts = 1;
  engine.completetimeout = 1000;
  engine.incompletetimeout = 3000;
  create_and_start();
  const auto lines = [] { return stand_in::verbose_lines().size(); };
  const auto written_by_ticks = [&] {
    const size_t before = lines();
    for (int times = 0; times < 30; ++times) {
      stand_in::advance_ms(30);
      tick();
    }
    return lines() - before;
  };
  tick();
  EXPECT_EQ(written_by_ticks(), 0U);
  send("yes", 80);
  tick();
  EXPECT_EQ(written_by_ticks(), 0U);
  // The one that ends the utterance does.
  stand_in::advance_ms(200);
  const size_t before = lines();
  tick();
  EXPECT_GT(lines(), before);
  EXPECT_EQ(get(), "yes");
  ast_verb_sys_level = 0;
}

}  // namespace
