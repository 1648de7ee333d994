// The render setup: a ".knrn" text file that lists the target models and the frame range for the
// runtime, and its companion files in the same directory.
//
// The ".knrn" file, one value a line, each ended by a line feed, without header:
//   1        the number N of target models            4+N  the map flag, 0 or 1
//   2, 3     the start and end frames                 5+N  the class name (may be empty)
//   4..3+N   each target model's name, in order
// Names and the class name are written in UTF-8. Companion files, D being the setup file's
// directory with its separator (empty when the path has none) and joined with a further "/":
//   D/<model>.zyra   the model's branch as a host scene file
//   D/<model>        a render archive of frame 1 with only that model visible
//   D/env            a render archive of the frame range with every target model hidden
//
// Target models: the models among the group's members, in member order, each once. The scene
// root does not count, nor a model that lies inside another target (its container's files
// already hold it). Every object's own visibility is as before when the generation ends, and
// the setup file is left untouched when the generation refuses its input. A setup path that names
// anything but a regular file (a folder, a FIFO, a device) is refused before it is opened, and
// the host log names it.
#pragma once

#include <cstdio>

#include "zyra/core.h"
#include "zyra/scene.h"
#include "zyra/x3dobject.h"

inline constexpr const wchar_t* kRenderSetupCaption = L"Generating Rendering Setup Data";
inline constexpr const wchar_t* kRenderSetupNoFile =
    L"Failed to generate the Kinra Render setup. A setup file must be specified.";
inline constexpr const wchar_t* kRenderSetupNoGroup =
    L"Failed to generate the Kinra Render setup. The target render models must be placed in a "
    L"group.";
inline constexpr const wchar_t* kRenderSetupNoModels =
    L"Failed to generate the Kinra Render setup. The target group must contain models.";

// Writes the setup file and its companion files. Refusals (no file, no group, no model in it)
// go to a message box with `doui`, else to the log as messages; they return false and change
// nothing. Failing exports do not stop the generation: it returns true once the file is written.
bool GenerateRenderSetup(const Zyra::CString& file, const Zyra::CRef& targetGroup, int start,
                         int end, bool domap, const Zyra::CString& className, bool doui);
// Writes the model's line to `out`, then its scene file and its one-frame render archive in `dir`.
void ExportTarget(Zyra::Model& model, const Zyra::CString& dir, std::FILE* out);
// Writes the environment's render archive "env" in `dir` for frames start..end.
void ExportScene(const Zyra::CString& dir, int start, int end, std::FILE* out);
// The target models of a group, as the header describes; empty for anything but a group.
Zyra::CRefArray CollectTargetModels(const Zyra::Group& group);
