// Names of the machine as they must be there, apart from those that the code under test uses.
#pragma once

namespace vellumic::test::machine {

inline constexpr wchar_t board[] = L"Global\\VellumicServiceSharedMemory",
                         boardMutex[] = L"Global\\VellumicServiceSharedMemoryMutex",
                         boardEvent[] = L"Global\\VellumicServiceSharedMemoryEvent",
                         pingEvent[] = L"Global\\VellumicServicePingEvent";
inline constexpr wchar_t product[] = L"SOFTWARE\\Mirandor\\Vellumic",
                         settings[] =
                             L"SOFTWARE\\Mirandor\\Vellumic\\Parameters\\"
                             L"{DFF21CE1-F70F-11D0-B917-00A0C9223196}\\Settings",
                         attachments[] = L"SOFTWARE\\Mirandor\\Vellumic\\Attached\\";
inline constexpr wchar_t audioClass[] =
    L"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E96C-E325-11CE-BFC1-08002BE10318}";
inline constexpr wchar_t renderEndpoints[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Render\\";
inline constexpr wchar_t captureEndpoints[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture\\";

}  // namespace vellumic::test::machine
