#include "Base/ErrorObject.h"

namespace korvel {

std::string ErrorObject::localizedDescription() const {
  const auto found = userInfo.find(localizedDescriptionKey);
  if (found != userInfo.end() && found->second.text() != nullptr) return *found->second.text();
  return "(" + domain + " error " + std::to_string(code) + ")";
}

}  // namespace korvel
