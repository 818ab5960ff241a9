#include "program.h"

#include <utility>

#include "compiler.h"
#include "parser.h"
#include "source_text.h"

namespace quillbrook::jsgf {

std::shared_ptr<const Program> Program::load(std::istream &in, RuleSharing sharing) {
  auto program = std::make_shared<Program>();
  SourceText text = read_source(in);
  program->source = std::move(text.utf8);
  const std::string_view source = program->source;
  Syntax syntax = Parser(source, text.body).parse();
  program->grammar_name = syntax.grammar_name;
  program->rule_index = RuleIndex(source, syntax);
  const Components components = resolve_references(source, program->rule_index, syntax);
  Compiler(syntax, components, sharing, *program).compile();
  build_reverse_tables(*program);
  program->words = std::move(syntax.words);
  program->tokens = std::move(syntax.tokens);
  program->tags = std::move(syntax.tags);
  return program;
}

const PrefixIndex &Program::prefix_index() const {
  std::call_once(prefix_index_built_, [this] { prefix_index_.emplace(*this); });
  return *prefix_index_;
}

}  // namespace quillbrook::jsgf
