#include "program.h"

#include <deque>
#include <utility>

#include "compiler.h"
#include "imports.h"
#include "parser.h"
#include "refusal.h"
#include "source_text.h"

namespace quillbrook::jsgf {

namespace {

// Takes the imported rules out that no rule of the first file needs: their words and tokens are none of the grammar's.
void keep_what_is_needed(Parser &parser) {
  Syntax &syntax = parser.syntax();
  std::vector<bool> is_needed(syntax.rules.size(), false);
  std::vector<uint32_t> open;
  const auto need = [&](uint32_t rule) {
    if (!is_needed[rule]) {
      is_needed[rule] = true;
      open.push_back(rule);
    }
  };
  for (uint32_t rule = 0; rule < syntax.files[0].rules_end; ++rule) {
    need(rule);
  }
  while (!open.empty()) {
    const RuleDefinition &rule = syntax.rules[open.back()];
    open.pop_back();
    for (uint32_t at = rule.begin; at < rule.end; ++at) {
      if (syntax.symbols[at].kind == SymbolKind::kReference) {
        need(syntax.references[syntax.symbols[at].value].target);
      }
    }
  }
  for (const ImportedToken &token : syntax.imported_tokens) {
    if (is_needed[token.rule]) {
      parser.list_imported(token);
    }
  }
  Vocabulary words;
  for (uint32_t number = 0; number < syntax.rules.size(); ++number) {
    RuleDefinition &rule = syntax.rules[number];
    rule.is_public = rule.is_public && rule.file == 0;
    rule.end = is_needed[number] ? rule.end : rule.begin;
    for (uint32_t at = rule.begin; at < rule.end; ++at) {
      Symbol &symbol = syntax.symbols[at];
      if (symbol.kind == SymbolKind::kWord) {
        symbol.value = words.add(syntax.words[symbol.value]);
      }
    }
  }
  syntax.words = std::move(words);
}

}  // namespace

std::shared_ptr<const Program> Program::load(std::istream &in, RuleSharing sharing, const ImportFolders *imports) {
  auto program = std::make_shared<Program>();
  SourceText text = read_source(in);
  program->source = std::move(text.utf8);
  Parser parser;
  parser.parse(program->source, text.body);
  Syntax &syntax = parser.syntax();
  std::deque<std::string> imported_sources;
  if (imports != nullptr) {
    program->imported_files = follow_imports(parser, *imports, imported_sources);
  }
  std::vector<RuleIndex> indexes;
  for (uint32_t file = 0; file < syntax.files.size(); ++file) {
    in_file(syntax, file, [&] { indexes.emplace_back(syntax, file); });
  }
  const Components components = resolve_references(indexes, syntax);
  if (syntax.files.size() > 1) {
    keep_what_is_needed(parser);
  }
  program->grammar_name = syntax.files[0].grammar_name;
  program->rule_index = std::move(indexes[0]);
  Compiler(syntax, components, sharing, *program).compile();
  program->rules.resize(syntax.files[0].rules_end);
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
