#include "host/cli/FaultsCommand.h"

#include "host/cli/ExitStatus.h"
#include "host/fault/FaultSpec.h"

namespace corvane::host {

int showFaultClasses(Console& out) {
  out.line("Classes of faults, for 'corvane run --fault CLASS:rate=R' or '--fault CLASS:at=command:N':");
  out.write(faultClassesHelp());
  out.line("Further keys, behind a comma: most=N ends after so many, drive=N is about one drive of the test only.");
  return exit_status::clean;
}

}  // namespace corvane::host
