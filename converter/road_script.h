// What the converter's road needs to talk to the host in script lines: text quoted and numbers
// written so that the script runner reads them back exactly, object names that scripts can
// write bare, and lookups of scene objects and of an action source's curves.
#pragma once

#include <map>
#include <string>

#include "zyra/fcurve.h"
#include "zyra/x3dobject.h"

namespace knrconvert {

// Text as a quoted script string.
std::string Quote(const std::string& text);

// A double as script text: the shortest that reads back exactly, always with a point or an
// exponent, so that it stays a double.
std::string Num(double value);

// An object name that scripts can write bare: letters, digits and "_", not starting with a digit.
std::string ActorName(const std::string& take);

// The scene object at `path` ("Actor.Hips"); invalid when there is none.
Zyra::X3DObject Find(const std::string& path);

// The animated fcurves of an action source by target ("Hips.kine.local.rotx").
std::map<std::string, Zyra::FCurve> CurveItems(const std::string& sourcePath);

}  // namespace knrconvert
