// Ground distance and heading change of a body path (rules in travel.h).
#include "travel.h"

#include <cmath>

namespace knrconvert {
namespace {

constexpr double kPi = 3.14159265358979323846;
constexpr double kRadToDeg = 180.0 / kPi;
constexpr double kUpright = 0.98;

double Heading(const Zyra::MATH::CQuaternion& q) {
  Zyra::MATH::CVector3 axis = q.Rotate(Zyra::MATH::CVector3(0, 0, 1));
  if (std::fabs(axis.GetY()) > kUpright) axis = q.Rotate(Zyra::MATH::CVector3(0, 1, 0));
  return std::atan2(axis.GetX(), axis.GetZ());
}

}  // namespace

Travel MeasureTravel(const std::vector<Zyra::MATH::CTransformation>& samples) {
  Travel travel;
  double turned = 0;
  for (size_t i = 1; i < samples.size(); ++i) {
    const Zyra::MATH::CVector3 a = samples[i - 1].GetTranslation(), b = samples[i].GetTranslation();
    travel.distance += std::hypot(b.GetX() - a.GetX(), b.GetZ() - a.GetZ());
    double d = Heading(samples[i].GetRotationQuaternion()) -
               Heading(samples[i - 1].GetRotationQuaternion());
    while (d > kPi) d -= 2 * kPi;
    while (d < -kPi) d += 2 * kPi;
    turned += d;
  }
  travel.headingChange = std::fabs(turned) * kRadToDeg;
  return travel;
}

}  // namespace knrconvert
