#include <stdexcept>

#include "tools/render/report/Report.h"

namespace vellumic::tools {
namespace {

[[noreturn]] void refuse() {
  throw std::runtime_error("this build draws no reports; use the native vellumic-render");
}

}  // namespace

bool drawsReports() { return false; }

std::string reportPage(const RenderJob&, const std::string&, const std::vector<Rendering>&,
                       const Table&) {
  refuse();
}

std::string reportPicture(const RenderJob&, const std::string&, const std::vector<Rendering>&) {
  refuse();
}

}  // namespace vellumic::tools
