#include "program.h"

#include <utility>

#include "compiler.h"
#include "parser.h"
#include "source_text.h"

namespace jsgf {

std::shared_ptr<const Program> Program::load(std::istream &in, RuleSharing sharing) {
  auto program = std::make_shared<Program>();
  SourceText text = readSource(in);
  program->source = std::move(text.utf8);
  const std::string_view source = program->source;
  Syntax syntax = Parser(source, text.body).parse();
  program->grammarName = syntax.grammarName;
  program->ruleIndex = RuleIndex(source, syntax);
  const Components components = resolveReferences(source, program->ruleIndex, syntax);
  Compiler(syntax, components, sharing, *program).compile();
  buildReverseTables(*program);
  program->words = std::move(syntax.words);
  program->tokens = std::move(syntax.tokens);
  program->tags = std::move(syntax.tags);
  return program;
}

}  // namespace jsgf
