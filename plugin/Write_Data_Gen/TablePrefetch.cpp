#include "TablePrefetch.h"

namespace vdl::agent {

void TablePrefetch::askForNext() const {
  askForReadBacks();
  if (large_ && data_.readPhase) {
    data_.atomicHash.prefetchPage(choice_);
  }
}

void TablePrefetch::askForReadBacks() const {
  auto write = data_.writeFinished.begin();
  const auto end = data_.writeFinished.end();
  if (write == end) {
    return;
  }
  data_.atomicHash.prefetchEvents(write->lba, write->xferLength);
  if (++write == end) {
    return;
  }
  data_.atomicHash.prefetchRecord(write->lba);
  if (++write == end) {
    return;
  }
  data_.atomicHash.prefetchPage(write->lba);
  if (++write != end) {
    data_.atomicHash.prefetchPlace(write->lba);
  }
}

}  // namespace vdl::agent
