// The host's microphone against a device made by the test.
#include <gtest/gtest.h>

#include <atomic>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/control/DeviceDoubles.h"
#include "tools/host/LiveCapture.h"

namespace vellumic::tools {
namespace {

// A sound server that ends, or sends nothing any more, and signals all the same.
TEST(Microphone, EndsWithItsSoundServer) {
  for (const bool gone : {true, false}) {
    test::FakeDevice device;
    device.client.capture.packets = {{std::vector<float>(2 * 480)}};
    LiveCapture microphone(
        {.device = ComPtr<IMMDevice>::share(&device), .name = "mic", .guid = {}});
    std::atomic<bool> over{false};
    std::thread server([&] {
      for (; !over; Sleep(5)) SetEvent(device.client.event);
    });
    unsigned heard = 0;
    std::string fault;
    try {
      microphone.run(60.0, [&](const float*, unsigned frames) {
        heard += frames;
        device.client.capture.broken = gone;
      });
    } catch (const std::runtime_error& error) {
      fault = error.what();
    }
    over = true;
    server.join();
    EXPECT_EQ(heard, 480U);
    EXPECT_NE(fault.find(gone ? "is gone" : "sends nothing"), std::string::npos) << fault;
  }
}

}  // namespace
}  // namespace vellumic::tools
