// The Make Skill command: the Skill page, then either a conversion of the chosen action source
// in place or its transfer onto another actor.
//
// The Skill property lives on the actor's root only while the command runs, and command logging
// is switched off from the moment the page is confirmed; both are undone on every way out.
// Conversions in place are made only on generated actors (RTKActor on the root); on a source
// actor the chosen kind is still written into the source's "type", for Generate to convert the
// copy later.
#pragma once

#include "zyra/x3dobject.h"

// The command body for `node` of an actor and the index of the action source the page starts on.
// Refusals are told in message boxes; always returns true (the command ran).
bool MakeSkill(Zyra::X3DObject& node, int sourceIndex);
