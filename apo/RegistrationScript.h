// The keys under HKEY_CLASSES_ROOT that make the library known to COM, as data.
#pragma once

#include <windows.h>

#include <array>

namespace vellumic {

inline constexpr wchar_t appIdText[] = L"{ED8C8A2F-9D0D-4005-ABC8-3529708C3957}";

struct ScriptValue {
  const wchar_t* key;   // below HKEY_CLASSES_ROOT
  const wchar_t* name;  // null: the key's default value
  const wchar_t* text;  // L"%MODULE%" stands for the library's path
};

enum class Ownership {
  whole,   // removed with all below it before it is written, and again at unregistration
  values,  // others may keep values beside ours: only ours go, and the key once it is empty
};

struct ScriptKey {
  const wchar_t* key;
  Ownership ownership;
  std::array<ScriptValue, 3> values;  // a null key ends the list
};

inline constexpr std::array<ScriptKey, 5> registrationScript{{
    {L"AppID\\{ED8C8A2F-9D0D-4005-ABC8-3529708C3957}",
     Ownership::values,
     {{{L"AppID\\{ED8C8A2F-9D0D-4005-ABC8-3529708C3957}", nullptr, L"VellumicAPO64c"}}}},
    {L"AppID\\VellumicAPO64c.dll",
     Ownership::values,
     {{{L"AppID\\VellumicAPO64c.dll", L"AppID", appIdText}}}},
    {L"CLSID\\{577F6409-47DB-42FF-B8EA-09DCF969B687}",
     Ownership::whole,
     {{{L"CLSID\\{577F6409-47DB-42FF-B8EA-09DCF969B687}", nullptr, L"VellumicAPOCaptureEFX Class"},
       {L"CLSID\\{577F6409-47DB-42FF-B8EA-09DCF969B687}\\InprocServer32", nullptr, L"%MODULE%"},
       {L"CLSID\\{577F6409-47DB-42FF-B8EA-09DCF969B687}\\InprocServer32", L"ThreadingModel",
        L"Both"}}}},
    {L"CLSID\\{41804F5A-584C-41A0-B253-2D0CA712D3A9}",
     Ownership::whole,
     {{{L"CLSID\\{41804F5A-584C-41A0-B253-2D0CA712D3A9}", nullptr, L"VellumicAPOCaptureMFX Class"},
       {L"CLSID\\{41804F5A-584C-41A0-B253-2D0CA712D3A9}\\InprocServer32", nullptr, L"%MODULE%"},
       {L"CLSID\\{41804F5A-584C-41A0-B253-2D0CA712D3A9}\\InprocServer32", L"ThreadingModel",
        L"Both"}}}},
    {L"CLSID\\{AD079A7F-D1FA-4A33-ADCA-15C073DC9BE3}",
     Ownership::whole,
     {{{L"CLSID\\{AD079A7F-D1FA-4A33-ADCA-15C073DC9BE3}", nullptr,
        L"VellumicAPOCaptureKDMFX Class"},
       {L"CLSID\\{AD079A7F-D1FA-4A33-ADCA-15C073DC9BE3}\\InprocServer32", nullptr, L"%MODULE%"},
       {L"CLSID\\{AD079A7F-D1FA-4A33-ADCA-15C073DC9BE3}\\InprocServer32", L"ThreadingModel",
        L"Both"}}}},
}};

}  // namespace vellumic
