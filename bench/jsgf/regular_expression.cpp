#include "regular_expression.h"

#include <algorithm>
#include <map>

namespace {

class Translator {
public:
  explicit Translator(const std::string &jsgf) {
    std::string text;
    for (size_t i = 0; i < jsgf.size(); ++i) {
      if (jsgf.compare(i, 2, "//") == 0) {
        i = jsgf.find('\n', i);
      } else if (jsgf[i] != '"') {
        text += jsgf[i];
      }
    }
    size_t at = text.find(';', text.find("grammar "));
    std::string target;
    for (size_t open = text.find('<', at); open != std::string::npos; open = text.find('<', at)) {
      const size_t close = text.find('>', open);
      const size_t equals = text.find('=', close);
      const size_t end = text.find(';', equals);
      const std::string name = text.substr(open + 1, close - open - 1);
      rules_[name] = text.substr(equals + 1, end - equals - 1);
      if (text.compare(open - 7, 6, "public") == 0) {
        target = name;
      }
      at = end;
    }
    Cursor rule{rules_.at(target)};
    pattern = alternatives(rule);
  }

  std::string pattern;

private:
  struct Cursor {
    const std::string &text;
    size_t at = 0;
    bool skip() {
      at = text.find_first_not_of(" \n\t", at);
      return at != std::string::npos;
    }
  };

  std::string alternatives(Cursor &in) {
    std::string all;
    std::string last;
    while (in.skip() && in.text[in.at] != ')' && in.text[in.at] != ']') {
      const char c = in.text[in.at++];
      switch (c) {
        case '|':
          all += last + "|";
          last.clear();
          continue;
        case '/':
          in.at = in.text.find('/', in.at) + 1;  // weights don't change what is accepted
          continue;
        case '*':
        case '+':
          last.replace(item_, std::string::npos, "(?:" + last.substr(item_) + ")" + c);
          continue;
        case '{':
          in.at = in.text.find('}', in.at) + 1;
          last.replace(item_, std::string::npos, "(" + last.substr(item_) + ")");
          continue;
        default:
          break;
      }
      const size_t begin = last.size();
      if (c == '(' || c == '[') {
        last += "(?:" + alternatives(in) + (c == '(' ? ")" : ")?");
        ++in.at;
      } else if (c == '<') {
        const size_t close = in.text.find('>', in.at);
        Cursor rule{rules_.at(in.text.substr(in.at, close - in.at))};
        last += "(?:" + alternatives(rule) + ")";
        in.at = close + 1;
      } else {
        const size_t end = std::min(in.text.find_first_of(" \n\t|*+<>()[]{}", in.at), in.text.size());
        last += "(?:" + in.text.substr(in.at - 1, end - in.at + 1) + " )";
        in.at = end;
      }
      item_ = begin;
    }
    return all + last;
  }

  std::map<std::string, std::string> rules_;
  size_t item_ = 0;  // where the last item of the current alternative begins
};

}  // namespace

std::string to_regular_expression(const std::string &jsgf) {
  return Translator(jsgf).pattern;
}
