// The two services of the audio engine. A changed effect graph is built after a restart of
// AudioEndpointBuilder and then Audiosrv; Audiosrv alone keeps the old one.
#pragma once

#include <array>

namespace vellumic::tools {

// In the order of starting; the second needs the first.
inline constexpr std::array<const wchar_t*, 2> audioServices{L"AudioEndpointBuilder", L"Audiosrv"};
inline constexpr char restartByHand[] =
    "net stop Audiosrv & net stop AudioEndpointBuilder & net start AudioEndpointBuilder & "
    "net start Audiosrv";

enum class ServiceState { running, stopped, changing, missing, unknown };
ServiceState serviceState(const wchar_t* name);

// Stops both, starts both. Whatever fails, both are told to start; then it throws CtlError.
void restartAudioServices();

}  // namespace vellumic::tools
