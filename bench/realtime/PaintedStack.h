// Runs work on a thread of its own whose stack was painted before, and tells how deep it went.
#pragma once

#include <cstddef>
#include <functional>

namespace vellumic::bench {

class PaintedStack {
 public:
  PaintedStack();
  ~PaintedStack();
  PaintedStack(const PaintedStack&) = delete;
  PaintedStack& operator=(const PaintedStack&) = delete;

  // `work` gets this object: measure() from within it.
  void run(const std::function<void(PaintedStack&)>& work);

  // Bytes of stack that `call` took below the caller. On the painted thread only.
  template <class Call>
  std::size_t measure(Call call) {
    paint();
    call();
    return depth();
  }

 private:
  static constexpr std::size_t size = 1U << 20U, painted = 256U << 10U;
  void paint();
  std::size_t depth() const;

  unsigned char* stack_;
  unsigned char* top_ = nullptr;  // paint begins below it
};

}  // namespace vellumic::bench
