// The figures of a report, as SVG.
#pragma once

#include <string>
#include <vector>

#include "tools/render/Rendering.h"

namespace vellumic::tools {

// Everything over time: spectrograms, levels, and what the array chain did.
std::string figureOverTime(const std::string& title, const RenderJob& job,
                           const std::vector<Rendering>& renderings);

// The equaliser's response as first locked, of each setting that switches it on; "" without any.
std::string equalizerFigure(const RenderJob& job, const std::vector<Rendering>& renderings);

}  // namespace vellumic::tools
