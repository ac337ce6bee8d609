#include "config/Assignment.h"

namespace lenslark {

std::vector<std::string> Assignment::mediaIDs() const {
  std::vector<std::string> ids = source.mediaIDs();
  if (overlay) ids.push_back(overlay->media);
  return ids;
}

bool Assignment::sameContent(const Assignment& other) const {
  return source == other.source && overlay == other.overlay;
}

}  // namespace lenslark
