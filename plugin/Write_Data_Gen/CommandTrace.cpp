#include "CommandTrace.h"

#include <cstdlib>

namespace vdl {

// Not the C library's assert: a trace that writes out of bounds must stop a release build, too.
void CommandTrace::fail(const char* expression, const char* operation) {
  std::fprintf(stderr, "plugin/Write_Data_Gen/CommandTrace: %s: Assertion `%s' failed.\n", operation, expression);
  std::abort();
}

const char* traceTypeName(TraceType type) {
  switch (type) {
    case TraceType::WriteIssued:
      return "Write_Issued";
    case TraceType::WriteFinished:
      return "Write_Finished";
    case TraceType::WriteAborted:
      return "Write_ABORTED";
    case TraceType::WriteAtomicIssued:
      return "WriteAtomic_Issued";
    case TraceType::WriteSameIssued:
      return "WriteSame_Issued";
    case TraceType::TrimIssued:
      return "Trim_Issued";
    case TraceType::PreReadIssued:
      return "Pre-Read_Issued";
    case TraceType::ReadIssued:
      return "Read_Issued";
    case TraceType::ReadFinished:
      return "Read_Finished";
    case TraceType::ReadAborted:
      return "Read_ABORTED";
    case TraceType::VerifyIssued:
      return "Verify_Issued";
    case TraceType::VerifyFinished:
      return "Verify_Finished";
    case TraceType::VerifyAborted:
      return "Verify_ABORTED";
    case TraceType::Miscompare:
      return "Miscompare";
    case TraceType::WriteSplice:
      return "Write Splice";
    case TraceType::RecvOutOfOrder:
      return "Recv Out Of Order";
    case TraceType::PowerToggleOff:
      return "Power Toggle Off";
    case TraceType::PowerToggleOn:
      return "Power Toggle On";
    case TraceType::SyncIssued:
      return "Sync Cache Issued";
    case TraceType::SyncFinished:
      return "Sync Cache Finished";
    case TraceType::InvalidateRange:
      return "Invalidate Range";
    case TraceType::ZoneReset:
      return "Zone Reset";
    case TraceType::Unknown:
      break;
  }
  return "Unknown";
}

}  // namespace vdl
