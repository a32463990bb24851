// All that the shipped library asks of the system in a whole life and all that it tells the
// service, written down as it must be on the machine: names, paths, rights, time limits, bytes.
#include <cstring>
#include <optional>
#include <regex>
#include <sstream>

#include "parameters/Catalogue.h"
#include "tests/apo/ApoWorld.h"
#include "tests/support/SystemCalls.h"

namespace vellumic::test {
namespace {

// Steps of a life, and below each its calls. The first letter says whose: E the endpoint effect's,
// M and K those of the array classes, A of both, L of those that start their worker inside the
// lock (E and M). After "worker:" come the worker's, until it answers a ping.
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
  WaitForSingleObject <VellumicServiceSharedMemoryMutex> 64
  ReleaseMutex <VellumicServiceSharedMemoryMutex>
  SetEvent <VellumicServiceSharedMemoryEvent>
K CreateEventW 1 0
worker:
  CreateEventW 1 0
  CreateEventW 1 0
  CreateEventW 1 0
  RegOpenKeyExW <HKLM> SOFTWARE\Microsoft\Windows\CurrentVersion\MMDevices\Audio\Render\{11111111-2222-3333-4444-555555555555}\FxProperties 0 20019
  RegOpenKeyExW <HKLM> SOFTWARE\Mirandor\Vellumic 0 20019
  WaitForSingleObject <VellumicServiceSharedMemoryMutex> 64
  ReleaseMutex <VellumicServiceSharedMemoryMutex>
  SetEvent <VellumicServiceSharedMemoryEvent>
GetEffectsList with an event
  DuplicateHandle 2 0 0
LockForProcess at another rate
A DuplicateHandle 2 0 0
A DuplicateHandle 2 0 0
A CreateEventW 0 0 Global\VellumicAPOVolumeChangeEventmicrophone
A CloseHandle <duplicate>
  WaitForSingleObject <VellumicServiceSharedMemoryMutex> 64
  ReleaseMutex <VellumicServiceSharedMemoryMutex>
  SetEvent <VellumicServiceSharedMemoryEvent>
  OpenSemaphoreW 0 0 Global\VellumicAPOIsRunning
  SetEvent <VellumicAPOIsRunning>
  OpenSemaphoreW 0 0 Global\VellumicCaptureAPOIsRunning
  SetEvent <VellumicCaptureAPOIsRunning>
reload
worker:
  RegOpenKeyExW <HKLM> SOFTWARE\Mirandor\Vellumic\Parameters\{DFF21CE1-F70F-11D0-B917-00A0C9223196}\Settings 0 20019
  RegQueryValueExW <Settings> ActiveSetting
  RegOpenKeyExW <Settings> 2 0 20019
  RegCloseKey <2>
A SetEvent <duplicate>
  WaitForSingleObject <VellumicServiceSharedMemoryMutex> 64
  ReleaseMutex <VellumicServiceSharedMemoryMutex>
  SetEvent <VellumicServiceSharedMemoryEvent>
GetEffectsList without one
  CloseHandle <duplicate>
UnlockForProcess
A CloseHandle <VellumicAPOVolumeChangeEventmicrophone>
A CloseHandle <duplicate>
LockForProcess at the same rate
A CreateEventW 0 0 Global\VellumicAPOVolumeChangeEventmicrophone
  OpenSemaphoreW 0 0 Global\VellumicAPOIsRunning
  SetEvent <VellumicAPOIsRunning>
  OpenSemaphoreW 0 0 Global\VellumicCaptureAPOIsRunning
  SetEvent <VellumicCaptureAPOIsRunning>
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

std::string lifeOf(const ClassCase& which) {
  const std::string marks = which.endpointEffect            ? " EL"
                            : IsEqualGUID(which.id, mfx.id) ? " MAL"
                                                            : " KA";
  std::istringstream lines(wholeLife);
  std::string life;
  for (std::string line; std::getline(lines, line);)
    if (line.size() < 2 || line[1] != ' ')
      life += line + '\n';
    else if (marks.find(line[0]) != std::string::npos)
      life += line.replace(0, 1, " ") + '\n';
  return life;
}

class Ledger : public ApoWorld {
 protected:
  Ledger() {
    const std::wstring device =
        L"SYSTEM\\CurrentControlSet\\Control\\Class"
        L"\\{4D36E96C-E325-11CE-BFC1-08002BE10318}\\0001";
    registry.write(device, L"Driver", std::wstring(L"isstrtc.sys"));
    registry.write(device + L"\\HeadsetStatus", L"HeadsetStatus", 1);
  }
  void setEffects(float on) {
    for (const Raw slot : {Raw::masterEnable, Raw::keepInDefaultMode, Raw::beamformer}) {
      const auto number = static_cast<unsigned>(index(slot) + 1);
      registry.writeSetting(L"2", number, number, [=](unsigned) { return on; });
    }
  }
  // What was asked since the last step. The eight readers and the values one by one are left out.
  void step(const std::string& name, bool withWorker = false) {
    story += name + '\n';
    tell(calls->ofThisThread());
    if (!withWorker) return;
    EXPECT_TRUE(name == "destroy" || service->pingIsAnswered());
    story += "worker:\n";
    tell(calls->ofOtherThreads());
  }
  void tell(const std::vector<std::string>& lines) {
    static const std::regex instance("PropEvent\\{[-0-9A-F]*\\}");
    for (const std::string& line : lines)
      if (line.find("> Param") == std::string::npos)
        story += "  " + std::regex_replace(line, instance, "PropEvent{instance}") + '\n';
  }

  std::optional<SystemCalls> calls{std::in_place, library(), SystemCalls::Keeps::lines};
  std::optional<ServiceObjects> service{std::in_place};
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
    ASSERT_EQ(object.listEffects(changed.get()), S_OK);
    step("GetEffectsList with an event");
    ASSERT_EQ(object.lock(format), S_OK);
    step("LockForProcess at another rate");
    setEffects(1.0F);
    service->signalReload();
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
    EXPECT_EQ(calls->stillOpen().size(), 2U * (&which - &classCases[0] + 1U));
  }
}

// The board as the service reads it, byte for byte: what is not named here stays as it was.
class Board {
 public:
  explicit Board(std::span<const std::byte> before) : bytes(before.begin(), before.end()) {}
  template <class Value>
  Board& put(std::size_t offset, const Value& value) {
    std::memcpy(&bytes.at(offset), &value, sizeof value);
    return *this;
  }
  Board& text(std::size_t offset, const std::wstring& text) {
    bytes.at(offset) = std::byte{1};  // present
    std::memcpy(&bytes.at(offset + 2), text.c_str(), (text.size() + 1) * sizeof(wchar_t));
    return *this;
  }
  std::vector<std::byte> bytes;
};

constexpr std::size_t boardSize = 2724, blockAt = 8, blockSize = 2700;

Board expectedBoard(const ClassCase& which, const GUID& processingMode, std::uint32_t rate,
                    const std::wstring& instance, std::span<const std::byte> before) {
  constexpr GUID endpoint{
      0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};
  constexpr GUID speakers{
      0xDFF21CE1, 0xF70F, 0x11D0, {0xB9, 0x17, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};
  constexpr std::uint8_t present = 1;
  const std::wstring name = L"CVellumicAPOCapture" + std::filesystem::path(which.name).wstring();
  GUID instanceId{};
  EXPECT_EQ(CLSIDFromString(instance.c_str(), &instanceId), S_OK);
  Board board(before);
  for (std::size_t i = 0; i < blockSize; ++i) board.bytes.at(blockAt + i) = std::byte{};
  board.put(blockAt, instanceId).put(blockAt + 16, endpoint).put(blockAt + 32, which.id);
  for (const std::size_t flag : {48, 49, 50}) board.put(blockAt + flag, present);
  board.put(blockAt + 52, speakers).put(blockAt + 68, present).put(blockAt + 72, processingMode);
  board.put(blockAt + 104, present).put(blockAt + 108, rate);
  board.put(blockAt + 112, present).put(blockAt + 116, 3);
  board.put(blockAt + 120, present).put(blockAt + 124, 18);
  board.text(blockAt + 128, L"microphone").text(blockAt + 642, name);
  board.text(blockAt + 1156, L"Copyright (C) the Vellumic developers");
  board.text(blockAt + 1670, L"Global\\VellumicAPOPropEvent" + instance);
  return board;
}

TEST_F(Ledger, TheBoardByteForByte) {
  const std::span<std::byte> board = service->board();
  ASSERT_EQ(board.size(), boardSize);
  // The service's own: before the version and behind the block.
  std::fill_n(board.begin(), 4, std::byte{0xA5});
  std::fill(board.begin() + blockAt, board.end(), std::byte{0xA5});
  for (const ClassCase& which : classCases) {
    SCOPED_TRACE(which.name);
    const auto differsAt = [&](std::uint32_t rate) {
      const std::wstring event = service->block().propertyEvent.data();
      const auto expected = expectedBoard(
          which, mode::speech, rate, event.substr(std::min(event.size(), event.find(L'{'))), board);
      return std::mismatch(board.begin(), board.end(), expected.bytes.begin()).first -
             board.begin();
    };
    MediaType slower = MediaType::plain(2, 44100);
    CaptureObject object = initialized(which, mode::speech);
    EXPECT_TRUE(service->signalled());
    EXPECT_EQ(differsAt(48000), boardSize);
    for (const bool first : {true, false}) {
      ASSERT_EQ(object.lock(slower), S_OK);
      EXPECT_EQ(service->signalled(), first);
      EXPECT_EQ(differsAt(44100), boardSize);
      ASSERT_EQ(object.configuration->UnlockForProcess(), S_OK);
    }
    EXPECT_FALSE(service->signalled());
    object = CaptureObject();
    EXPECT_EQ(differsAt(44100), boardSize);  // nobody is told that it went
  }
}

}  // namespace
}  // namespace vellumic::test
