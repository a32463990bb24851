// vellumic-ctl endpoints: the microphones, their formats, and what is attached.
#pragma once

namespace vellumic::tools {

void listEndpoints(bool json);  // throws CtlError

}  // namespace vellumic::tools
