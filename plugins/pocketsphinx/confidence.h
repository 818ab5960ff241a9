// How far the words of a result can be trusted.
//
// A search that may only answer with a word of its list answers with one whatever was said. So the same frames are
// explained a second time, by any sequence of phones whatever. A right word comes close to what free phones reach; a
// wrong one stays behind. What is measured is that difference in log-likelihood for a frame of 10 ms. (Phone-loop
// "filler" normalisation: R. C. Rose and D. B. Paul, "A hidden Markov model based keyword recognition system", ICASSP
// 1990.) The search gives speech that fits no word to its silence model, so silence is part of the comparison.
#pragma once

#include <vector>

#include "decoder.h"

namespace quillbrook::pocketsphinx {

// In nats for a frame of words; positive when the phones fit better. Both explain the same frames. The greater of two
// figures: the shortfall of the worst word in its own frames, and that of the whole utterance. With no word at all, a
// large number.
double shortfall(const std::vector<Segment> &words, const std::vector<Segment> &phones);

// 1 to 100. The curve is fitted to recorded words inside and outside of hint lists: see README.md.
int confidence(double shortfall);

// Any sound finds words of a whole language that fit it about as well as phones do, right or wrong. So with the
// language model every final has the share of words that are right on average.
constexpr int kLanguageModelConfidence = 40;

}  // namespace quillbrook::pocketsphinx
