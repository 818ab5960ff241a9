// The words of a recognition on their way to the module, and what it has had of them.
#pragma once

#include <string>

#include "link.h"

namespace quillbrook::common {

class Report {
public:
  // The link must outlive the report.
  explicit Report(Link &link) : link_(link) {}

  // The present hypothesis. False when there is nothing new in it; then the module is told nothing.
  bool interim(const std::string &words);
  // A final piece, as in Link; it replaces the hypothesis.
  void piece(const std::string &words, int confidence, const std::string &json);
  // There was speech and no words in it, or none that stand: the module would deliver a hypothesis that was withdrawn.
  // Pieces that stand are worth more than saying so.
  void nothing_understood(const std::string &json);
  // Asks for the result of the words up to now, if there are any.
  void deliver();
  // The next hypothesis is news whatever it says.
  void forget_interim() { interim_.clear(); }

  // Words that were not delivered yet.
  bool has_words() const { return heard_; }
  bool has_interim() const { return !interim_.empty(); }
  // There have been words since the recognition began: the module's timers run.
  bool has_begun() const { return begun_; }
  // There has been a result, or there is to be none for what was said up to now.
  bool is_wound_up() const { return wound_up_; }
  void set_wound_up() { wound_up_ = true; }

private:
  void hear(const std::string &words);
  void settle();

  Link &link_;
  std::string interim_;  // what the module knows, and no final has replaced
  bool begun_ = false;
  bool heard_ = false;
  bool pieces_ = false;  // some of the words are final
  bool wound_up_ = false;
};

}  // namespace quillbrook::common
