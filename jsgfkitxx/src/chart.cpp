#include "chart.h"

#include <algorithm>
#include <functional>

namespace quillbrook::jsgf {

size_t ItemTable::slot_of(uint32_t place) const {
  const size_t mask = slots_.size() - 1;
  size_t slot = static_cast<size_t>(place * 0x9E3779B97F4A7C15U >> 32U) & mask;
  while (slots_[slot] >= first_ && items_[slots_[slot]].place != place) {
    slot = (slot + 1) & mask;
  }
  return slot;
}

uint32_t ItemTable::find(uint32_t place) const {
  const uint32_t item = slots_[slot_of(place)];
  return item >= first_ ? item : 0;
}

uint32_t ItemTable::find_or_add(uint32_t place, uint32_t item) {
  if ((count_ + 1) * 2 > slots_.size()) {
    grow();
  }
  const size_t slot = slot_of(place);
  if (slots_[slot] >= first_) {
    return slots_[slot];
  }
  slots_[slot] = item;
  ++count_;
  return 0;
}

void ItemTable::grow() {
  CountedVector<uint32_t> old(slots_.size() * 2, 0, slots_.get_allocator());
  old.swap(slots_);
  for (const uint32_t item : old) {
    if (item >= first_) {
      slots_[slot_of(items_[item].place)] = item;
    }
  }
}

void ItemTable::restart_at(size_t first) {
  std::fill(slots_.begin(), slots_.end(), 0);
  start_at(first);
}

namespace {

// The sets of ends that places have at the last position of an open text, by number: at the text's end, behind it, or
// both.
constexpr uint32_t kNoEndsAtAll = UINT32_MAX;
constexpr uint32_t kAtTextEnd = 1;
constexpr uint32_t kBehindText = 2;
constexpr uint32_t kAtOrBehindTextEnd = 3;

}  // namespace

Chart::Chart(const Program &program, const CountedVector<uint32_t> &text, Meter &meter)
    : Chart(program, text, nullptr, meter) {
  start_position(text_length());
  items_.emplace_back(program.ends[0], kTextEnd);
  close_position();
  fill();
}

Chart::Chart(const Program &program, const CountedVector<uint32_t> &text, const OpenEnd &open_end, Meter &meter)
    : Chart(program, text, &open_end, meter) {
  keep({text_length(), text_length(), nullptr});
  keep({text_length() + 1, text_length() + 1, nullptr});
  keep({text_length(), text_length() + 1, nullptr});
  start_position(text_length());
  fill();
}

Chart::Chart(const Program &program, const CountedVector<uint32_t> &text, const OpenEnd *open_end, Meter &meter)
    : program_(program),
      text_(text),
      meter_(meter),
      items_(CountedAllocator<Item>(meter)),
      ways_(counted<Way>(meter)),
      sets_(counted<EndSet>(meter)),
      store_(meter),
      builder_(meter),
      waiting_(counted<uint64_t>(meter)),
      open_calls_(counted<OpenCall>(meter)),
      open_calls_of_callee_(counted<uint32_t>(meter)),
      returns_number_(counted<uint32_t>(meter)),
      returns_(CountedAllocator<CountedVector<Return>>(meter)),
      ended_(counted<uint32_t>(meter)),
      ended_at_(counted<uint32_t>(meter)),
      position_start_(counted(meter, text.size() + 1, 0U)),
      open_end_(open_end),
      table_(meter, items_),
      position_(text_length()) {
  constexpr size_t kMostReserved = size_t{1} << 16U;
  items_.reserve(std::min(kMostReserved, 8 * (text.size() + 1)));
  items_.emplace_back(kNowhere, kTextEnd);
  if (!program.calls.empty()) {
    open_calls_.push_back({});
    open_calls_of_callee_.resize(program.callees.size(), 0);
    returns_number_.resize(program.back_count, 0);
    returns_.push_back(counted<Return>(meter));
    ended_at_.resize(program.ends.size(), kNowhere);
  }
}

void Chart::fill() {
  uint32_t words_end = 0;
  while (position_ > 0) {
    const uint32_t from = position_start_[position_];
    const auto to = static_cast<uint32_t>(items_.size());
    start_position(position_ - 1);
    if (open_end_ != nullptr && position_ + 1 == text_length()) {
      add_last_words();
    } else {
      add_words(from, to);
    }
    words_end = static_cast<uint32_t>(items_.size());
    if (words_end == to) {
      return;
    }
    close_position();
  }
  // Other items are in the table already.
  for (uint32_t item = position_start_[0]; item < words_end; ++item) {
    table_.find_or_add(items_[item].place, item);
  }
  reaches_start_ = true;
}

void Chart::fill_table(uint32_t position, ItemTable &table) const {
  const size_t end = position == 0 ? items_.size() : position_start_[position - 1];
  table.restart_at(position_start_[position]);
  for (size_t item = position_start_[position]; item < end; ++item) {
    table.find_or_add(items_[item].place, static_cast<uint32_t>(item));
  }
}

void Chart::start_position(uint32_t position) {
  position_ = position;
  position_start_[position] = static_cast<uint32_t>(items_.size());
  table_.start_at(items_.size());
}

// Adds the places that consume the position's word and go on at one of the items `from` to `to` behind it.
void Chart::add_words(uint32_t from, uint32_t to) {
  for (uint32_t behind = from; behind < to; ++behind) {
    const Item item = items_[behind];
    if (program_.places[item.place].behind_word == 0) {
      continue;
    }
    const uint32_t place = program_.word_before(item.place, text_[position_]);
    if (place != kNowhere) {
      items_.emplace_back(place, item.ends, behind);
    }
  }
}

void Chart::add_last_words() {
  const auto add_range = [&](PlaceRange range, bool is_behind_text) {
    meter_.work(static_cast<size_t>(range.end - range.begin));
    for (const uint32_t *place = range.begin; place != range.end; ++place) {
      const uint32_t ends = ends_of_open(program_.places[*place].next, is_behind_text);
      if (ends != kNoEndsAtAll) {
        items_.emplace_back(*place, ends);
      }
    }
  };
  add_range(open_end_->last_words, false);
  add_range(open_end_->longer, true);
}

// Where the rule of a place that stands at the end of an open text, or behind it, can end, with a word or more still to
// come. Outside of callees something has to come, within them it may come behind the call as well.
uint32_t Chart::ends_of_open(uint32_t place, bool is_behind_text) const {
  const PrefixIndex &index = open_end_->index;
  const bool is_later = is_behind_text ? index.can_end(place) : index.can_speak(place);
  if (!program_.is_within_callee(place)) {
    return is_later ? kTextEnd : kNoEndsAtAll;
  }
  const bool is_now = !is_behind_text && index.can_be_silent(place);
  return is_later ? (is_now ? kAtOrBehindTextEnd : kBehindText) : (is_now ? kAtTextEnd : kNoEndsAtAll);
}

// Adds all items that reach one of the position's items without a word.
void Chart::close_position() {
  // Callees come first, from the innermost on, since a call depends on where its callee can end.
  const auto words_end = static_cast<uint32_t>(program_.calls.empty() ? 0 : items_.size());
  for (uint32_t index = position_start_[position_]; index < words_end; ++index) {
    if (items_[index].ends != kTextEnd) {
      make_wait(index);
    }
  }
  expand_waiting();
  size_t edges = 0;
  for (uint32_t index = position_start_[position_]; index < items_.size(); ++index) {
    if (items_[index].ends == kTextEnd) {
      const uint32_t place = items_[index].place;
      edges += program_.edges_begin[place + 1] - program_.edges_begin[place];
      expand_outside(index);
    }
  }
  meter_.work(items_.size() - position_start_[position_] + edges);
  if (!program_.calls.empty()) {
    end_callees();
  }
}

// Adds what ends right here: the callees of calls that can go on here. Nothing that was added before depends on it, for
// whether a callee can be empty is known.
void Chart::end_callees() {
  ends_callees_ = true;
  const uint32_t here = ended_.empty() ? 0 : keep({position_, position_, nullptr});
  for (size_t i = 0; i < ended_.size(); ++i) {
    add(program_.ends[ended_[i]], here);
    expand_waiting();
  }
  ended_.clear();
  ends_callees_ = false;
  for (size_t index = position_start_[position_]; index < items_.size(); ++index) {
    const Place &place = program_.places[items_[index].place];
    if (static_cast<PlaceKind>(place.kind) == PlaceKind::kCall) {
      items_[index].target = table_.find(program_.callees[program_.calls[place.value].callee].entry);
    }
  }
}

void Chart::make_wait(uint32_t index) {
  if (items_[index].is_waiting == 0) {
    items_[index].is_waiting = 1;
    waiting_.push_back(uint64_t{program_.ranks[items_[index].place]} << 32U | index);
    std::push_heap(waiting_.begin(), waiting_.end(), std::greater<>());
  }
}

// In the order of their ranks an item has all its ends when it's expanded, except where a rule can go round without a
// word; there it's expanded again.
void Chart::expand_waiting() {
  while (!waiting_.empty()) {
    std::pop_heap(waiting_.begin(), waiting_.end(), std::greater<>());
    const auto index = static_cast<uint32_t>(waiting_.back());
    waiting_.pop_back();
    items_[index].is_waiting = 0;
    expand(index);
  }
}

// Adds what leads to an item outside of callees without a word.
void Chart::expand_outside(uint32_t index) {
  const uint32_t place = items_[index].place;
  const Edge *end = program_.edges.data() + program_.edges_begin[place + 1];
  for (const Edge *edge = program_.edges.data() + program_.edges_begin[place]; edge != end; ++edge) {
    if (!leads_here(edge->source, index, true)) {
      continue;
    }
    const uint32_t item = table_.find_or_add(edge->source, static_cast<uint32_t>(items_.size()));
    if (item == 0) {
      items_.emplace_back(edge->source, kTextEnd, index, edge->branch);
    } else if (edge->branch < items_[item].branch) {
      items_[item].branch = edge->branch;
      items_[item].target = index;
    }
  }
}

// Adds what leads to an item within a callee without a word.
void Chart::expand(uint32_t index) {
  const uint32_t place = items_[index].place;
  const bool is_first = items_[index].is_expanded == 0;
  items_[index].is_expanded = 1;
  if (static_cast<PlaceKind>(program_.places[place].kind) == PlaceKind::kEntry && !ends_callees_) {
    complete(index);
  }
  const uint32_t end = program_.edges_begin[place + 1];
  meter_.work(1 + end - program_.edges_begin[place]);
  for (uint32_t i = program_.edges_begin[place]; i < end; ++i) {
    const Edge edge = program_.edges[i];
    if (!leads_here(edge.source, index, is_first)) {
      continue;
    }
    const uint32_t item = add(edge.source, items_[index].ends);
    const bool is_choice = static_cast<PlaceKind>(program_.places[edge.source].kind) == PlaceKind::kAlternatives;
    if (is_choice && is_first) {
      ways_.push_back({edge.branch, index, items_[item].target});
      items_[item].target = static_cast<uint32_t>(ways_.size());
    } else if (!is_choice) {
      items_[item].target = index;
    }
  }
}

// Whether a place leads to an item without a word: a call does when its callee can be empty. An item that is looked at
// for the first time is awaited by the calls that it stands behind.
bool Chart::leads_here(uint32_t source, uint32_t index, bool is_first) {
  const Place &place = program_.places[source];
  if (static_cast<PlaceKind>(place.kind) != PlaceKind::kCall) {
    return true;
  }
  if (is_first) {
    await(source, index);
  }
  return program_.callees[program_.calls[place.value].callee].can_be_empty;
}

// The item of a place that the given ends can be reached from.
uint32_t Chart::add(uint32_t place, uint32_t ends) {
  const auto next = static_cast<uint32_t>(items_.size());
  const uint32_t item = table_.find_or_add(place, next);
  if (item == 0) {
    items_.emplace_back(place, ends);
    if (ends != kTextEnd) {
      make_wait(next);
    }
    return next;
  }
  if (ends != kTextEnd) {
    unite_ends(item, ends);
  }
  return item;
}

uint32_t Chart::keep(const EndSet &set) {
  sets_.push_back(set);
  return static_cast<uint32_t>(sets_.size());
}

void Chart::unite_ends(uint32_t index, uint32_t ends) {
  const EndSet &old = ends_of(items_[index]);
  const EndSet &more = sets_[ends - 1];
  if (items_[index].ends == ends || is_within(more, old)) {
    return;
  }
  items_[index].ends = is_within(old, more) ? ends : keep(store_.unite(old, more));
  make_wait(index);
}

// The place behind a call was reached: its callee has to end here.
void Chart::await(uint32_t call, uint32_t back) {
  const Call &made = program_.calls[program_.places[call].value];
  const uint32_t component = program_.callees[made.callee].component;
  if (ended_at_[component] != position_) {
    ended_at_[component] = position_;
    ended_.push_back(component);
  }
  uint32_t &number = returns_number_[made.back_number];
  if (number == 0) {
    number = static_cast<uint32_t>(returns_.size());
    returns_.push_back(counted<Return>(meter_));
  }
  CountedVector<Return> &returns = returns_[number];
  if (returns.empty() || returns.back().position != position_) {
    returns.push_back({position_, back});
  }
  if (returns.size() == 1) {
    open_calls_.push_back({call, open_calls_of_callee_[made.callee]});
    open_calls_of_callee_[made.callee] = static_cast<uint32_t>(open_calls_.size() - 1);
  }
}

// A callee's entry was reached: calls that can go on where it ends can be made here. Those that go on right here are
// no matter of this (see end_callees).
void Chart::complete(uint32_t entry) {
  const uint32_t callee = program_.places[items_[entry].place].next;
  const EndSet ends = ends_of(items_[entry]);
  if (open_end_ != nullptr) {
    // Behind the text every call can go on.
    open_end_->index.for_each_call(callee, [&](uint32_t place) { complete_call(place, ends); });
    return;
  }
  for (uint32_t open = open_calls_of_callee_[callee]; open != 0; open = open_calls_[open].next) {
    complete_call(open_calls_[open].place, ends);
  }
}

void Chart::complete_call(uint32_t place, const EndSet &ends) {
  meter_.work();
  const Call &call = program_.calls[program_.places[place].value];
  const uint32_t last_end = text_length() + (open_end_ == nullptr ? 0 : 1);
  builder_.clear();
  uint32_t found = kNoEndsAtAll;
  // False once no other return can add anything.
  const auto add_ends = [&](uint32_t more) {
    found = more;
    if (found == kTextEnd) {
      return false;
    }
    builder_.add(sets_[found - 1]);
    const EndSet &all = builder_.set();
    return all.bits != nullptr || all.low > position_ + 1 || all.high < last_end;
  };
  for (uint32_t end = last_end; open_end_ != nullptr && end >= text_length() && found != kTextEnd; --end) {
    const uint32_t open = contains(ends, end) ? ends_of_open(call.back.place, end == last_end) : kNoEndsAtAll;
    if (open != kNoEndsAtAll) {
      add_ends(open);
    }
  }
  if (found != kTextEnd) {
    for_each_return(call, ends, position_ + 1, [&](const Return &back) { return add_ends(items_[back.item].ends); });
  }
  if (found != kNoEndsAtAll) {
    add(place, found == kTextEnd ? kTextEnd : keep(store_.copy(builder_.set())));
  }
}

}  // namespace quillbrook::jsgf
