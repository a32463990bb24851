// How long a test runs that draws its cases: so many rounds from the same seed each time; or, with
// VELLUMIC_RANDOM_SECONDS in the environment, as long as that says, from another seed each time
// (scripts/fuzz --windows).
//
//   RandomRounds rounds(150);
//   while (rounds.next()) drawSomething(rounds.random);
#pragma once

#include <chrono>
#include <cstdlib>
#include <iostream>
#include <optional>
#include <random>

namespace vellumic {

class RandomRounds {
 public:
  explicit RandomRounds(int rounds) : rounds_(rounds) {
    const char* const seconds = std::getenv("VELLUMIC_RANDOM_SECONDS");
    if (seconds == nullptr) return;
    end_ = Clock::now() + std::chrono::seconds(std::atoi(seconds));
    const auto seed = static_cast<unsigned>(Clock::now().time_since_epoch().count());
    random.seed(seed);
    std::cout << "seed " << seed << std::endl;
  }
  ~RandomRounds() {
    if (end_) std::cout << done_ << " rounds" << std::endl;
  }
  RandomRounds(const RandomRounds&) = delete;
  RandomRounds& operator=(const RandomRounds&) = delete;

  bool next() {
    if (end_ ? Clock::now() >= *end_ : done_ == rounds_) return false;
    ++done_;
    return true;
  }
  int done() const noexcept { return done_; }

  std::mt19937 random{14};

 private:
  using Clock = std::chrono::steady_clock;

  int rounds_, done_ = 0;
  std::optional<Clock::time_point> end_;
};

}  // namespace vellumic
