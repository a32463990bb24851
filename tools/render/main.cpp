// vellumic-render: sound files through the capture effects.
#include "tools/render/RenderMain.h"

int main(int argc, char** argv) { return vellumic::tools::renderMain(argc, argv); }
