#include "agent/Answer.h"

namespace Quarle::Agent {

const char* toText(Outcome outcome) {
  switch (outcome) {
    case Outcome::placed:
      return "placed";
    case Outcome::updated:
      return "updated";
    case Outcome::unchanged:
      return "unchanged";
    case Outcome::withdrawn:
      return "withdrawn";
    case Outcome::absent:
      return "absent";
    case Outcome::refused:
      return "refused";
  }
  return "unknown";
}

}  // namespace Quarle::Agent
