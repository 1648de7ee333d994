// RenderSetup: the page of the Render Setup command, kept on the scene root so that its values
// persist between runs.
//
// Parameters: "FileName" (the setup file), "Target" (the name of the group of target models),
// "Start" and "End" (the frame range, taken from the scene's play range when the property is
// made), "DoMap" (the map flag) and "ClassName" (the runtime class name). The page's "Generate"
// button generates the setup with message boxes and closes the page when it succeeded; a refusal
// leaves the page open to be corrected. Cancelling a page that the command had just added
// removes the property again.
#pragma once

#include "zyra/object.h"

inline constexpr const wchar_t* kRenderSetupProperty = L"RenderSetup";
inline constexpr const wchar_t* kRenderSetupTitle = L"Render Setup";
inline constexpr const wchar_t* kRenderSetupFilter = L"Kinra Render Files (*.knrn)|*.knrn|";
inline constexpr const wchar_t* kRenderSetupGenerateButton = L"Generate";

void DefineRenderSetup(Zyra::CustomProperty& property);
// Builds the page: the setup file, the target group, the frames, the map flag and class name,
// and the Generate button.
void BuildRenderSetupLayout(const Zyra::CustomProperty& property);
// The Generate button: runs the generation with the page's values; true when it wrote the setup.
bool GenerateFromRenderSetup(const Zyra::CustomProperty& property);
// The Render Setup command: opens the page of the scene root's RenderSetup property.
bool RenderSetup();
