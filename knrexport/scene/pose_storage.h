// Storing and restoring the global pose of a hierarchy in the scene, converting between the
// host's transformations and DrvTransform, and checking that actor nodes carry no scaling.
//
// The stored pose is a "UserDataBlob" property named "StorePose" on the top node: (n + 1)
// records of ten little-endian 32-bit floats (translation x y z, rotation quaternion x y z w,
// scaling x y z), record 0 for the top node and then one per descendant in the host's
// recursive child order. There is no header: a pose restores only onto the same hierarchy.
#pragma once

#include "knrexport/math/drv_math.h"
#include "zyra/math.h"
#include "zyra/ui.h"
#include "zyra/x3dobject.h"

inline constexpr size_t kPoseRecordSize = 40;
// Tolerance of the scaling checks.
inline constexpr double kScaleTolerance = 1e-7;

// Saves the global pose of `top` and its descendants, replacing an earlier one.
void StorePose(Zyra::X3DObject& top);
// Puts the stored pose back: one pass (`singlePass`) or four (false, true, false, true). False
// when nothing is stored or the hierarchy no longer matches the record count.
bool RestorePose(Zyra::X3DObject& top, bool singlePass);
// One restore pass; `pass` false skips chain bones (class 77), true skips effectors (78). When
// the record count and the hierarchy disagree the common prefix is restored and it fails.
bool RestorePosePass(Zyra::X3DObject& top, bool pass);
void RestorePoseTransform(Zyra::X3DObject& node, Zyra::MATH::CTransformation& transform, bool pass);
// Deletes the stored pose; always true.
bool CleanupPose(Zyra::X3DObject& top);

void GetTransform(Zyra::MATH::CTransformation& in, DrvTransform& out);
void PutTransform(DrvTransform& in, Zyra::MATH::CTransformation& out);
// Translation and rotation only; the scaling fields are left as they are.
void DrvTransform_Set(DrvTransform& out, const Zyra::MATH::CTransformation& in);
void GetGlobalTransform(Zyra::X3DObject& obj, DrvTransform& out);

// True when every checked node of the branch has local scaling (1, 1, 1) within 1e-7. Nodes
// tagged RTKEnd (unless `includeEnds`) and enveloped nodes are not checked. The first offender
// is named in a message box when `showMessage`.
bool TestForScale(Zyra::X3DObject& node, const Zyra::CString& purpose, bool showMessage, bool includeEnds);
// True when every node tagged RTKNode (RTKEnd excepted) of the branch scales the same on all
// three axes within 1e-7.
bool TestForUniformScale(Zyra::X3DObject& node, Zyra::X3DObject& top, bool showMessage);
// Deletes leftovers of an older data layout (RTKHandle, TmpRTKBndCylinder, TmpRTKPose) from the
// branch.
void RemoveOldFormatTempData(Zyra::X3DObject& top, Zyra::ProgressBar bar);
