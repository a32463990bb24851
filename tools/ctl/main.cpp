// vellumic-ctl: settings, status and volume of the capture effects.
#include "tools/ctl/CtlMain.h"

int main(int argc, char** argv) { return vellumic::tools::ctlMain(argc, argv); }
