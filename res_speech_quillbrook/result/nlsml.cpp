#include "nlsml.h"

#include "../support/xml_escape.h"

namespace {

void write_head(FILE *file, const char *declaration, const quillbrook_nlsml &document) {
  fputs(declaration, file);
  fputs("<result grammar=\"", file);
  xml_fputs_escaped(file, document.grammar_id);
  fputs("\">\n  <interpretation grammar=\"", file);
  xml_fputs_escaped(file, document.grammar_id);
  fprintf(file, "\" confidence=\"%d\">\n", document.score);
}

// What the text means, with the provider's JSON behind it when there is some. Without an interpretation it is the text
// itself; an empty one counts as none only beside JSON.
void write_instance(FILE *file, const quillbrook_nlsml &document) {
  const char *meaning = document.interpretation;
  if (!meaning || (document.json && !meaning[0])) {
    meaning = document.text;
  }
  fputs("    <instance>", file);
  xml_fputs_escaped(file, meaning);
  if (document.json) {
    fputs("<json>", file);
    xml_fputs_escaped(file, document.json);
    fputs("</json>", file);
  }
  fputs("</instance>\n", file);
}

void write_input(FILE *file, const quillbrook_nlsml &document, const char *behind) {
  fputs("    <input mode=\"speech\">", file);
  xml_fputs_escaped(file, document.text);
  fprintf(file, "%s</input>\n  </interpretation>\n</result>\n", behind);
}

}  // namespace

void quillbrook_write_nlsml(FILE *file, const quillbrook_nlsml &document) {
  if (document.score == 0) {
    write_head(file, "<?xml version='1.0'?>\n", document);
    fputs("    <instance/>\n", file);
    write_input(file, document, "<nomatch/>");
  } else {
    write_head(file, "<?xml version=\"1.0\"?>\n", document);
    write_instance(file, document);
    write_input(file, document, "");
  }
}
