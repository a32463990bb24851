// vellumic-ctl: settings, status and volume of the capture effects.
#include <windows.h>

#include "tools/ctl/CtlMain.h"

// Texts are UTF-8: the arguments by the program's manifest, what is printed by the console's page.
int main(int argc, char** argv) {
  SetConsoleOutputCP(CP_UTF8);
  return vellumic::tools::ctlMain(argc, argv);
}
