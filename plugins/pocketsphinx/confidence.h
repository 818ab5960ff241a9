/*
 * How far the words of a result can be trusted.
 *
 * A search that may only answer with a word of its list answers with one whatever was said. So the same frames are
 * explained a second time, by any sequence of phones whatever. A right word comes close to what free phones reach; a
 * wrong one stays behind. What is measured is that difference in log-likelihood for a frame of 10 ms, over the frames
 * that the words cover. (Phone-loop "filler" normalisation: R. C. Rose and D. B. Paul, "A hidden Markov model based
 * keyword recognition system", ICASSP 1990.)
 */
#ifndef POCKETSPHINX_CONFIDENCE_H
#define POCKETSPHINX_CONFIDENCE_H

#include <vector>

#include "decoder.h"

namespace pocketsphinx_plugin {

/*
 * Mean shortfall for a frame, in nats, of the words against the phones, both from the same frames; of the worst word
 * when there are several. Positive: the phones fit better. Fillers are left out; with no word at all, a large number.
 */
double shortfall(const std::vector<Segment> &words, const std::vector<Segment> &phones);

/* 1 to 100. The curve is fitted to recorded words inside and outside of hint lists: see README.md. */
int confidence(double shortfall);

}  // namespace pocketsphinx_plugin

#endif
