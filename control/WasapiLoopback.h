// What the default render endpoint plays, as packets: a capture client in loopback mode.
//
// Threads: openWasapiLoopback() and the destructor on a control or helper thread that holds no
// lock; opening inside one of the audio engine's calls is known to deadlock. The packet calls come
// from the real-time thread.
#pragma once

#include <memory>

#include "frontend/PacketSource.h"

namespace vellumic {

// Opens the endpoint in shared mode with a buffer of one second. Null when any step fails, and for
// a mix format that is not whole 32-bit samples; those are taken to be floats. Needs no COM
// initialisation by the caller: the process keeps a multithreaded apartment while the source lives.
[[nodiscard]] std::unique_ptr<PacketSource> openWasapiLoopback();

// The opener that an object's engine gets: on a helper thread. One that the audio service keeps
// keeps the library in the process.
[[nodiscard]] LoopbackOpener wasapiLoopbackOpener();

}  // namespace vellumic
