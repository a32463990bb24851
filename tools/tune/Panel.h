// The scenes and recordings that settings are judged on, and their judging side by side.
#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "tools/quality/Material.h"
#include "tools/tune/Plan.h"

namespace vellumic::tune {

class Panel {
 public:
  // Makes the scenes and reads the recordings. Throws std::runtime_error with one line, or Stopped.
  Panel(const std::vector<Matter>& matter, const Voices& voices, unsigned jobs,
        const std::atomic<bool>& stop);

  // Per scene the figures over all shifts, or quickly over one, in the order of names(). Throws
  // Stopped soon after `stop` was set.
  std::vector<quality::Summary> judge(const RawValues& settings, Depth depth = Depth::full) const;

  const std::vector<std::string>& names() const { return names_; }
  std::uint64_t print() const { return print_; }  // of everything that is judged on

 private:
  std::vector<std::unique_ptr<quality::Material>> material_;
  std::vector<std::string> names_;
  std::uint64_t print_;
  unsigned jobs_;
  const std::atomic<bool>& stop_;
};

}  // namespace vellumic::tune
