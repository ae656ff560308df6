#include "tests/drive/ConformanceKinds.h"

namespace corvane::host {

std::vector<Kind> fileKinds() {
  return {addressKind("File", "file:FILE,size=8m"),
          addressKind("FileBuffered", "file:FILE,size=8m,direct=off"),
          addressKind("FileThreads", "file:FILE,size=8m,engine=threads"),
          addressKind("FileSync", "file:FILE,size=8m,engine=sync"),
          addressKind("FileSyncBuffered", "file:FILE,size=8m,direct=off,engine=sync"),
          addressKind("FileProtection", "file:FILE,size=8519680,pi=8"),
          addressKind("File4096", "file:FILE,size=32m,block=4096")};
}

}  // namespace corvane::host
