#include <gtest/gtest.h>

#include <limits>
#include <thread>

#include "platform/FloatingPointMode.h"

namespace vellumic {
namespace {

TEST(FloatingPointMode, DenormalsVanishAsOperandsAndAsResults) {
  bool wasKept = false;
  float result = 1.0f;
  float operand = 1.0f;
  std::thread([&] {  // the mode stays set on a thread: use one that ends
    volatile float normal = std::numeric_limits<float>::min();
    volatile float denormal = std::numeric_limits<float>::denorm_min();
    volatile float half = 0.5f;
    volatile float large = 1e20f;
    wasKept = normal * half > 0.0f;
    cutDenormals();
    result = normal * half;
    operand = denormal * large;
  })
      .join();
  EXPECT_TRUE(wasKept);
  EXPECT_EQ(result, 0.0f);
  EXPECT_EQ(operand, 0.0f);
}

}  // namespace
}  // namespace vellumic
