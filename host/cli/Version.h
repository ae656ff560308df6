#pragma once

namespace corvane::host {

/// The program's version, e.g. "1.2.0".
const char* programVersion();

}  // namespace corvane::host
