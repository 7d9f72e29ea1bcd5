// The tables of the match finder in the encoder's record, between its calls.
#ifndef ZEBDC_DEFLATE_MATCH_TABLES_H
#define ZEBDC_DEFLATE_MATCH_TABLES_H

#include <stdint.h>

#include "deflate/encoder_state.h"
#include "kernels/match_finder.h"

namespace zebdc::deflate {

// Sets all entries to noPosition.
void emptyTable(int32_t* table, int entries);

// A new numbering begins at position 0: no position is known. The links stay as they are: they are
// entered through a head only, and a position is linked before a head can name it, so stale links
// are never followed.
void forgetPositions(EncoderState& state);

// Lowers every position by the same amount, so that the given one falls below 32768, and returns
// the amount. Positions that fall too far back become noPosition.
uint32_t renumber(EncoderState& state, uint32_t position);

// Notes that the positions from begin to end - 1 were passed but are in no table.
void noteSkipped(EncoderState& state, int32_t begin, int32_t end);

kernels::MatchChains chainsOf(const EncoderState& state);
kernels::MatchIndex indexOf(const EncoderState& state);

// Whether it is known which positions of the window before a position are in the tables.
bool canIndex(const EncoderState& state, int32_t position);

// Makes the index for a run and its window. The chains are gone then.
void buildIndex(EncoderState& state, const kernels::MatchRun& run);

// Makes the chains ready for a run: brings them back if they are gone, and refreshes them when the
// run would go too far without.
void prepareChains(EncoderState& state, const kernels::MatchRun& run);

}  // namespace zebdc::deflate

#endif
