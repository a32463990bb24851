// vellumic-host: the registered capture effects, run as the audio engine would run them.
#include <windows.h>

#include "tools/host/HostMain.h"

// Texts are UTF-8: the arguments by the program's manifest, what is printed by the console's page.
int main(int argc, char** argv) {
  SetConsoleOutputCP(CP_UTF8);
  return vellumic::tools::hostMain(argc, argv);
}
