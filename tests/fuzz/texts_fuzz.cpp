// Each line of the input is a final piece of an utterance, the first character the form of the result. Texts that may
// be anything must give documents that standard parsers read, with what was said in them.

#include <expat.h>

#include <nlohmann/json.hpp>

#include "fuzzed_session.h"

#include "support/accents.h"
#include "support/bounded_text.h"
#include "support/json_escape.h"
#include "support/printable.h"

namespace {

using fuzzed::require;
using nlohmann::json;

bool is_utf8(const std::string &text) {
  try {
    return !json(text).dump().empty();
  } catch (const json::exception &) {
    return false;
  }
}

// Into a buffer of its own, so that a byte too many is seen.
void escape(const std::string &text) {
  for (const size_t size : {text.size(), text.size() + 1, 6 * text.size() + 1}) {
    const std::unique_ptr<char[]> escaped(new char[size]);
    const bool fits = json_escape_unicode_copy(escaped.get(), text.c_str(), size);
    if (!fits || !is_utf8(text)) continue;
    require(json::parse("\"" + std::string(escaped.get()) + "\"") == text, "JSON says something else");
  }
}

void shorten(const std::string &text) {
  char cut[8];
  copy_text(cut, text.c_str());
  const size_t length = strlen(cut), room = sizeof(cut) - 1;
  require(text.compare(0, length, cut) == 0, "a copy is no beginning");
  require(!is_utf8(text) || is_utf8(cut), "half a character");
  // The character that did not fit has four bytes at most; what is no UTF-8 is not shortened for the sake of one.
  require(length + 3 >= std::min(text.size(), room), "a copy ends early");
  const Printable printable(text);
  const std::string shown = printable.text();
  require(shown.size() <= kPrintableMax, "too long to print");
  require(std::none_of(shown.begin(), shown.end(), [](unsigned char c) { return c < ' ' || c == 0x7F; }),
          "a control character is shown");
}

void strip_accents(const std::string &text) {
  const std::string plain = removeAccentsUTF8(text);
  require(plain.size() <= text.size(), "letters grow");
  require(!is_utf8(text) || is_utf8(plain), "half a letter");
}

std::string input_of(const std::string &document) {
  struct Reading {
    bool inside = false;
    std::string text;
  } reading;
  XML_Parser parser = XML_ParserCreate(nullptr);
  XML_SetUserData(parser, &reading);
  XML_SetElementHandler(
      parser,
      [](void *data, const char *name, const char **) {
        static_cast<Reading *>(data)->inside = strcmp(name, "input") == 0;
      },
      [](void *data, const char *) { static_cast<Reading *>(data)->inside = false; });
  XML_SetCharacterDataHandler(parser, [](void *data, const char *text, int length) {
    auto *seen = static_cast<Reading *>(data);
    if (seen->inside) seen->text.append(text, length);
  });
  require(XML_Parse(parser, document.data(), static_cast<int>(document.size()), 1) == XML_STATUS_OK, "no XML");
  XML_ParserFree(parser);
  return reading.text;
}

class Texts : public fuzzed::Fuzzed<SessionTest> {
public:
  explicit Texts(fuzzed::Input input) {
    const char form = input.take_choice();
    const bool with_documents = form == 'd' || form == 'x';
    engine.returnjson = form == 'j' || form == 'd';
    engine.jsonpieces = 1;
    engine.returnnlsml = form != 't';
    engine.normalize_phrases = form == 'a';
    engine.completetimeout = 1000;  // pieces are gathered until the finish
    engine.incompletetimeout = 3000;
    create();
    quillbrook_recog_activate_grammar(&speech, "a<b");
    start();
    std::vector<std::string> pieces;
    while (!input.is_empty()) {
      const std::string piece = input.take_line().c_str();
      escape(piece);
      shorten(piece);
      strip_accents(piece);
      context()->api_pointer = form == 'x' ? piece.c_str() : nullptr;
      context()->extra_pointer = with_documents ? piece.c_str() : nullptr;
      send(piece.c_str(), 80);
      pieces.push_back(piece);
    }
    finish();
    const std::string result = queued() ? get() : "";
    if (!result.empty() && form != 't') check(stand_in::file_content(result), pieces);
    destroy();
  }

private:
  void check(const std::string &document, const std::vector<std::string> &pieces) {
    if (engine.returnjson) {
      const json array = json::parse(document, nullptr, false);
      require(array.is_array() && array.size() <= pieces.size(), "no JSON");
    } else {
      const std::string read = input_of(document);
      require(is_utf8(read), "a parser reads no UTF-8");
      std::string said;
      for (const std::string &piece : pieces) said += (said.empty() || piece.empty() ? "" : " ") + piece;
      const auto has_its_place = [](unsigned char c) { return c >= ' ' && c != 0xEF; };
      const bool is_plain = is_utf8(said) && std::all_of(said.begin(), said.end(), has_its_place);
      require(!is_plain || read == said, "a parser reads something else");
    }
  }
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Texts(fuzzed::Input(data, size)).require_success();
  return 0;
}
