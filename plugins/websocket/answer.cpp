#include "answer.h"

#include <algorithm>
#include <cmath>
#include <nlohmann/json.hpp>

#include "failure.h"
#include "json_text.h"

namespace quillbrook::websocket {

using namespace common;

namespace {

// Picks the few values wanted out of the parser's events; builds no document.
class Reader : public nlohmann::json_sax<nlohmann::json> {
public:
  Answer answer() const {
    Answer answer;
    answer.final = final_;
    answer.text = cleaned(final_ ? text_ : partial_);
    const double share = figures_ > 0 ? sum_ / figures_ : -1;
    answer.confidence =
        share < 0 ? kConfidenceWithoutFigures : std::clamp(static_cast<int>(std::lround(share * 100)), 1, 100);
    return answer;
  }

  bool null() override { return depth_ > 0; }
  bool boolean(bool) override { return depth_ > 0; }
  bool number_integer(number_integer_t value) override { return number(static_cast<double>(value)); }
  bool number_unsigned(number_unsigned_t value) override { return number(static_cast<double>(value)); }
  bool number_float(number_float_t value, const string_t &) override { return number(value); }
  bool binary(binary_t &) override { return false; }
  bool string(string_t &value) override {
    if (depth_ == 1 && root_key_ == "partial") partial_.swap(value);
    if (depth_ == 1 && root_key_ == "text") set_text(value);
    if (in_first_alternative() && item_key_ == "text") set_text(value);
    return depth_ > 0;
  }
  bool start_object(std::size_t) override {
    if (depth_ == 2) ++items_;
    return descend();
  }
  bool end_object() override { return --depth_ >= 0; }
  bool start_array(std::size_t) override { return depth_ > 0 && descend(); }
  bool end_array() override { return --depth_ >= 0; }
  bool key(string_t &key) override {
    if (depth_ == 1) {
      root_key_.swap(key);
      items_ = 0;
    } else if (depth_ == 3) {
      item_key_.swap(key);
    }
    return true;
  }
  bool parse_error(std::size_t, const std::string &, const nlohmann::detail::exception &) override { return false; }

private:
  bool descend() {
    constexpr int kDeepest = 32;
    return ++depth_ <= kDeepest;
  }
  bool in_first_alternative() const { return depth_ == 3 && items_ == 1 && root_key_ == "alternatives"; }
  void set_text(std::string &value) {
    text_.swap(value);
    final_ = true;
  }
  bool number(double value) {
    const bool figure = (depth_ == 3 && root_key_ == "result" && item_key_ == "conf") ||
                        (in_first_alternative() && item_key_ == "confidence");
    // A figure that is no probability says nothing about confidence.
    if (figure && value >= 0 && value <= 1) {
      sum_ += value;
      ++figures_;
    }
    return depth_ > 0;
  }

  int depth_ = 0;
  int items_ = 0;
  std::string root_key_;
  std::string item_key_;
  std::string partial_;
  std::string text_;
  bool final_ = false;
  double sum_ = 0;
  int figures_ = 0;
};

}  // namespace

Answer parse_answer(const std::string &json) {
  Reader reader;
  if (!nlohmann::json::sax_parse(json, &reader)) throw Failure("the server sent text that is no JSON object");
  return reader.answer();
}

}  // namespace quillbrook::websocket
