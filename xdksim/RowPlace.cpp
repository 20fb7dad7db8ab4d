#include "xdksim/RowPlace.h"

namespace XdkSim {

std::string toText(const RowPlace& place) {
  std::string text;
  switch (place.kind) {
    case RowKind::prefix:
      text = familyName(place.family) + (" prefix table " + std::to_string(place.table)) + " ";
      break;
    case RowKind::nhi:
      text = familyName(place.family) + (" NHI tile " + std::to_string(place.table)) + " ";
      break;
    case RowKind::nextHop:
      text = "next-hop ";
      break;
  }
  return text + "row " + std::to_string(place.row);
}

}  // namespace XdkSim
