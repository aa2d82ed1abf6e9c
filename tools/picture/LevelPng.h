#pragma once

#include "picture/Picture.h"
#include "picture/Spectrogram.h"

namespace tqpicture {

/// One pixel for each level, nothing around them; transparent where there are no data. `floorDb` is
/// the darkest colour, dBFS. False when there is no memory for it. [any thread]
[[nodiscard]] bool levelsAsPng(const LevelGrid& levels, double floorDb, Png& png);

}  // namespace tqpicture
