// What one call of the frame path cost: heap calls of this thread, and its processor time.
#pragma once

namespace vellumic::fuzz {

class CallWatch {
 public:
  CallWatch();
  ~CallWatch();
  CallWatch(const CallWatch&) = delete;
  CallWatch& operator=(const CallWatch&) = delete;

  int heapCalls() const;
  double cpuSeconds() const;

 private:
  double start_;
};

}  // namespace vellumic::fuzz
