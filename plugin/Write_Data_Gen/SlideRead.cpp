#include "Scheduling.h"

namespace vdl::agent {

void slideRead(DriveData& data, uint64_t& lba, uint32_t& xferLength, bool skipCommands) {
  const uint64_t draw = data.rng();
  if ((draw >> 62 & 1) == 0) {
    return;
  }
  const uint64_t step = skipCommands ? 2 : 1;
  const uint64_t write = lba;
  const uint64_t writeLength = xferLength;
  const uint64_t readLength = *data.xferLength;
  xferLength = *data.xferLength;

  // From the start whose last block meets the write's first, to the start on the write's last block.
  uint64_t low = write + step - step * readLength;
  if (low > write || low < *data.minLBA) {
    low = *data.minLBA;
  }
  uint64_t high = write - step + step * writeLength;
  if (high > *data.maxLBA) {
    high = *data.maxLBA + step - step * readLength;
  }
  if (skipCommands) {
    high -= (high ^ write) & 1;
    low += (low ^ write) & 1;
  }
  // A shorter read stays where it starts inside the write, a longer one where it covers the write's start.
  const uint64_t from = writeLength > readLength ? write : low;
  const uint64_t to = writeLength < readLength ? write : high;
  if (from < to) {
    lba = from + step * (draw % ((to - from) / step + 1));
  }
}

}  // namespace vdl::agent
