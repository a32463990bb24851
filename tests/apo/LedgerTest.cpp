// All that the shipped library asks of the system in a whole life and all that it tells the
// service, written down as it must be on the machine: names, paths, rights, time limits, bytes.
#include <algorithm>
#include <cstring>
#include <regex>
#include <sstream>

#include "control/BoundedText.h"
#include "parameters/Catalogue.h"
#include "tests/apo/ApoWorld.h"
#include "tests/support/SystemCalls.h"

namespace vellumic::test {
namespace {

// Steps of a life, and below each its calls. The first letter says whose: E the endpoint effect's,
// M and K those of the array classes, A of both, L of those that start their worker inside the
// lock (E and M). After "worker:" come the worker's, until it answers a ping. "publish" and "mark"
// stand below.
constexpr char wholeLife[] = R"(
create
  OpenMutexW 100000 0 Global\VellumicServiceSharedMemoryMutex
Initialize
  OpenFileMappingW 2 1 Global\VellumicServiceSharedMemory
  MapViewOfFile <VellumicServiceSharedMemory> 2 0 0 aa4
  OpenEventW 2 1 Global\VellumicServiceSharedMemoryEvent
E RegOpenKeyExW <HKLM> SOFTWARE\Mirandor\Vellumic 0 20019
E RegQueryValueExW <Vellumic> HardwareOutputPath
E RegCloseKey <Vellumic>
E RegOpenKeyExW <HKLM> SYSTEM\CurrentControlSet\Control\Class\{4D36E96C-E325-11CE-BFC1-08002BE10318} 0 20019
E RegOpenKeyExW <{4D36E96C-E325-11CE-BFC1-08002BE10318}> 0001 0 20019
E RegQueryValueExW <0001> Driver
E RegOpenKeyExW <0001> HeadsetStatus 0 20019
E RegQueryValueExW <HeadsetStatus> HeadsetStatus
E RegCloseKey <0001>
E RegCloseKey <{4D36E96C-E325-11CE-BFC1-08002BE10318}>
  CreateEventW 0 0 Global\VellumicAPOPropEvent{instance}
  CreateEventW 0 0 Global\VellumicServicePingEvent
  RegOpenKeyExW <HKLM> SOFTWARE\Mirandor\Vellumic\Parameters\{DFF21CE1-F70F-11D0-B917-00A0C9223196}\Settings 0 20019
  RegQueryValueExW <Settings> ActiveSetting
  RegOpenKeyExW <Settings> 2 0 20019
  RegCloseKey <2>
  RegCloseKey <Settings>
L CreateEventW 1 0
  publish
K CreateEventW 1 0
worker:
  CreateEventW 1 0
  CreateEventW 1 0
  CreateEventW 1 0
  RegOpenKeyExW <HKLM> SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Render\{11111111-2222-3333-4444-555555555555}\FxProperties 0 20019
  RegOpenKeyExW <HKLM> SOFTWARE\Mirandor\Vellumic 0 20019
  publish
GetEffectsList with an event
  DuplicateHandle 2 0 0
LockForProcess at another rate
A DuplicateHandle <duplicate> 2 0 0
A DuplicateHandle <duplicate> 2 0 0
A CreateEventW 0 0 Global\VellumicAPOVolumeChangeEventmicrophone
A CloseHandle <duplicate>
  publish
  mark
reload
worker:
  RegOpenKeyExW <HKLM> SOFTWARE\Mirandor\Vellumic\Parameters\{DFF21CE1-F70F-11D0-B917-00A0C9223196}\Settings 0 20019
  RegQueryValueExW <Settings> ActiveSetting
  RegOpenKeyExW <Settings> 2 0 20019
  RegCloseKey <2>
A SetEvent <duplicate>
  publish
GetEffectsList without one
  CloseHandle <duplicate>
UnlockForProcess
A CloseHandle <VellumicAPOVolumeChangeEventmicrophone>
A CloseHandle <duplicate>
LockForProcess at the same rate
A CreateEventW 0 0 Global\VellumicAPOVolumeChangeEventmicrophone
  mark
destroy
A CloseHandle <VellumicAPOVolumeChangeEventmicrophone>
  SetEvent <unnamed>
  UnmapViewOfFile <<VellumicServiceSharedMemory>>
  CloseHandle <VellumicServiceSharedMemory>
  CloseHandle <VellumicServiceSharedMemoryEvent>
  CloseHandle <VellumicServiceSharedMemoryMutex>
  CloseHandle <VellumicAPOIsRunning>
  CloseHandle <VellumicCaptureAPOIsRunning>
  CloseHandle <VellumicAPOPropEvent{instance}>
  CloseHandle <unnamed>
  CloseHandle <unnamed>
  CloseHandle <unnamed>
  CloseHandle <unnamed>
  CloseHandle <VellumicServicePingEvent>
E RegCloseKey <HeadsetStatus>
worker:
  RegCloseKey <Settings>
  RegCloseKey <Vellumic>
)";
constexpr char publish[] = R"(  WaitForSingleObject <VellumicServiceSharedMemoryMutex> 64
  ReleaseMutex <VellumicServiceSharedMemoryMutex>
  SetEvent <VellumicServiceSharedMemoryEvent>
)";
constexpr char mark[] = R"(  OpenSemaphoreW 0 0 Global\VellumicAPOIsRunning
  SetEvent <VellumicAPOIsRunning>
  OpenSemaphoreW 0 0 Global\VellumicCaptureAPOIsRunning
  SetEvent <VellumicCaptureAPOIsRunning>
)";

std::string lifeOf(const ClassCase& which) {
  const std::string marks = which.endpointEffect            ? " EL"
                            : IsEqualGUID(which.id, mfx.id) ? " MAL"
                                                            : " KA";
  std::istringstream lines(wholeLife);
  std::string life;
  for (std::string line; std::getline(lines, line);)
    if (line == "  publish" || line == "  mark")
      life += line == "  mark" ? mark : publish;
    else if (line.size() < 2 || line[1] != ' ')
      life += line + '\n';
    else if (marks.find(line[0]) != std::string::npos)
      life += line.replace(0, 1, " ") + '\n';
  return life;
}

class Ledger : public ApoWorld {
 protected:
  Ledger() {
    const std::wstring device = std::wstring(machine::audioClass) + L"\\0001";
    registry.write(device, L"Driver", std::wstring(L"isstrtc.sys"));
    registry.write(device + L"\\HeadsetStatus", L"HeadsetStatus", 1);
  }
  void setEffects(float on) {
    for (const Raw slot : {Raw::masterEnable, Raw::keepInDefaultMode, Raw::beamformer})
      registry.writeSlot(L"2", slot, on);
  }
  // What was asked since the last step. The eight readers and the values one by one are left out.
  void step(const std::string& name, bool withWorker = false) {
    story += name + '\n';
    tell(calls.ofThisThread());
    if (!withWorker) return;
    EXPECT_TRUE(name == "destroy" || service.pingIsAnswered());
    story += "worker:\n";
    tell(calls.ofOtherThreads());
  }
  void tell(const std::vector<std::string>& lines) {
    static const std::regex instance("PropEvent\\{[-0-9A-F]*\\}");
    for (const std::string& line : lines)
      if (line.find("> Param") == std::string::npos)
        story += "  " + std::regex_replace(line, instance, "PropEvent{instance}") + '\n';
  }

  SystemCalls calls{library(), SystemCalls::Keeps::lines};
  const ServiceObjects service;
  const KernelHandle running{CreateSemaphoreW(nullptr, 0, 5, L"Global\\VellumicAPOIsRunning")},
      captureRunning{CreateSemaphoreW(nullptr, 0, 5, L"Global\\VellumicCaptureAPOIsRunning")};
  std::string story;
};

TEST_F(Ledger, AWholeLife) {
  const KernelHandle changed(CreateEventW(nullptr, FALSE, FALSE, nullptr));
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    MediaType format = MediaType::plain(2, 44100);
    setEffects(0.0F);
    story = "\n";
    CaptureObject object(which.id);
    step("create");
    ASSERT_EQ(initialize(object, blob()), S_OK);
    step("Initialize", true);
    const KernelHandle ping(OpenEventW(EVENT_ALL_ACCESS, FALSE, machine::pingEvent));
    EXPECT_EQ(accessTo(ping), "D:(A;;0x1f0003;;;WD)");  // everybody may wait for and signal it
    ASSERT_EQ(object.listEffects(changed.get()), S_OK);
    step("GetEffectsList with an event");
    ASSERT_EQ(object.lock(format), S_OK);
    step("LockForProcess at another rate");
    setEffects(1.0F);
    service.signalReload();
    step("reload", true);
    ASSERT_EQ(object.listEffects(), S_OK);
    step("GetEffectsList without one");
    ASSERT_EQ(object.configuration->UnlockForProcess(), S_OK);
    step("UnlockForProcess");
    ASSERT_EQ(object.lock(format), S_OK);
    step("LockForProcess at the same rate");
    object = CaptureObject();
    step("destroy", true);
    EXPECT_EQ(story, lifeOf(which));
    // The earlier lock's marks live as long as the process.
    EXPECT_EQ(calls.stillOpen().size(), 2U * (&which - &classCases[0] + 1U));
  }
}

// The board after a publication: what is not the object's block stays as it was.
std::vector<std::byte> expectedBoard(const ClassCase& which, const GUID& processingMode,
                                     std::uint32_t rate, std::span<const std::byte> board) {
  const std::wstring eventPrefix = L"Global\\VellumicAPOPropEvent";
  std::vector<std::byte> bytes(board.begin(), board.end());
  StatusBlock& block = reinterpret_cast<StatusBoard*>(bytes.data())->block;
  const std::wstring event = block.propertyEvent.data();
  std::memset(&block, 0, sizeof block);
  EXPECT_TRUE(event.starts_with(eventPrefix));
  block.instance = guid(event.substr(eventPrefix.size()).c_str());
  block.endpoint = guid(L"{11111111-2222-3333-4444-555555555555}");
  block.settings = guid(L"{DFF21CE1-F70F-11D0-B917-00A0C9223196}");
  block.classId = which.id;
  block.processingMode = processingMode;
  block.sampleRate = rate;
  block.majorVersion = 3;
  block.minorVersion = 18;
  for (std::uint8_t* flag :
       {&block.initialized, &block.alive, &block.ready, &block.modePresent,
        &block.sampleRatePresent, &block.majorPresent, &block.minorPresent, &block.deviceIdPresent,
        &block.friendlyNamePresent, &block.copyrightPresent, &block.propertyEventPresent})
    *flag = 1;
  copyText(block.deviceId, L"microphone");
  copyText(block.friendlyName,
           L"CVellumicAPOCapture" + std::filesystem::path(which.name).wstring());
  copyText(block.copyright, L"Copyright (C) the Vellumic developers");
  copyText(block.propertyEvent, event);
  return bytes;
}

TEST_F(Ledger, TheBoardByteForByte) {
  const std::span<std::byte> board = service.board();
  // The service's own: before the version and behind the block.
  std::fill_n(board.begin(), 4, std::byte{0xA5});
  std::fill(board.begin() + offsetof(StatusBoard, block), board.end(), std::byte{0xA5});
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    const auto expectRate = [&](std::uint32_t rate) {
      const auto expected = expectedBoard(which, mode::speech, rate, board);
      EXPECT_EQ(std::ranges::mismatch(board, expected).in1 - board.begin(), 2724);
    };
    MediaType slower = MediaType::plain(2, 44100);
    CaptureObject object = initialized(which, mode::speech);
    EXPECT_TRUE(service.signalled());
    expectRate(48000);
    for (const bool first : {true, false}) {
      ASSERT_EQ(object.lock(slower), S_OK);
      EXPECT_EQ(service.signalled(), first);
      expectRate(44100);
      ASSERT_EQ(object.configuration->UnlockForProcess(), S_OK);
    }
    EXPECT_FALSE(service.signalled());
    object = CaptureObject();
    expectRate(44100);  // nobody is told that it went
  }
}

}  // namespace
}  // namespace vellumic::test
