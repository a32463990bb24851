// Every registry path and kernel-object name, in one place.
#pragma once

#include <windows.h>

namespace vellumic {

// Registry, under HKEY_LOCAL_MACHINE.
inline constexpr wchar_t productPath[] = L"SOFTWARE\\Mirandor\\Vellumic";
inline constexpr wchar_t parametersPath[] = L"SOFTWARE\\Mirandor\\Vellumic\\Parameters\\";
inline constexpr wchar_t settingsSuffix[] = L"\\Settings";
inline constexpr wchar_t audioClassPath[] =
    L"SYSTEM\\CurrentControlSet\\Control\\Class\\{4D36E96C-E325-11CE-BFC1-08002BE10318}";
inline constexpr wchar_t renderEndpointsPath[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Render\\";
inline constexpr wchar_t captureEndpointsPath[] =
    L"SOFTWARE\\Microsoft\\Windows\\CurrentVersion\\MMDevices\\Audio\\Capture\\";
inline constexpr wchar_t attachmentsPath[] = L"SOFTWARE\\Mirandor\\Vellumic\\Attached\\";
inline constexpr wchar_t effectsSuffix[] = L"\\FxProperties";

// KSNODETYPE_SPEAKER: names the parameter tree, whatever the device.
inline constexpr GUID settingsTreeGuid = {
    0xDFF21CE1, 0xF70F, 0x11D0, {0xB9, 0x17, 0x00, 0xA0, 0xC9, 0x22, 0x31, 0x96}};

// The companion service's objects.
inline constexpr wchar_t sharedMemoryName[] = L"Global\\VellumicServiceSharedMemory";
inline constexpr wchar_t sharedMemoryMutexName[] = L"Global\\VellumicServiceSharedMemoryMutex";
inline constexpr wchar_t sharedMemoryEventName[] = L"Global\\VellumicServiceSharedMemoryEvent";
inline constexpr wchar_t apoRunningName[] = L"Global\\VellumicAPOIsRunning";
inline constexpr wchar_t captureApoRunningName[] = L"Global\\VellumicCaptureAPOIsRunning";

// Our own, open to everyone.
inline constexpr wchar_t pingEventName[] = L"Global\\VellumicServicePingEvent";
inline constexpr wchar_t pingFallbackName[] = L"PING";
inline constexpr wchar_t propertyEventPrefix[] = L"Global\\VellumicAPOPropEvent";  // + instance
inline constexpr wchar_t volumeEventPrefix[] =
    L"Global\\VellumicAPOVolumeChangeEvent";  // + device id

}  // namespace vellumic
