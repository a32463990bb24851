#include "bench/realtime/PaintedStack.h"

#include <pthread.h>
#include <sys/mman.h>

#include <algorithm>
#include <stdexcept>

namespace vellumic::bench {
namespace {

constexpr unsigned char paintByte = 0xA5;
constexpr std::size_t spared = 512;  // the painter's own frames

}  // namespace

PaintedStack::PaintedStack()
    : stack_(static_cast<unsigned char*>(
          mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0))) {
  if (stack_ == MAP_FAILED) throw std::bad_alloc();
}

PaintedStack::~PaintedStack() { munmap(stack_, size); }

void PaintedStack::run(const std::function<void(PaintedStack&)>& work) {
  struct Job {
    const std::function<void(PaintedStack&)>& work;
    PaintedStack& stack;
  } job{work, *this};
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack_, size);
  pthread_t thread{};
  const auto body = [](void* given) -> void* {
    const Job& task = *static_cast<Job*>(given);
    task.work(task.stack);
    return nullptr;
  };
  if (pthread_create(&thread, &attributes, body, &job) != 0)
    throw std::runtime_error("the painted thread cannot start");
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
}

// No frame of the caller lies below the paint.
[[gnu::noinline]] void PaintedStack::paint() {
  top_ = static_cast<unsigned char*>(__builtin_frame_address(0)) - spared;
  for (volatile unsigned char* byte = top_ - painted; byte != top_; ++byte) *byte = paintByte;
}

std::size_t PaintedStack::depth() const {
  const unsigned char* touched =
      std::find_if(top_ - painted, top_, [](unsigned char byte) { return byte != paintByte; });
  return static_cast<std::size_t>(top_ - touched) + (touched == top_ ? 0 : spared);
}

}  // namespace vellumic::bench
