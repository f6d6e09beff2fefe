// SPDX-License-Identifier: MIT
// The links. Slots are taken one after another and stay: an interface that has gone keeps its figures.

#include <algorithm>
#include <iterator>

#include "state/record.h"
#include "state/state.h"

void state_link(std::uint32_t index, const StateLinkFigures& figures) {
  if (gStateImage == nullptr) {
    return;
  }
  StateLink* const slot = std::ranges::find_if(
      gStateImage->links, [index](const StateLink& each) { return each.index == index || each.index == 0; });
  if (slot != std::end(gStateImage->links)) {
    const RecordWriting writing(*slot);
    slot->index = index;
    slot->figures = figures;
  }
}
