// A page and a picture about one or several renderings of one sound file. Native builds only.
#pragma once

#include <string>
#include <vector>

#include "tools/render/Rendering.h"

namespace vellumic::tools {

// Whether this build draws; if not, the functions below throw std::runtime_error.
bool drawsReports();

// One self-contained page, HTML that is XML too: what was printed, spectrograms and courses over
// time, the equaliser's response, and the settings that differ from the factory. `table` is what
// was printed about several renderings, empty for one.
std::string reportPage(const RenderJob& job, const std::string& inputName,
                       const std::vector<Rendering>& renderings, const Table& table);

// Only the figure over time, as SVG.
std::string reportPicture(const RenderJob& job, const std::string& inputName,
                          const std::vector<Rendering>& renderings);

}  // namespace vellumic::tools
