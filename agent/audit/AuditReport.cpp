#include "agent/audit/AuditReport.h"

namespace Quarle::Agent {

std::string toText(const AuditFault& fault) {
  return fault.where + ": " + fault.what + (fault.reason.empty() ? "" : ": " + fault.reason);
}

}  // namespace Quarle::Agent
