// Placeholder until the fcurve interface lands.
#pragma once
#include "zyra/object.h"
namespace Zyra {
class ZYRA_API FCurve : public ProjectItem {
 public:
  FCurve() = default;
  FCurve(const CRef& ref);  // NOLINT
  ZYRA_HANDLE_FROM_OBJECT(FCurve)
};
}  // namespace Zyra
