// vellumic-host: the registered capture effects, run as the audio engine would run them.
#include "tools/host/HostMain.h"

int main(int argc, char** argv) { return vellumic::tools::hostMain(argc, argv); }
