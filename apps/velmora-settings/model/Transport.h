// The choices of the page Transport that stand in several keys at once, as one person's choice.
#pragma once

#include <string>

#include "apps/velmora-settings/model/Document.h"
#include "apps/velmora-settings/model/Figures.h"

namespace velmora_settings {

// Sets FlexCycle, Fragment and TargetProfileLimitTime so that the driver takes this kind. What one
// of them says already and may go on saying stays.
void chooseTransfer(Document& document, TransferCase kind);

// PCMRequest is two things: the depth that is wished for, and whether integers are converted.
bool convertsIntegers(const Document& document);
void setConvertsIntegers(Document& document, bool converts);

}  // namespace velmora_settings
